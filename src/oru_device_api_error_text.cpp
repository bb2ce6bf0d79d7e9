// The words for the library's results: the one table the command line and the
// Python binding take their messages from.
#include "oru_device_api.h"

#include "oru_base_exception.h"

namespace {

// Indexed by the error code, that is by the negated result (-1 has its own
// entry since negating it would give the success code).
const char* const kTextByCode[] = {
    "undefined failure",                                  // 0
    "success",                                            // 1
    "a buffer was missing or memory ran out",             // 2
    "no sensor found",                                    // 3
    "could not connect to the sensor",                    // 4
    "could not create the device object",                 // 5
    "could not initialize the sensor",                    // 6
    "no sensor is connected",                             // 7
    "the sensor ID is empty",                             // 8
    "the sensor did not answer in time",                  // 9
    "could not create the spectrum object",               // 10
    "could not initialize the spectrum object",           // 11
    "could not load the sensor's calibration data",       // 12
    "could not add the sensor to the active sensors",     // 13
    "the sensor's calibration data is missing",           // 14
    "the calibration data does not match the sensor ID",  // 15
    "the spectrum object is missing",                     // 16
    "the spectrum buffer is missing",                     // 17
    "the wavelength buffer is missing",                   // 18
    "the filter data buffer is missing",                  // 19
    "the filter data is not a number",                    // 20
    "the background buffer is missing",                   // 21
    "could not calculate the spectrum",                   // 22
    "the sensor gave a wrong reply",                      // 23
    "invalid input",                                      // 24
    "invalid output",                                     // 25
    "the sensor or its stream must be started first",     // 26
    "could not open a file",                              // 27
    "could not allocate the weights matrix",              // 28
    "could not create the color object",                  // 29
    "could not initialize the color object",              // 30
    "the color object is missing",                        // 31
};
static_assert(sizeof(kTextByCode) / sizeof(kTextByCode[0]) == lu_ec_end_code, "one text per error code");

const char kOperationFailed[] = "the operation failed";
const char kUnknown[] = "unknown error";

}  // namespace

extern "C" ORU_EXPORT const char* duGetErrorText(int result) {
    if (result == lu_ec_fail) return kOperationFailed;
    if (result > 0) return kTextByCode[lu_ec_success];  // a count, an index or a value: no error
    if (result <= -lu_ec_end_code) return kUnknown;
    return kTextByCode[-result];
}
