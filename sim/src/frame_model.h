// What a sensor sees: the optical model and the test frame sources.
#ifndef VSENSOR_FRAME_MODEL_H
#define VSENSOR_FRAME_MODEL_H

#include <cstdint>
#include <vector>

#include "bus.h"

namespace vsensor::detail {

// DN per shutter unit for a filter of response 1 at brightness 1 and gain x1.
constexpr double kDnPerShutterUnit = 10.8;

std::vector<double> scene_response(Scene scene);
// Renders the next frame of `d` (numbered d.frame_no) and advances the number.
void render_frame(Device& d, uint16_t* out1024);
void encode_frame_into(const uint16_t* values1024, uint8_t* out2048);
int shutter_of(const Device& d);
// Real-time frame period at the device's shutter speed.
SteadyClock::duration frame_period(const Device& d);

}  // namespace vsensor::detail

#endif
