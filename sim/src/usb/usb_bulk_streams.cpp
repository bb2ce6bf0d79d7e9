// Features a full-speed device on this bus does not have: bulk streams
// (SuperSpeed only), device memory for zero-copy transfers and wrapping a
// system file descriptor. The stream id of a transfer is still kept.
#include "usb_internal.h"

using namespace vsensor::detail;

extern "C" {

int LIBUSB_CALL libusb_alloc_streams(libusb_device_handle* handle, uint32_t, unsigned char*, int) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    return handle->device->dev->unplugged ? LIBUSB_ERROR_NO_DEVICE : LIBUSB_ERROR_NOT_SUPPORTED;
}

int LIBUSB_CALL libusb_free_streams(libusb_device_handle* handle, unsigned char* endpoints, int num_endpoints) {
    return libusb_alloc_streams(handle, 0, endpoints, num_endpoints);
}

unsigned char* LIBUSB_CALL libusb_dev_mem_alloc(libusb_device_handle*, size_t) { return nullptr; }

int LIBUSB_CALL libusb_dev_mem_free(libusb_device_handle*, unsigned char*, size_t) {
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

int LIBUSB_CALL libusb_wrap_sys_device(libusb_context*, intptr_t, libusb_device_handle** handle) {
    if (handle) *handle = nullptr;
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

void LIBUSB_CALL libusb_transfer_set_stream_id(struct libusb_transfer* transfer, uint32_t stream_id) {
    if (transfer) priv_of(transfer)->stream_id = stream_id;
}

uint32_t LIBUSB_CALL libusb_transfer_get_stream_id(struct libusb_transfer* transfer) {
    return transfer ? priv_of(transfer)->stream_id : 0;
}

}  // extern "C"
