// Asynchronous transfers: allocation, submission, cancellation.
#include <cstddef>
#include <cstdlib>
#include <new>

#include "../event_log.h"
#include "../firmware.h"
#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

// Our bookkeeping sits in front of the public structure, whose iso packet
// descriptors must stay at its end.
constexpr size_t kPrivSize =
    (sizeof(TransferPriv) + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);

libusb_transfer* transfer_of(TransferPriv* p) {
    return reinterpret_cast<libusb_transfer*>(reinterpret_cast<unsigned char*>(p) + kPrivSize);
}

int transfer_status_of(int result) {
    if (result >= 0) return LIBUSB_TRANSFER_COMPLETED;
    if (result == LIBUSB_ERROR_TIMEOUT) return LIBUSB_TRANSFER_TIMED_OUT;
    if (result == LIBUSB_ERROR_PIPE) return LIBUSB_TRANSFER_STALL;
    if (result == LIBUSB_ERROR_NO_DEVICE) return LIBUSB_TRANSFER_NO_DEVICE;
    return LIBUSB_TRANSFER_ERROR;
}

// Runs an async control transfer's request now; it completes at the next
// event handling. Caller holds the lock.
void run_control(std::unique_lock<std::mutex>& lk, libusb_transfer* t, Device& d) {
    const libusb_control_setup* raw = libusb_control_transfer_get_setup(t);
    const Setup s{raw->bmRequestType, raw->bRequest, libusb_le16_to_cpu(raw->wValue), libusb_le16_to_cpu(raw->wIndex),
                  libusb_le16_to_cpu(raw->wLength)};
    if (switches_streaming(s)) wait_deliveries(lk, d);
    const int result = firmware_control(d, s, libusb_control_transfer_get_data(t));
    log_control(d.pos, s.bmRequestType, s.bRequest, s.wValue, s.wIndex, s.wLength, t->timeout, result);
    TransferPriv* p = priv_of(t);
    p->control_status = transfer_status_of(result);
    t->actual_length = result >= 0 ? result : 0;
}

}  // namespace

namespace vsensor::detail {

TransferPriv* priv_of(libusb_transfer* t) {
    return reinterpret_cast<TransferPriv*>(reinterpret_cast<unsigned char*>(t) - kPrivSize);
}

}  // namespace vsensor::detail

extern "C" {

struct libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int iso_packets) {
    if (iso_packets < 0) return nullptr;
    const size_t size =
        kPrivSize + sizeof(libusb_transfer) + static_cast<size_t>(iso_packets) * sizeof(libusb_iso_packet_descriptor);
    void* mem = std::calloc(1, size);
    if (!mem) return nullptr;
    TransferPriv* p = new (mem) TransferPriv;
    libusb_transfer* t = transfer_of(p);
    t->num_iso_packets = iso_packets;
    return t;
}

void LIBUSB_CALL libusb_free_transfer(struct libusb_transfer* t) {
    if (!t) return;
    TransferPriv* p = priv_of(t);
    {
        std::lock_guard<std::mutex> lk(bus().m);
        // Freeing a transfer in flight is a caller error; forget it rather
        // than keep a dangling pointer.
        if (p->in_flight && p->ctx) {
            auto& v = p->ctx->flying;
            for (auto it = v.begin(); it != v.end(); ++it)
                if (*it == t) {
                    v.erase(it);
                    break;
                }
        }
    }
    if ((t->flags & LIBUSB_TRANSFER_FREE_BUFFER) && t->buffer) std::free(t->buffer);
    p->~TransferPriv();
    std::free(p);
}

int LIBUSB_CALL libusb_submit_transfer(struct libusb_transfer* t) {
    if (!t || !t->dev_handle) return LIBUSB_ERROR_INVALID_PARAM;
    TransferPriv* p = priv_of(t);
    {
        std::unique_lock<std::mutex> lk(bus().m);
        libusb_device* dev = t->dev_handle->device;
        Device& d = *dev->dev;
        if (p->in_flight) return LIBUSB_ERROR_BUSY;
        if (d.unplugged || dev->ctx->dead) return LIBUSB_ERROR_NO_DEVICE;
        switch (t->type) {
        case LIBUSB_TRANSFER_TYPE_BULK:
            if (t->endpoint != vsensor::kBulkEndpoint) return LIBUSB_ERROR_NOT_FOUND;
            break;
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            if (!t->buffer || t->length < static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE))
                return LIBUSB_ERROR_INVALID_PARAM;
            run_control(lk, t, d);
            break;
        default:
            return LIBUSB_ERROR_NOT_SUPPORTED;
        }
        t->actual_length = t->type == LIBUSB_TRANSFER_TYPE_CONTROL ? t->actual_length : 0;
        p->ctx = dev->ctx;
        p->dev = dev->dev;
        p->in_flight = true;
        p->cancelled = false;
        p->has_deadline = t->timeout != 0;
        if (p->has_deadline) p->deadline = SteadyClock::now() + std::chrono::milliseconds(t->timeout);
        dev->ctx->flying.push_back(t);
        rearm_pollfd_locked(dev->ctx);
    }
    bus().cv.notify_all();
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_cancel_transfer(struct libusb_transfer* t) {
    if (!t) return LIBUSB_ERROR_INVALID_PARAM;
    TransferPriv* p = priv_of(t);
    int pos = -1;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        if (!p->in_flight || p->cancelled) return LIBUSB_ERROR_NOT_FOUND;
        p->cancelled = true;
        pos = p->dev->pos;
        rearm_pollfd_locked(p->ctx);
    }
    bus().cv.notify_all();
    log_lifecycle(pos, "cancel");
    return LIBUSB_SUCCESS;
}

}  // extern "C"
