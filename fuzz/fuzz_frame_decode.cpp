// Frame decode: any 2048 bytes decode to 1024 values in 0..4095, each the
// 12 bits of its byte pair; the conversion to doubles gives the same values
// and consumes (zeroes) its input.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "efm32com/oru_device_interface_stm_frames.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    unsigned char raw[ORU_FRAME_BYTES] = {0};
    std::memcpy(raw, data, size < sizeof raw ? size : sizeof raw);
    uint16_t samples[ORU_NUM_FILTERS];
    decode_frame(raw, samples);
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) {
        // The sample's bits, read back out of the byte pair one by one.
        unsigned int bits = 0;
        for (int b = 11; b >= 0; --b) {
            int iBit = b >= 4 ? (raw[2 * i] >> (b - 4)) & 1 : (raw[2 * i + 1] >> (b + 4)) & 1;
            bits = (bits << 1) | static_cast<unsigned int>(iBit);
        }
        if (samples[i] > 4095 || samples[i] != bits) std::abort();
    }

    char frame[ORU_FRAME_BYTES];
    std::memcpy(frame, raw, sizeof frame);
    double out[ORU_NUM_FILTERS];
    convert_2048C_to_1024F(frame, out);
    for (int i = 0; i < ORU_NUM_FILTERS; ++i)
        if (out[i] != samples[i]) std::abort();
    for (char c : frame)
        if (c != 0) std::abort();
    return 0;
}
