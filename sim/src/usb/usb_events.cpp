// Event handling: completions and hotplug events are delivered, and their
// callbacks run, inside libusb_handle_events* on the calling thread. Waiting
// blocks on the bus's condition variable; nothing spins.
#include <algorithm>
#include <sys/time.h>
#include <sys/timerfd.h>

#include "../event_log.h"
#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

struct Ready {
    libusb_transfer* transfer;
    std::shared_ptr<Device> dev;
};

// Caller holds the lock. Decides the fate of one transfer in flight;
// returns true when it completes now (status and data filled in, unless
// `peek` only asks).
bool complete_if_ready(libusb_transfer* t, SteadyClock::time_point now, SteadyClock::time_point* wake,
                       bool peek = false) {
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
            if (peek) return true;
            d.faults &= ~vsensor::kFaultBulkError;  // one failed completion per fault
            status = LIBUSB_TRANSFER_ERROR;
            break;
        case BulkState::Frame:
            if (peek) return true;
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
    if (status < 0 || peek) return status >= 0;
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

void run_callbacks(libusb_context* ctx, const std::vector<Ready>& ready) {
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
    if (!ready.empty()) signal_event_waiters(ctx);
}

SteadyClock::duration to_duration(const struct timeval* tv) {
    if (!tv || tv->tv_sec < 0 || tv->tv_usec < 0) return SteadyClock::duration::zero();
    return std::chrono::seconds(tv->tv_sec) + std::chrono::microseconds(tv->tv_usec);
}

// The event handler's part: caller holds the context's event lock.
int handle_locked(libusb_context* ctx, SteadyClock::time_point deadline, int* completed) {
    std::vector<Ready> ready;
    std::vector<HotplugMessage> hotplug;
    {
        std::unique_lock<std::mutex> lk(bus().m);
        for (;;) {
            if (ctx->dead) return LIBUSB_ERROR_INVALID_PARAM;
            if (completed && *completed) break;
            if (ctx->interrupted) {
                ctx->interrupted = false;
                break;
            }
            const auto now = SteadyClock::now();
            SteadyClock::time_point wake;
            ready = take_ready(ctx, now, &wake);
            hotplug.swap(ctx->hotplug_msgs);
            if (!ready.empty() || !hotplug.empty() || now >= deadline) break;
            bus().cv.wait_until(lk, std::min(deadline, wake));
        }
        rearm_pollfd_locked(ctx);
    }
    deliver_hotplug(ctx, hotplug);
    run_callbacks(ctx, ready);
    return LIBUSB_SUCCESS;
}

// As libusb: the thread that gets the event lock handles events; the others
// wait until it is done (or a completion is signalled), then return.
int handle_events(libusb_context* ctx_arg, SteadyClock::duration timeout, int* completed) {
    libusb_context* ctx = nullptr;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        ctx = resolve_context(ctx_arg);
        if (!ctx) return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto deadline = SteadyClock::now() + timeout;
    for (;;) {
        if (libusb_try_lock_events(ctx) == 0) {
            const int r = completed && *completed ? LIBUSB_SUCCESS : handle_locked(ctx, deadline, completed);
            libusb_unlock_events(ctx);
            return r;
        }
        std::unique_lock<std::mutex> lk(ctx->waiters_lock);
        if (completed && *completed) return LIBUSB_SUCCESS;
        if (!ctx->events_locked) continue;  // the handler just left: try again
        ctx->waiters_cond.wait_until(lk, deadline);
        return LIBUSB_SUCCESS;
    }
}

SteadyClock::time_point deadline_of(const struct timeval* tv) { return SteadyClock::now() + to_duration(tv); }

constexpr auto kDefaultEventTimeout = std::chrono::seconds(60);

}  // namespace

namespace vsensor::detail {

void rearm_pollfd_locked(libusb_context* ctx) {
    if (!ctx->pollfd_used || ctx->pollfd < 0) return;
    const auto now = SteadyClock::now();
    bool pending = ctx->interrupted || !ctx->hotplug_msgs.empty();
    SteadyClock::time_point wake = SteadyClock::time_point::max();
    for (libusb_transfer* t : ctx->flying) {
        SteadyClock::time_point w;
        pending = pending || complete_if_ready(t, now, &w, true);
        wake = std::min(wake, w);
    }
    itimerspec when{};
    if (pending) {
        when.it_value.tv_nsec = 1;  // expires at once: readable now
    } else if (wake != SteadyClock::time_point::max()) {
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(wake.time_since_epoch()).count();
        when.it_value.tv_sec = static_cast<time_t>(ns / 1000000000);
        when.it_value.tv_nsec = std::max<long>(1, static_cast<long>(ns % 1000000000));
    }
    // Re-arming also clears a past expiry, so the fd reads as "pending" only.
    timerfd_settime(ctx->pollfd, pending ? 0 : TFD_TIMER_ABSTIME, &when, nullptr);
}

void rearm_all_pollfds_locked() {
    for (libusb_context* ctx : live_contexts()) rearm_pollfd_locked(ctx);
}

}  // namespace vsensor::detail

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
        rearm_pollfd_locked(c);
    }
    bus().cv.notify_all();
}

int LIBUSB_CALL libusb_get_next_timeout(libusb_context*, struct timeval*) { return 0; }

int LIBUSB_CALL libusb_handle_events_locked(libusb_context* ctx, struct timeval* tv) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        ctx = resolve_context(ctx);
        if (!ctx) return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle_locked(ctx, deadline_of(tv), nullptr);
}

}  // extern "C"
