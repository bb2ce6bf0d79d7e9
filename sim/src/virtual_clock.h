// Virtual time: advanced by pauses when the clock library provides usleep,
// real elapsed time otherwise (drop-in).
#ifndef VSENSOR_VIRTUAL_CLOCK_H
#define VSENSOR_VIRTUAL_CLOCK_H

#include <cstdint>

extern "C" int vsensor_clock_is_virtual(void);

namespace vsensor::detail {

void record_pause(uint64_t us);
void reset_clock();

}  // namespace vsensor::detail

#endif
