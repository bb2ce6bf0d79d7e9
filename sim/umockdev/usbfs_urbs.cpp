// The URBs of one usbfs node: control requests run at once, bulk IN
// transfers wait for frames while the sensor streams, and everything
// completed waits to be reaped.
#include <libusb.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "event_log.h"
#include "firmware.h"
#include "frame_model.h"
#include "usbfs_ioctl_data.h"
#include "usbfs_node.h"

namespace umockbus {

using vsensor::detail::Device;

namespace {

constexpr int kSetupBytes = 8;

vsensor::detail::Setup setup_of(const uint8_t* b) {
    return {b[0], b[1], static_cast<uint16_t>(b[2] | (b[3] << 8)), static_cast<uint16_t>(b[4] | (b[5] << 8)),
            static_cast<uint16_t>(b[6] | (b[7] << 8))};
}

}  // namespace

UMockdevIoctlData* resolve_arg(UMockdevIoctlClient* client, size_t size) {
    GError* error = nullptr;
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, size, &error);
    if (error) {
        std::fprintf(stderr, "umockbus: cannot resolve ioctl argument: %s\n", error->message);
        g_error_free(error);
    }
    return data;
}

namespace {

// Like usbfs, the first use of an interface claims it for that file, and
// another file's claim refuses it.
int claim_on_use(Device& d, const void* client) {
    if (d.claimed_by && d.claimed_by != client) return EBUSY;
    d.claimed_by = client;
    return 0;
}

}  // namespace

long UsbfsNode::submit(UMockdevIoctlClient* client, int* err) {
    Device& d = *m_device;
    Urb u;
    u.client = client;
    u.urb = resolve_arg(client, sizeof(usbdevfs_urb));
    if (!u.urb) return fail(err, EFAULT);
    usbdevfs_urb* urb = urb_of(u.urb);
    const bool control = urb->type == USBDEVFS_URB_TYPE_CONTROL && urb->endpoint == 0;
    const bool bulk_in = urb->type == USBDEVFS_URB_TYPE_BULK && urb->endpoint == vsensor::kBulkEndpoint;
    int e = 0;
    if (!control && !bulk_in)
        e = ENOENT;
    else if (control && urb->buffer_length < kSetupBytes)
        e = EINVAL;
    else if (d.configuration == 0)
        e = control ? 0 : ENOENT;
    if (!e) {
        GError* error = nullptr;
        u.buffer = umockdev_ioctl_data_resolve(u.urb, offsetof(usbdevfs_urb, buffer),
                                               static_cast<gsize>(urb->buffer_length), &error);
        if (error) g_error_free(error);
        if (!u.buffer) e = EFAULT;
    }
    if (!e && bulk_in) e = claim_on_use(d, client);
    if (e) {
        drop(u);
        return fail(err, e);
    }
    urb->status = 0;
    urb->actual_length = 0;
    if (control) {
        const vsensor::detail::Setup s = setup_of(u.buffer->data);
        const bool to_interface = (s.bmRequestType & 0x1F) == LIBUSB_RECIPIENT_INTERFACE &&
                                  (s.bmRequestType & 0x60) != LIBUSB_REQUEST_TYPE_VENDOR;
        if (to_interface) {
            // usbfs checks interface requests against the claims: another
            // file's claim refuses them, and none yet claims it for this file.
            e = d.configuration == 0 ? EHOSTUNREACH : claim_on_use(d, client);
        }
        if (e) {
            drop(u);
            return fail(err, e);
        }
        run_control(u);
    } else {
        m_pending.push_back(u);
        feed();
    }
    return 0;
}

void UsbfsNode::run_control(Urb& u) {
    Device& d = *m_device;
    usbdevfs_urb* urb = urb_of(u.urb);
    const vsensor::detail::Setup s = setup_of(u.buffer->data);
    vsensor::detail::Setup bounded = s;
    bounded.wLength = static_cast<uint16_t>(std::min<int>(s.wLength, urb->buffer_length - kSetupBytes));
    const bool was_unplugged = d.unplugged;
    const int result = vsensor::detail::firmware_control(d, bounded, u.buffer->data + kSetupBytes);
    vsensor::detail::log_control(d.pos, s.bmRequestType, s.bRequest, s.wValue, s.wIndex, s.wLength, 0, result);
    if (result == LIBUSB_ERROR_TIMEOUT) {
        // The device never answers; libusb's own timeout discards the URB.
        m_pending.push_back(u);
    } else if (result < 0) {
        finish(u, -EPIPE, 0);
    } else {
        finish(u, 0, result);
    }
    if (d.unplugged && !was_unplugged)
        complete_all_pending(-ESHUTDOWN);  // it unplugged itself
    else if (vsensor::detail::switches_streaming(s))
        feed();
}

