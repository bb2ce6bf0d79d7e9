// File descriptors for clients that poll themselves: each context has one
// timerfd, readable (POLLIN) while libusb_handle_events* has something to do.
// It carries the timeouts as well, so libusb_pollfds_handle_timeouts is 1.
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdlib>

#include "usb_internal.h"

using namespace vsensor::detail;

namespace vsensor::detail {

void open_pollfd(libusb_context* ctx) { ctx->pollfd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC); }

void close_pollfd(libusb_context* ctx) {
    if (ctx->pollfd < 0) return;
    if (ctx->pollfd_removed) ctx->pollfd_removed(ctx->pollfd, ctx->pollfd_user_data);
    close(ctx->pollfd);
    ctx->pollfd = -1;
}

}  // namespace vsensor::detail

extern "C" {

// One allocation: the NULL-terminated pointer array, then the entries.
const struct libusb_pollfd** LIBUSB_CALL libusb_get_pollfds(libusb_context* ctx) {
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* c = resolve_context(ctx);
    if (!c || c->pollfd < 0) return nullptr;
    void* mem = std::calloc(1, 2 * sizeof(libusb_pollfd*) + sizeof(libusb_pollfd));
    if (!mem) return nullptr;
    auto** list = static_cast<const libusb_pollfd**>(mem);
    auto* entry = reinterpret_cast<libusb_pollfd*>(list + 2);
    entry->fd = c->pollfd;
    entry->events = POLLIN;
    list[0] = entry;
    c->pollfd_used = true;
    rearm_pollfd_locked(c);
    return list;
}

void LIBUSB_CALL libusb_free_pollfds(const struct libusb_pollfd** pollfds) { std::free(pollfds); }

// The one descriptor exists from libusb_init on, so `added` is never called;
// `removed` hears of it at libusb_exit.
void LIBUSB_CALL libusb_set_pollfd_notifiers(libusb_context* ctx, libusb_pollfd_added_cb,
                                             libusb_pollfd_removed_cb removed_cb, void* user_data) {
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* c = resolve_context(ctx);
    if (!c) return;
    c->pollfd_removed = removed_cb;
    c->pollfd_user_data = user_data;
}

int LIBUSB_CALL libusb_pollfds_handle_timeouts(libusb_context*) { return 1; }

}  // extern "C"
