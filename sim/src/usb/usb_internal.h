// The objects behind libusb's opaque handles, and the helpers the libusb
// face's files share. Everything here is guarded by bus().m.
#ifndef VSENSOR_USB_INTERNAL_H
#define VSENSOR_USB_INTERNAL_H

#include <libusb.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <vector>

#include "../bus.h"

namespace vsensor::detail {

struct HotplugCallback {
    libusb_hotplug_callback_handle handle = 0;
    int events = 0;
    int vendor_id = LIBUSB_HOTPLUG_MATCH_ANY;
    int product_id = LIBUSB_HOTPLUG_MATCH_ANY;
    int dev_class = LIBUSB_HOTPLUG_MATCH_ANY;
    libusb_hotplug_callback_fn fn = nullptr;
    void* user_data = nullptr;
};

// An arrival or removal waiting for the context's event handler; holds a
// reference on `device`.
struct HotplugMessage {
    libusb_device* device = nullptr;
    libusb_hotplug_event event = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
};

}  // namespace vsensor::detail

struct libusb_context {
    int refs = 1;
    bool is_default = false;
    bool dead = false;  // exited; kept so that late users fail cleanly
    bool interrupted = false;  // libusb_interrupt_event_handler pending
    int debug = 0;
    std::vector<libusb_transfer*> flying;
    std::map<const vsensor::detail::Device*, libusb_device*> devices;
    std::vector<vsensor::detail::HotplugCallback> hotplug_cbs;
    std::vector<vsensor::detail::HotplugMessage> hotplug_msgs;
    libusb_hotplug_callback_handle next_hotplug_handle = 1;
    libusb_device* root_hub = nullptr;  // made by libusb_get_parent, one reference held

    // libusb's event lock and event waiters; not guarded by bus().m.
    std::mutex events_lock;
    std::atomic<bool> events_locked{false};
    std::mutex waiters_lock;
    std::condition_variable waiters_cond;

    // A timerfd that is readable while events are pending (libusb_get_pollfds).
    int pollfd = -1;
    bool pollfd_used = false;  // re-armed only once a client has asked for it
    libusb_pollfd_removed_cb pollfd_removed = nullptr;
    void* pollfd_user_data = nullptr;
};

struct libusb_device {
    libusb_context* ctx = nullptr;
    std::shared_ptr<vsensor::detail::Device> dev;
    int refs = 1;
};

struct libusb_device_handle {
    libusb_device* device = nullptr;
    bool auto_detach = false;
};

namespace vsensor::detail {

struct TransferPriv {
    libusb_context* ctx = nullptr;
    std::shared_ptr<Device> dev;
    bool in_flight = false;
    bool cancelled = false;
    int control_status = LIBUSB_TRANSFER_COMPLETED;  // async control: decided at submit
    bool has_deadline = false;
    SteadyClock::time_point deadline{};
    uint32_t stream_id = 0;
};

TransferPriv* priv_of(libusb_transfer* t);

// The context a NULL argument means; null when there is none.
libusb_context* resolve_context(libusb_context* ctx);
void unref_device_locked(libusb_device* d);
// The context's libusb_device for `d`, with a new reference (created on first use).
libusb_device* device_for_locked(libusb_context* ctx, const std::shared_ptr<Device>& d);
// Contexts initialised and not yet exited.
std::vector<libusb_context*>& live_contexts();
// Bus hook: queues the event in every live context that has callbacks.
void queue_hotplug(const std::shared_ptr<Device>& d, bool arrived);
// Runs the callbacks for `msgs` on this thread (lock not held) and drops
// their device references.
void deliver_hotplug(libusb_context* ctx, std::vector<HotplugMessage>& msgs);
// Caller holds the lock: forgets callbacks and queued events of a dying context.
void drop_hotplug(libusb_context* ctx);

// Caller holds the lock. Arms the context's pollfd for the moment events are
// pending (at once, at the next frame or timeout, or never).
void rearm_pollfd_locked(libusb_context* ctx);
void rearm_all_pollfds_locked();
// The timerfd for a new context; closes it (telling the notifier) at exit.
void open_pollfd(libusb_context* ctx);
void close_pollfd(libusb_context* ctx);
// Wakes threads in libusb_wait_for_event.
void signal_event_waiters(libusb_context* ctx);
// Drops transfers of `ctx` (all, or only those on `handle`) that are in flight:
// they will never complete, as with libusb when their handle or context goes.
void drop_flying(libusb_context* ctx, const libusb_device_handle* handle);

// Set while an async callback runs on this thread.
extern thread_local bool t_in_callback;

// State of endpoint 0x81 of a device for the next frame.
enum class BulkState { Pending, Frame, Error, NoDevice };
// `wake` receives when a pending transfer should be looked at again.
BulkState bulk_state(const Device& d, SteadyClock::time_point now, SteadyClock::time_point* wake);
// Fills `buf` with the next frame (at most `length` bytes); returns the bytes.
int deliver_frame(Device& d, unsigned char* buf, int length);
// Waits (releasing the lock) until no completion of `d` is being delivered,
// so that streaming switches never race a frame already taken.
void wait_deliveries(std::unique_lock<std::mutex>& lk, Device& d);

}  // namespace vsensor::detail

#endif
