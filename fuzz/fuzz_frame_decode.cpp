// Frame decode: any 2048 bytes decode to 1024 values in 0..4095, and the
// input buffer is consumed (zeroed).
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "efm32com/oru_device_interface_stm_frames.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char frame[ORU_FRAME_BYTES] = {0};
    std::memcpy(frame, data, size < sizeof frame ? size : sizeof frame);
    double out[ORU_NUM_FILTERS];
    convert_2048C_to_1024F(frame, out);
    for (double v : out)
        if (v < 0.0 || v > 4095.0) std::abort();
    for (char c : frame)
        if (c != 0) std::abort();
    return 0;
}
