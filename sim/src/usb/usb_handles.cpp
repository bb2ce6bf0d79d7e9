// Opening devices, configurations, interfaces and kernel drivers.
#include <string>

#include "../event_log.h"
#include "usb_internal.h"

using vsensor::detail::bus;
using vsensor::detail::log_lifecycle;

namespace {

int pos_of(libusb_device_handle* h) { return h->device->dev->pos; }

}  // namespace

extern "C" {

int LIBUSB_CALL libusb_open(libusb_device* dev, libusb_device_handle** handle) {
    if (!dev || !handle) return LIBUSB_ERROR_INVALID_PARAM;
    int result = LIBUSB_SUCCESS;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        vsensor::detail::Device& d = *dev->dev;
        if (d.root_hub) return LIBUSB_ERROR_ACCESS;  // as for a user without rights on the hub
        if (d.unplugged || dev->ctx->dead) {
            result = LIBUSB_ERROR_NO_DEVICE;
        } else if (d.faults & vsensor::kFaultOpenAccess) {
            result = LIBUSB_ERROR_ACCESS;
        } else {
            auto* h = new libusb_device_handle;
            h->device = dev;
            ++dev->refs;
            ++d.open_handles;
            *handle = h;
        }
    }
    log_lifecycle(dev->dev->pos, "open", result);
    return result;
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* ctx, uint16_t vendor_id,
                                                                  uint16_t product_id) {
    if (vendor_id != vsensor::kVendorId || product_id != vsensor::kProductId) return nullptr;
    libusb_device** list = nullptr;
    if (libusb_get_device_list(ctx, &list) < 0) return nullptr;
    libusb_device_handle* handle = nullptr;
    if (list[0] && libusb_open(list[0], &handle) != LIBUSB_SUCCESS) handle = nullptr;
    libusb_free_device_list(list, 1);
    return handle;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    if (!handle) return;
    const int pos = pos_of(handle);
    {
        std::lock_guard<std::mutex> lk(bus().m);
        vsensor::detail::Device& d = *handle->device->dev;
        if (d.claimed_by == handle) d.claimed_by = nullptr;
        --d.open_handles;
        vsensor::detail::drop_flying(handle->device->ctx, handle);
        vsensor::detail::unref_device_locked(handle->device);
        delete handle;
    }
    log_lifecycle(pos, "close");
}

libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle) { return handle ? handle->device : nullptr; }

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* config) {
    if (!handle || !config) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    if (handle->device->dev->unplugged) return LIBUSB_ERROR_NO_DEVICE;
    *config = handle->device->dev->configuration;
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    int result = LIBUSB_SUCCESS;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        vsensor::detail::Device& d = *handle->device->dev;
        if (d.unplugged)
            result = LIBUSB_ERROR_NO_DEVICE;
        else if (d.claimed_by)
            result = LIBUSB_ERROR_BUSY;  // as usbfs: not while an interface is claimed
        else if (configuration != -1 && configuration != 0 && configuration != 1)
            result = LIBUSB_ERROR_NOT_FOUND;
        else
            d.configuration = configuration < 0 ? 0 : configuration;
    }
    log_lifecycle(pos_of(handle), "set_configuration " + std::to_string(configuration), result);
    return result;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface_number) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    int result = LIBUSB_SUCCESS;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        vsensor::detail::Device& d = *handle->device->dev;
        if (interface_number < 0 || interface_number >= 32)
            result = LIBUSB_ERROR_INVALID_PARAM;
        else if (d.unplugged)
            result = LIBUSB_ERROR_NO_DEVICE;
        else if (interface_number != 0)
            result = LIBUSB_ERROR_NOT_FOUND;
        else if (d.faults & vsensor::kFaultClaim)
            result = LIBUSB_ERROR_BUSY;
        else if (d.claimed_by && d.claimed_by != handle)
            result = LIBUSB_ERROR_BUSY;
        else
            d.claimed_by = handle;
    }
    log_lifecycle(pos_of(handle), "claim " + std::to_string(interface_number), result);
    return result;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface_number) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    int result = LIBUSB_SUCCESS;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        vsensor::detail::Device& d = *handle->device->dev;
        if (interface_number < 0 || interface_number >= 32)
            result = LIBUSB_ERROR_INVALID_PARAM;
        else if (interface_number != 0 || d.claimed_by != handle)
            result = LIBUSB_ERROR_NOT_FOUND;
        else if (d.unplugged)
            result = LIBUSB_ERROR_NO_DEVICE;
        else
            d.claimed_by = nullptr;
    }
    log_lifecycle(pos_of(handle), "release " + std::to_string(interface_number), result);
    return result;
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface_number,
                                                 int alternate_setting) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    if (handle->device->dev->unplugged) return LIBUSB_ERROR_NO_DEVICE;
    if (handle->device->dev->claimed_by != handle || interface_number != 0) return LIBUSB_ERROR_NOT_FOUND;
    return alternate_setting == 0 ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    return handle->device->dev->unplugged ? LIBUSB_ERROR_NO_DEVICE : LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        if (handle->device->dev->unplugged) return LIBUSB_ERROR_NO_DEVICE;
    }
    log_lifecycle(pos_of(handle), "reset");
    return LIBUSB_SUCCESS;
}

// No kernel driver is ever bound to a virtual device.
int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    return handle->device->dev->unplugged ? LIBUSB_ERROR_NO_DEVICE : 0;
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    log_lifecycle(pos_of(handle), "detach_kernel_driver " + std::to_string(interface_number), LIBUSB_ERROR_NOT_FOUND);
    return LIBUSB_ERROR_NOT_FOUND;
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    log_lifecycle(pos_of(handle), "attach_kernel_driver " + std::to_string(interface_number), LIBUSB_ERROR_NOT_FOUND);
    return LIBUSB_ERROR_NOT_FOUND;
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    handle->auto_detach = enable != 0;
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char*, int) {
    if (!handle || index == 0) return LIBUSB_ERROR_INVALID_PARAM;
    return LIBUSB_ERROR_PIPE;  // the devices have no string descriptors
}

}  // extern "C"
