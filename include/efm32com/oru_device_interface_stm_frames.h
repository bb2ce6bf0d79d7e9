// A frame: its size, the one decoder of its wire layout, and the time
// between two frames of a streaming sensor.
#ifndef ORU_DEVICE_INTERFACE_STM_FRAMES_H
#define ORU_DEVICE_INTERFACE_STM_FRAMES_H

#include <cstdint>

#define ORU_FRAME_BYTES 2048
#define ORU_NUM_FILTERS 1024
// A sample at or above this saturated its filter: the converter's top, or
// the 4096 that marks a stuck filter.
#define ORU_SATURATED_DN 4095

// The one frame decoder: 2048 raw bytes into 1024 samples. Sample i is 12
// bits, left-aligned, most significant byte first: (raw[2i] << 4) | (raw[2i+1] >> 4).
void decode_frame(const unsigned char* raw, uint16_t* samples);
void convert_2048C_to_1024F(char* inputC, double* outputF);

// The time between two frames of a streaming sensor, in nanoseconds: the
// slower of its exposure ((shutter x 912 + 160) us) and what a full-speed bulk
// endpoint carries (2048 bytes are 32 packets of 64, at most 19 packets a
// millisecond: one frame every 1.684 ms, about 594 frames/s).
long long frame_period_ns(int iShutterSpeed);

#endif
