// Event handling: completions and hotplug events are delivered, and their
// callbacks run, inside libusb_handle_events* on the calling thread. Waiting blocks on the bus's
// condition variable; nothing spins.
#include <algorithm>
#include <sys/time.h>

#include "../event_log.h"
#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

struct Ready {
    libusb_transfer* transfer;
    std::shared_ptr<Device> dev;
};

// Caller holds the lock. Decides the fate of one transfer in flight;
// returns true when it completes now (status and data filled in).
bool complete_if_ready(libusb_transfer* t, SteadyClock::time_point now, SteadyClock::time_point* wake) {
    TransferPriv* p = priv_of(t);
    Device& d = *p->dev;
    *wake = SteadyClock::time_point::max();
    int status = -1;
    if (p->cancelled) {
        status = LIBUSB_TRANSFER_CANCELLED;
    } else if (t->type == LIBUSB_TRANSFER_TYPE_CONTROL) {
        status = p->control_status;
    } else {
        switch (bulk_state(d, now, wake)) {
        case BulkState::NoDevice:
            status = LIBUSB_TRANSFER_NO_DEVICE;
            break;
        case BulkState::Error:
            d.faults &= ~vsensor::kFaultBulkError;  // one failed completion per fault
            status = LIBUSB_TRANSFER_ERROR;
            break;
        case BulkState::Frame:
            t->actual_length = deliver_frame(d, t->buffer, t->length);
            status = (t->flags & LIBUSB_TRANSFER_SHORT_NOT_OK) && t->actual_length < t->length
                         ? LIBUSB_TRANSFER_ERROR
                         : LIBUSB_TRANSFER_COMPLETED;
            break;
        case BulkState::Pending:
            if (p->has_deadline && now >= p->deadline)
                status = LIBUSB_TRANSFER_TIMED_OUT;
            else if (p->has_deadline)
                *wake = std::min(*wake, p->deadline);
            break;
        }
    }
    if (status < 0) return false;
    if (status != LIBUSB_TRANSFER_COMPLETED && t->type != LIBUSB_TRANSFER_TYPE_CONTROL) t->actual_length = 0;
    t->status = static_cast<libusb_transfer_status>(status);
    if (t->type == LIBUSB_TRANSFER_TYPE_BULK) log_bulk(d.pos, status);
    return true;
}

// Caller holds the lock. Takes every transfer of `ctx` that completes now.
std::vector<Ready> take_ready(libusb_context* ctx, SteadyClock::time_point now, SteadyClock::time_point* wake) {
    std::vector<Ready> ready;
    *wake = SteadyClock::time_point::max();
    auto& v = ctx->flying;
    for (auto it = v.begin(); it != v.end();) {
        SteadyClock::time_point w;
        if (complete_if_ready(*it, now, &w)) {
            TransferPriv* p = priv_of(*it);
            p->in_flight = false;
            ++p->dev->delivering;
            ready.push_back({*it, p->dev});
            it = v.erase(it);
        } else {
            *wake = std::min(*wake, w);
            ++it;
        }
    }
    return ready;
}

void run_callbacks(const std::vector<Ready>& ready) {
    for (const Ready& r : ready) {
        libusb_transfer* t = r.transfer;
        const bool free_after = t->flags & LIBUSB_TRANSFER_FREE_TRANSFER;
        t_in_callback = true;
        if (t->callback) t->callback(t);
        t_in_callback = false;
        if (free_after) libusb_free_transfer(t);
    }
    {
        std::lock_guard<std::mutex> lk(bus().m);
        for (const Ready& r : ready) --r.dev->delivering;
    }
    bus().cv.notify_all();
}

SteadyClock::duration to_duration(const struct timeval* tv) {
    if (!tv || tv->tv_sec < 0 || tv->tv_usec < 0) return SteadyClock::duration::zero();
    return std::chrono::seconds(tv->tv_sec) + std::chrono::microseconds(tv->tv_usec);
}

int handle_events(libusb_context* ctx_arg, SteadyClock::duration timeout, int* completed) {
    std::vector<Ready> ready;
    std::deque<HotplugMessage> hotplug;
    libusb_context* ctx = nullptr;
    {
        std::unique_lock<std::mutex> lk(bus().m);
        ctx = resolve_context(ctx_arg);
        if (!ctx) return LIBUSB_ERROR_INVALID_PARAM;
        const auto deadline = SteadyClock::now() + timeout;
        for (;;) {
            if (ctx->dead) return LIBUSB_ERROR_INVALID_PARAM;
            if (completed && *completed) return LIBUSB_SUCCESS;
            if (ctx->interrupted) {
                ctx->interrupted = false;
                return LIBUSB_SUCCESS;
            }
            const auto now = SteadyClock::now();
            SteadyClock::time_point wake;
            ready = take_ready(ctx, now, &wake);
            hotplug.swap(ctx->hotplug_msgs);
            if (!ready.empty() || !hotplug.empty()) break;
            if (now >= deadline) return LIBUSB_SUCCESS;
            bus().cv.wait_until(lk, std::min(deadline, wake));
        }
    }
    deliver_hotplug(ctx, hotplug);
    run_callbacks(ready);
    return LIBUSB_SUCCESS;
}

constexpr auto kDefaultEventTimeout = std::chrono::seconds(60);

}  // namespace

extern "C" {

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* ctx, struct timeval* tv, int* completed) {
    return handle_events(ctx, to_duration(tv), completed);
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context* ctx, struct timeval* tv) {
    return handle_events(ctx, to_duration(tv), nullptr);
}

int LIBUSB_CALL libusb_handle_events(libusb_context* ctx) { return handle_events(ctx, kDefaultEventTimeout, nullptr); }

int LIBUSB_CALL libusb_handle_events_completed(libusb_context* ctx, int* completed) {
    return handle_events(ctx, kDefaultEventTimeout, completed);
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* ctx) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        libusb_context* c = resolve_context(ctx);
        if (!c) return;
        c->interrupted = true;
    }
    bus().cv.notify_all();
}

int LIBUSB_CALL libusb_get_next_timeout(libusb_context*, struct timeval*) { return 0; }

}  // extern "C"
