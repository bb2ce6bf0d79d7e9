// Frames of the spectral model: response x (scene + LED driver light) x
// exposure x gain + dark level + shot and read noise.
#ifndef VSENSOR_OPTICAL_FRAME_H
#define VSENSOR_OPTICAL_FRAME_H

#include <cstdint>
#include <string>

#include "../bus.h"

namespace vsensor::detail {

// Caller holds bus().m. Points `d` at the spectral model looking at `text`.
bool switch_to_spectral(Device& d, const std::string& text, std::string* error);
// Caller holds bus().m.
void render_spectral(Device& d, uint64_t frame_no, uint16_t* out1024);

}  // namespace vsensor::detail

#endif
