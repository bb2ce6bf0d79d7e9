// libusb's event lock and event waiters, for clients that run their own event
// handling (libusb_lock_events + libusb_handle_events_locked) or wait for
// another thread's.
#include <chrono>

#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

libusb_context* context_of(libusb_context* ctx) {
    std::lock_guard<std::mutex> lk(bus().m);
    return resolve_context(ctx);
}

}  // namespace

namespace vsensor::detail {

void signal_event_waiters(libusb_context* ctx) {
    { std::lock_guard<std::mutex> lk(ctx->waiters_lock); }
    ctx->waiters_cond.notify_all();
}

}  // namespace vsensor::detail

extern "C" {

int LIBUSB_CALL libusb_try_lock_events(libusb_context* ctx) {
    libusb_context* c = context_of(ctx);
    if (!c || !c->events_lock.try_lock()) return 1;
    c->events_locked = true;
    return 0;
}

void LIBUSB_CALL libusb_lock_events(libusb_context* ctx) {
    if (libusb_context* c = context_of(ctx)) {
        c->events_lock.lock();
        c->events_locked = true;
    }
}

void LIBUSB_CALL libusb_unlock_events(libusb_context* ctx) {
    libusb_context* c = context_of(ctx);
    if (!c) return;
    c->events_locked = false;
    c->events_lock.unlock();
    signal_event_waiters(c);  // one of them may take over event handling
}

int LIBUSB_CALL libusb_event_handling_ok(libusb_context* ctx) {
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* c = resolve_context(ctx);
    return c && !c->dead ? 1 : 0;
}

int LIBUSB_CALL libusb_event_handler_active(libusb_context* ctx) {
    libusb_context* c = context_of(ctx);
    return c && c->events_locked ? 1 : 0;
}

void LIBUSB_CALL libusb_lock_event_waiters(libusb_context* ctx) {
    if (libusb_context* c = context_of(ctx)) c->waiters_lock.lock();
}

void LIBUSB_CALL libusb_unlock_event_waiters(libusb_context* ctx) {
    if (libusb_context* c = context_of(ctx)) c->waiters_lock.unlock();
}

// Caller holds the waiters lock. 0 when woken (a completion, or the event
// handler let go), 1 when `tv` passed; NULL waits without limit.
int LIBUSB_CALL libusb_wait_for_event(libusb_context* ctx, struct timeval* tv) {
    libusb_context* c = context_of(ctx);
    if (!c) return LIBUSB_ERROR_INVALID_PARAM;
    if (tv && (tv->tv_sec < 0 || tv->tv_usec < 0 || tv->tv_usec >= 1000000)) return LIBUSB_ERROR_INVALID_PARAM;
    std::unique_lock<std::mutex> lk(c->waiters_lock, std::adopt_lock);
    int r = 0;
    if (!tv) {
        c->waiters_cond.wait(lk);
    } else {
        const auto timeout = std::chrono::seconds(tv->tv_sec) + std::chrono::microseconds(tv->tv_usec);
        r = c->waiters_cond.wait_for(lk, timeout) == std::cv_status::timeout ? 1 : 0;
    }
    lk.release();  // the caller still holds it
    return r;
}

}  // extern "C"
