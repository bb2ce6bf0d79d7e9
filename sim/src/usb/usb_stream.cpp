// When endpoint 0x81 has a frame ready, and handing it over.
#include <algorithm>
#include <cstring>

#include "../frame_model.h"
#include "usb_internal.h"

namespace vsensor::detail {

thread_local bool t_in_callback = false;

BulkState bulk_state(const Device& d, SteadyClock::time_point now, SteadyClock::time_point* wake) {
    *wake = SteadyClock::time_point::max();
    if (d.unplugged) return BulkState::NoDevice;
    if (d.led_driver || !d.streaming || (d.faults & kFaultStreamStall)) return BulkState::Pending;
    if (bus().realtime && now < d.next_due) {
        *wake = d.next_due;
        return BulkState::Pending;
    }
    return (d.faults & kFaultBulkError) ? BulkState::Error : BulkState::Frame;
}

int deliver_frame(Device& d, unsigned char* buf, int length) {
    uint16_t values[kFilters];
    render_frame(d, values);
    uint8_t frame[kFrameBytes];
    encode_frame_into(values, frame);
    const int n = std::clamp(length, 0, kFrameBytes);
    if (buf && n) std::memcpy(buf, frame, static_cast<size_t>(n));
    ++d.frames_sent;
    // The firmware keeps its own rhythm: a late reader gets the next frame
    // at once, but never more than one frame per period.
    d.next_due = std::max(d.next_due + frame_period(d), SteadyClock::now());
    return n;
}

void wait_deliveries(std::unique_lock<std::mutex>& lk, Device& d) {
    if (t_in_callback) return;  // a callback switching streaming would wait for itself
    bus().cv.wait(lk, [&d] { return d.delivering == 0; });
}

}  // namespace vsensor::detail
