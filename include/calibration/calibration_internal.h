// Shared by the calibration room's files: the error line for the caller and
// the guard around the HDF5 library.
#ifndef ORU_CALIBRATION_INTERNAL_H
#define ORU_CALIBRATION_INTERNAL_H

#include <string>

#include "oru_calibration.h"

namespace oru_calibration {

// Copies `text` into the caller's buffer (when there is one); returns `code`.
int fail(char* error, int error_size, const std::string& text, int code = -1);

// Attribute names of the file layout.
constexpr const char* kAttrSensorId = "sensor_id";
constexpr const char* kAttrMasterClock = "master_clock";
constexpr const char* kAttrAdcGain = "adc_gain";
constexpr const char* kAttrAdcRange = "adc_range";
constexpr const char* kAttrCreated = "created";
constexpr const char* kAttrSource = "source";
constexpr const char* kAttrDescription = "description";

// Held around every HDF5 call: Debian's serial HDF5 is not thread-safe, and
// its own error printing is switched off meanwhile (the library prints
// nothing of its own; failures come back as one line).
class Hdf5Guard {
public:
    Hdf5Guard();
    ~Hdf5Guard();
    Hdf5Guard(const Hdf5Guard&) = delete;
    Hdf5Guard& operator=(const Hdf5Guard&) = delete;

private:
    void* m_saved_func;
    void* m_saved_data;
};

bool known_source(const char* source);

}  // namespace oru_calibration

#endif
