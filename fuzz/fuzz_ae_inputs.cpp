// Auto-exposure inputs: the LUT loader on arbitrary file contents, and the
// valid-filter extraction on arbitrary frames and index lists.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "efm32com/oru_device_interface_ae.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::string path = [] {
        char tmpl[] = "/tmp/oru-fuzz-lut-XXXXXX";
        int fd = mkstemp(tmpl);
        if (fd >= 0) close(fd);
        return std::string(tmpl);
    }();
    size_t split = size / 2;
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, split, f);
        std::fclose(f);
    }
    initialize_ae_module(path.c_str(), path.c_str());
    for (int i = 0; i < g_aeLUTSize; ++i) (void)g_intensityLUT[i];

    // Second half: a frame length and a list of indices.
    const uint8_t* p = data + split;
    size_t n = size - split;
    std::vector<double> frame(n ? p[0] : 0, 1.0);
    std::vector<int> idx;
    for (size_t i = 1; i + 1 < n; i += 2)
        idx.push_back(static_cast<int>(p[i]) | (static_cast<int>(p[i + 1] & 0x7F) << 8));
    std::vector<double> out;
    if (get_valid_filters_only(frame, idx, out) == 1 && out.size() != idx.size()) std::abort();
    return 0;
}