long UsbfsNode::discard(UMockdevIoctlClient* client, int* err) {
    // _IO request: the argument is the URB's address itself.
    const gulong address = *reinterpret_cast<const gulong*>(umockdev_ioctl_client_get_arg(client)->data);
    for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
        if (it->client != client || it->urb->client_addr != address) continue;
        Urb u = *it;
        m_pending.erase(it);
        if (urb_of(u.urb)->type == USBDEVFS_URB_TYPE_BULK) vsensor::detail::log_lifecycle(m_device->pos, "cancel");
        finish(u, -ENOENT, 0);
        return 0;
    }
    return fail(err, EINVAL);  // already complete (or unknown), as usbfs answers
}

long UsbfsNode::reap(UMockdevIoctlClient* client, int* err) {
    auto it = std::find_if(m_done.begin(), m_done.end(), [client](const Urb& u) { return u.client == client; });
    if (it == m_done.end()) return fail(err, m_device->unplugged ? ENODEV : EAGAIN);
    UMockdevIoctlData* slot = resolve_arg(client, sizeof(void*));
    if (!slot) return fail(err, EFAULT);
    Urb u = *it;
    m_done.erase(it);
    umockdev_ioctl_data_set_ptr(slot, 0, u.urb);
    g_object_unref(slot);
    // Kept until the client's next ioctl: its reply still has to carry the URB.
    m_reaped.push_back(u);
    return 0;
}

// ---- URB bookkeeping -------------------------------------------------------

void UsbfsNode::feed() {
    Device& d = *m_device;
    while (d.streaming && !d.unplugged && !(d.faults & vsensor::kFaultStreamStall)) {
        const auto now = vsensor::detail::SteadyClock::now();
        if (vsensor::detail::bus().realtime && now < d.next_due) return;  // pace() comes back then
        auto it = std::find_if(m_pending.begin(), m_pending.end(),
                               [](const Urb& u) { return urb_of(u.urb)->type == USBDEVFS_URB_TYPE_BULK; });
        if (it == m_pending.end()) return;
        Urb u = *it;
        m_pending.erase(it);
        if (d.faults & vsensor::kFaultBulkError) {
            d.faults &= ~vsensor::kFaultBulkError;
            vsensor::detail::log_bulk(d.pos, LIBUSB_TRANSFER_ERROR);
            finish(u, -EPROTO, 0);
            continue;
        }
        uint16_t values[vsensor::kFilters];
        vsensor::detail::render_frame(d, values);
        uint8_t frame[vsensor::kFrameBytes];
        vsensor::detail::encode_frame_into(values, frame);
        const int n = std::min<int>(vsensor::kFrameBytes, urb_of(u.urb)->buffer_length);
        std::memcpy(u.buffer->data, frame, static_cast<size_t>(n));
        ++d.frames_sent;
        // One frame per period, as the firmware keeps its rhythm.
        d.next_due = std::max(d.next_due + vsensor::detail::frame_period(d), now);
        vsensor::detail::log_bulk(d.pos, LIBUSB_TRANSFER_COMPLETED);
        finish(u, 0, n);
    }
}

void UsbfsNode::complete_all_pending(int status) {
    while (!m_pending.empty()) {
        Urb u = m_pending.front();
        m_pending.pop_front();
        if (urb_of(u.urb)->type == USBDEVFS_URB_TYPE_BULK)
            vsensor::detail::log_bulk(m_device->pos, LIBUSB_TRANSFER_NO_DEVICE);
        finish(u, status, 0);
    }
}

void UsbfsNode::finish(Urb u, int status, int actual_length) {
    usbdevfs_urb* urb = urb_of(u.urb);
    urb->status = status;
    urb->actual_length = actual_length;
    m_done.push_back(u);
}

void UsbfsNode::drop(Urb& u) {
    if (u.buffer) g_object_unref(u.buffer);
    if (u.urb) g_object_unref(u.urb);
    u.buffer = u.urb = nullptr;
}

void UsbfsNode::drop_reaped(UMockdevIoctlClient* client) {
    for (auto it = m_reaped.begin(); it != m_reaped.end();) {
        if (it->client != client) {
            ++it;
            continue;
        }
        drop(*it);
        it = m_reaped.erase(it);
    }
}

void UsbfsNode::update_signal() { m_signal.set_ready(!m_done.empty()); }

std::chrono::steady_clock::time_point UsbfsNode::pace() {
    Locked lk(*this);
    feed();
    const Device& d = *m_device;
    const bool waiting = d.streaming && !d.unplugged && !(d.faults & vsensor::kFaultStreamStall) &&
                         std::any_of(m_pending.begin(), m_pending.end(),
                                     [](const Urb& u) { return urb_of(u.urb)->type == USBDEVFS_URB_TYPE_BULK; });
    return waiting ? d.next_due : std::chrono::steady_clock::time_point::max();
}

void UsbfsNode::unplug() {
    Locked lk(*this);
    complete_all_pending(-ESHUTDOWN);
}

}  // namespace umockbus
