// Test flavour: tests configure the bus through the C++ API.
#include "flavour.h"

namespace vsensor::detail {

void on_libusb_init() {}

}  // namespace vsensor::detail
