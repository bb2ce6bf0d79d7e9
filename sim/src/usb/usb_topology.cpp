// Where devices sit: every device hangs off port pos + 1 of the virtual root
// hub of bus 1. The root hub has no parent and is not in the device list (so
// that clients counting sensors see sensors only); it can be reached through
// libusb_get_parent.
#include "usb_internal.h"

using vsensor::detail::bus;

extern "C" {

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device* dev) {
    return dev ? static_cast<uint8_t>(dev->dev->pos + 1) : 0;
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* dev, uint8_t* port_numbers, int len) {
    if (!dev || len <= 0) return LIBUSB_ERROR_INVALID_PARAM;
    if (dev->dev->root_hub) return 0;
    port_numbers[0] = libusb_get_port_number(dev);
    return 1;
}

int LIBUSB_CALL libusb_get_port_path(libusb_context*, libusb_device* dev, uint8_t* path, uint8_t path_length) {
    return libusb_get_port_numbers(dev, path, path_length);
}

// As libusb, no reference is added: the parent lives as long as its context.
libusb_device* LIBUSB_CALL libusb_get_parent(libusb_device* dev) {
    if (!dev || dev->dev->root_hub) return nullptr;
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* ctx = dev->ctx;
    if (!ctx->root_hub) ctx->root_hub = vsensor::detail::device_for_locked(ctx, bus().root_hub);
    return ctx->root_hub;
}

}  // extern "C"
