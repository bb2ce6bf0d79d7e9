// The sensor's (and LED driver's) answers to control requests on endpoint 0.
#ifndef VSENSOR_FIRMWARE_H
#define VSENSOR_FIRMWARE_H

#include <cstdint>

#include "bus.h"

namespace vsensor::detail {

struct Setup {
    uint8_t bmRequestType;
    uint8_t bRequest;
    uint16_t wValue;
    uint16_t wIndex;
    uint16_t wLength;
};

// Runs one request against `d` (caller holds the bus lock and has checked
// that `d` is plugged in). Returns the bytes of the data stage or a libusb
// error (LIBUSB_ERROR_PIPE for a stall, LIBUSB_ERROR_TIMEOUT for the fault).
int firmware_control(Device& d, const Setup& s, unsigned char* data);
// Start or stop streaming (requests 70 / 71).
bool switches_streaming(const Setup& s);

}  // namespace vsensor::detail

#endif
