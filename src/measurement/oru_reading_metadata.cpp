// What a file needs to say how a reading was taken: the library's version and
// the exposure the sensor really integrated.
#include "oru_measurement.h"

#ifndef ORU_DEVICE_VERSION
#error "ORU_DEVICE_VERSION comes from the project version in CMakeLists.txt"
#endif

extern "C" ORU_EXPORT const char* duGetLibraryVersion(void) { return ORU_DEVICE_VERSION; }

// The sensor integrates 912 master-clock counts per shutter step plus 160;
// the published conversion divides this in integers, which is why it exists.
extern "C" ORU_EXPORT int duExactExposureTimeUs(int master_clock, int shutter_speed, double* exposure_us) {
    if (master_clock < 1 || shutter_speed < 1 || exposure_us == nullptr) return -24;
    *exposure_us = (static_cast<double>(shutter_speed) * 912.0 + 160.0) / master_clock;
    return 1;
}
