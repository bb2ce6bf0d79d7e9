// What differs between the test library and the drop-in libusb.
#ifndef VSENSOR_FLAVOUR_H
#define VSENSOR_FLAVOUR_H

namespace vsensor::detail {

// Called at every libusb_init, before the bus lock is taken. The drop-in
// configures its bus from the environment on the first call.
void on_libusb_init();

}  // namespace vsensor::detail

#endif
