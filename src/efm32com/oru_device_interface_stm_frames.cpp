// The frame decoder and the frame period.
#include "efm32com/oru_device_interface_stm_frames.h"

#include <algorithm>
#include <cstring>

// ---- conversion --------------------------------------------------------------

void decode_frame(const unsigned char* raw, uint16_t* samples) {
    for (int i = 0; i < ORU_NUM_FILTERS; ++i)
        samples[i] = static_cast<uint16_t>((raw[2 * i] << 4) | (raw[2 * i + 1] >> 4));
}

void convert_2048C_to_1024F(char* inputC, double* outputF) {
    if (inputC == nullptr || outputF == nullptr) return;
    unsigned char raw[ORU_FRAME_BYTES];
    std::memcpy(raw, inputC, ORU_FRAME_BYTES);
    std::memset(inputC, 0, ORU_FRAME_BYTES);  // the caller's buffer is consumed
    uint16_t samples[ORU_NUM_FILTERS];
    decode_frame(raw, samples);
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) outputF[i] = samples[i];
}

long long frame_period_ns(int iShutterSpeed) {
    // Full-speed bulk: at most 19 packets of 64 bytes per millisecond.
    constexpr long long kBusFrameNs = (ORU_FRAME_BYTES / 64 * 1000000LL + 18) / 19;  // 1,684,211 ns
    const long long llExposureNs = (static_cast<long long>(iShutterSpeed) * 912 + 160) * 1000;
    return std::max(kBusFrameNs, llExposureNs);
}
