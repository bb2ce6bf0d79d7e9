// libusb_init / libusb_exit and the context-wide settings.
#include <algorithm>
#include <cstdarg>

#include "../event_log.h"
#include "../flavour.h"
#include "../schedule.h"
#include "usb_internal.h"

using vsensor::detail::bus;

namespace {
libusb_context* g_default = nullptr;  // guarded by bus().m
}

namespace vsensor::detail {

libusb_context* resolve_context(libusb_context* ctx) { return ctx ? ctx : g_default; }

std::vector<libusb_context*>& live_contexts() {
    static auto* v = new std::vector<libusb_context*>;
    return *v;
}

void drop_flying(libusb_context* ctx, const libusb_device_handle* handle) {
    auto& v = ctx->flying;
    for (auto it = v.begin(); it != v.end();) {
        if (!handle || (*it)->dev_handle == handle) {
            priv_of(*it)->in_flight = false;
            it = v.erase(it);
        } else {
            ++it;
        }
    }
}

}  // namespace vsensor::detail

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** ctx) {
    vsensor::detail::on_libusb_init();
    {
        std::lock_guard<std::mutex> lk(bus().m);
        bus().hotplug_hook = vsensor::detail::queue_hotplug;
        libusb_context* fresh = nullptr;
        if (ctx) {
            *ctx = fresh = new libusb_context;
        } else if (g_default) {
            ++g_default->refs;
        } else {
            g_default = fresh = new libusb_context;
            g_default->is_default = true;
        }
        if (fresh) {
            vsensor::detail::open_pollfd(fresh);
            vsensor::detail::live_contexts().push_back(fresh);
        }
    }
    vsensor::detail::resume_schedule();
    vsensor::detail::log_lifecycle(-1, "init");
    return LIBUSB_SUCCESS;
}

void LIBUSB_CALL libusb_exit(libusb_context* ctx) {
    bool last = false;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        libusb_context* c = vsensor::detail::resolve_context(ctx);
        if (!c || c->dead) return;
        if (--c->refs > 0) {
            // Reference-counted default context: only the last exit ends it.
        } else {
            c->dead = true;
            vsensor::detail::drop_flying(c, nullptr);
            std::vector<libusb_transfer*>().swap(c->flying);
            vsensor::detail::drop_hotplug(c);
            vsensor::detail::close_pollfd(c);
            vsensor::detail::unref_device_locked(c->root_hub);
            c->root_hub = nullptr;
            if (c == g_default) g_default = nullptr;
            auto& live = vsensor::detail::live_contexts();
            live.erase(std::remove(live.begin(), live.end(), c), live.end());
            last = live.empty();
            // The context object itself is kept: a handler thread may still
            // be waiting on it and must see it as gone.
        }
    }
    bus().cv.notify_all();
    // No thread of ours outlives the last context.
    if (last) vsensor::detail::pause_schedule();
    vsensor::detail::log_lifecycle(-1, "exit");
}

void LIBUSB_CALL libusb_set_debug(libusb_context* ctx, int level) {
    std::lock_guard<std::mutex> lk(bus().m);
    if (libusb_context* c = vsensor::detail::resolve_context(ctx)) c->debug = level;
}

int LIBUSB_CALL libusb_set_option(libusb_context* ctx, enum libusb_option option, ...) {
    int result = LIBUSB_SUCCESS;
    va_list ap;
    va_start(ap, option);
    if (option == LIBUSB_OPTION_LOG_LEVEL) {
        const int level = va_arg(ap, int);
        std::lock_guard<std::mutex> lk(bus().m);
        if (libusb_context* c = vsensor::detail::resolve_context(ctx)) c->debug = level;
    } else if (option == LIBUSB_OPTION_USE_USBDK) {
        result = LIBUSB_ERROR_NOT_SUPPORTED;
    } else if (option != LIBUSB_OPTION_NO_DEVICE_DISCOVERY) {
        result = LIBUSB_ERROR_INVALID_PARAM;
    }
    va_end(ap);
    return result;
}

void LIBUSB_CALL libusb_set_log_cb(libusb_context*, libusb_log_cb, int) {}

}  // extern "C"
