// Synchronous control and bulk transfers.
#include <algorithm>
#include <cerrno>

#include "../event_log.h"
#include "../firmware.h"
#include "usb_internal.h"

using namespace vsensor::detail;

extern "C" {

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t request_type, uint8_t bRequest,
                                        uint16_t wValue, uint16_t wIndex, unsigned char* data, uint16_t wLength,
                                        unsigned int timeout) {
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    const Setup s{request_type, bRequest, wValue, wIndex, wLength};
    int result;
    {
        std::unique_lock<std::mutex> lk(bus().m);
        Device& d = *handle->device->dev;
        if (switches_streaming(s)) wait_deliveries(lk, d);
        // A timeout fault fails at once: the virtual sensor never really waits.
        result = d.unplugged ? LIBUSB_ERROR_NO_DEVICE : firmware_control(d, s, data);
        log_control(d.pos, request_type, bRequest, wValue, wIndex, wLength, timeout, result);
        if (switches_streaming(s)) rearm_all_pollfds_locked();
    }
    bus().cv.notify_all();  // streaming may have started or stopped
    // libusb on Linux leaves errno as the failed usbfs ioctl set it, and
    // clients such as lsusb tell a stall (EPIPE) from other failures by it.
    if (result == LIBUSB_ERROR_PIPE) errno = EPIPE;
    if (result == LIBUSB_ERROR_NO_DEVICE) errno = ENODEV;
    if (result == LIBUSB_ERROR_TIMEOUT) errno = ETIMEDOUT;
    return result;
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                                     int length, int* transferred, unsigned int timeout) {
    if (transferred) *transferred = 0;
    if (!handle) return LIBUSB_ERROR_INVALID_PARAM;
    std::unique_lock<std::mutex> lk(bus().m);
    Device& d = *handle->device->dev;
    if (d.unplugged) return LIBUSB_ERROR_NO_DEVICE;
    if (endpoint != vsensor::kBulkEndpoint) return LIBUSB_ERROR_NOT_FOUND;
    const auto deadline =
        timeout ? SteadyClock::now() + std::chrono::milliseconds(timeout) : SteadyClock::time_point::max();
    for (;;) {
        const auto now = SteadyClock::now();
        SteadyClock::time_point wake;
        switch (bulk_state(d, now, &wake)) {
        case BulkState::NoDevice:
            log_bulk(d.pos, LIBUSB_TRANSFER_NO_DEVICE);
            return LIBUSB_ERROR_NO_DEVICE;
        case BulkState::Error:
            d.faults &= ~vsensor::kFaultBulkError;
            log_bulk(d.pos, LIBUSB_TRANSFER_ERROR);
            return LIBUSB_ERROR_IO;
        case BulkState::Frame: {
            const int n = deliver_frame(d, data, length);
            if (transferred) *transferred = n;
            log_bulk(d.pos, LIBUSB_TRANSFER_COMPLETED);
            return LIBUSB_SUCCESS;
        }
        case BulkState::Pending:
            break;
        }
        if (now >= deadline) return LIBUSB_ERROR_TIMEOUT;
        const auto until = std::min(deadline, wake);
        if (until == SteadyClock::time_point::max())
            bus().cv.wait(lk);
        else
            bus().cv.wait_until(lk, until);
    }
}

int LIBUSB_CALL libusb_interrupt_transfer(libusb_device_handle* handle, unsigned char, unsigned char*, int,
                                          int* transferred, unsigned int) {
    if (transferred) *transferred = 0;
    return handle ? LIBUSB_ERROR_NOT_FOUND : LIBUSB_ERROR_INVALID_PARAM;  // no interrupt endpoint
}

}  // extern "C"
