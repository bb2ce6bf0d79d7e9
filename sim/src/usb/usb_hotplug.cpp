// Hotplug: the virtual bus does not announce arrivals or removals, so it
// answers as a libusb without hotplug support does.
#include "usb_internal.h"

extern "C" {

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context*, int, int, int, int, int, libusb_hotplug_callback_fn,
                                                 void*, libusb_hotplug_callback_handle* handle) {
    if (handle != nullptr) *handle = 0;
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context*, libusb_hotplug_callback_handle) {}

}  // extern "C"
