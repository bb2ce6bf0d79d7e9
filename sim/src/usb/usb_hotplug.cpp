// Hotplug: arrivals and removals on the virtual bus are queued in each
// context and their callbacks run inside libusb_handle_events* on the thread
// handling events, never on the thread that plugged or unplugged.
#include <algorithm>

#include "../descriptors.h"
#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

bool valid_id(int id, int max) { return id == LIBUSB_HOTPLUG_MATCH_ANY || (id >= 0 && id <= max); }

bool matches(const HotplugCallback& cb, libusb_hotplug_event event) {
    const libusb_device_descriptor desc = device_descriptor();
    return (cb.events & event) && (cb.vendor_id == LIBUSB_HOTPLUG_MATCH_ANY || cb.vendor_id == desc.idVendor) &&
           (cb.product_id == LIBUSB_HOTPLUG_MATCH_ANY || cb.product_id == desc.idProduct) &&
           (cb.dev_class == LIBUSB_HOTPLUG_MATCH_ANY || cb.dev_class == desc.bDeviceClass);
}

// Caller holds the lock.
HotplugCallback* find_callback(libusb_context* ctx, libusb_hotplug_callback_handle handle) {
    for (HotplugCallback& cb : ctx->hotplug_cbs)
        if (cb.handle == handle) return &cb;
    return nullptr;
}

void erase_callback_locked(libusb_context* ctx, libusb_hotplug_callback_handle handle) {
    auto& v = ctx->hotplug_cbs;
    v.erase(std::remove_if(v.begin(), v.end(), [handle](const HotplugCallback& cb) { return cb.handle == handle; }),
            v.end());
}

// Calls callback `handle` for one event, if it is still registered and
// matches; a callback answering 1 is deregistered. Returns false when it is
// gone afterwards.
bool call_one(libusb_context* ctx, libusb_hotplug_callback_handle handle, libusb_device* device,
              libusb_hotplug_event event) {
    HotplugCallback cb;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        const HotplugCallback* found = ctx->dead ? nullptr : find_callback(ctx, handle);
        if (!found) return false;
        if (!matches(*found, event)) return true;
        cb = *found;
    }
    if (cb.fn(ctx, device, event, cb.user_data) != 1) return true;
    std::lock_guard<std::mutex> lk(bus().m);
    erase_callback_locked(ctx, handle);
    return false;
}

std::vector<libusb_hotplug_callback_handle> handles_of(libusb_context* ctx) {
    std::lock_guard<std::mutex> lk(bus().m);
    std::vector<libusb_hotplug_callback_handle> v;
    for (const HotplugCallback& cb : ctx->hotplug_cbs) v.push_back(cb.handle);
    return v;
}

}  // namespace

namespace vsensor::detail {

void queue_hotplug(const std::shared_ptr<Device>& d, bool arrived) {
    for (libusb_context* ctx : live_contexts()) {
        if (ctx->hotplug_cbs.empty()) continue;
        ctx->hotplug_msgs.push_back({device_for_locked(ctx, d),
                                     arrived ? LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED : LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT});
    }
    rearm_all_pollfds_locked();  // a removal also ends transfers in flight
}

void deliver_hotplug(libusb_context* ctx, std::vector<HotplugMessage>& msgs) {
    for (const HotplugMessage& msg : msgs)
        for (libusb_hotplug_callback_handle h : handles_of(ctx)) call_one(ctx, h, msg.device, msg.event);
    std::lock_guard<std::mutex> lk(bus().m);
    for (const HotplugMessage& msg : msgs) unref_device_locked(msg.device);
    msgs.clear();
}

void drop_hotplug(libusb_context* ctx) {
    for (const HotplugMessage& msg : ctx->hotplug_msgs) unref_device_locked(msg.device);
    // The exited context object stays; what it holds goes.
    std::vector<HotplugMessage>().swap(ctx->hotplug_msgs);
    std::vector<HotplugCallback>().swap(ctx->hotplug_cbs);
}

}  // namespace vsensor::detail

extern "C" {

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context* ctx, int events, int flags, int vendor_id,
                                                 int product_id, int dev_class, libusb_hotplug_callback_fn cb_fn,
                                                 void* user_data, libusb_hotplug_callback_handle* callback_handle) {
    const int all_events = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
    if (!events || (events & ~all_events) || (flags & ~LIBUSB_HOTPLUG_ENUMERATE) || !valid_id(vendor_id, 0xffff) ||
        !valid_id(product_id, 0xffff) || !valid_id(dev_class, 0xff) || !cb_fn)
        return LIBUSB_ERROR_INVALID_PARAM;
    HotplugCallback cb{0, events, vendor_id, product_id, dev_class, cb_fn, user_data};
    libusb_context* c = nullptr;
    std::vector<libusb_device*> present;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        c = resolve_context(ctx);
        if (!c || c->dead) return LIBUSB_ERROR_INVALID_PARAM;
        cb.handle = c->next_hotplug_handle++;
        c->hotplug_cbs.push_back(cb);
        if (flags & LIBUSB_HOTPLUG_ENUMERATE)
            for (const auto& d : bus().devices)
                if (!d->unplugged) present.push_back(device_for_locked(c, d));
    }
    if (callback_handle) *callback_handle = cb.handle;
    // Devices already there arrive on the registering thread, before the
    // call returns; a callback answering 1 ends the enumeration as well.
    bool registered = true;
    for (libusb_device* dev : present)
        if (registered) registered = call_one(c, cb.handle, dev, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
    std::lock_guard<std::mutex> lk(bus().m);
    for (libusb_device* dev : present) unref_device_locked(dev);
    return LIBUSB_SUCCESS;
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context* ctx, libusb_hotplug_callback_handle handle) {
    std::lock_guard<std::mutex> lk(bus().m);
    if (libusb_context* c = resolve_context(ctx)) erase_callback_locked(c, handle);
}

void* LIBUSB_CALL libusb_hotplug_get_user_data(libusb_context* ctx, libusb_hotplug_callback_handle handle) {
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* c = resolve_context(ctx);
    const HotplugCallback* cb = c ? find_callback(c, handle) : nullptr;
    return cb ? cb->user_data : nullptr;
}

}  // extern "C"
