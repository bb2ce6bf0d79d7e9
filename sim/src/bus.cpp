#include "bus.h"

#include <stdexcept>
#include <string>

#include "event_log.h"
#include "frame_model.h"
#include "optics/optical_frame.h"
#include "schedule.h"
#include "virtual_clock.h"

namespace vsensor {
namespace detail {

Bus& bus() {
    static Bus* b = [] {
        auto* fresh = new Bus;
        fresh->root_hub = std::make_shared<Device>();
        fresh->root_hub->pos = -1;
        fresh->root_hub->address = 1;
        fresh->root_hub->root_hub = true;
        return fresh;
    }();
    return *b;
}

Device* device_at(int dev) {
    Bus& b = bus();
    if (dev < 0 || dev >= static_cast<int>(b.devices.size())) return nullptr;
    return b.devices[dev].get();
}

Device& checked_device(int dev) {
    Device* d = device_at(dev);
    if (!d) throw std::out_of_range("vsensor: no device at bus position " + std::to_string(dev));
    return *d;
}

void unplug_locked(Device& d) {
    if (d.unplugged) return;
    d.unplugged = true;
    d.streaming = false;
    d.claimed_by = nullptr;
    log_lifecycle(d.pos, "unplug");
    Bus& b = bus();
    if (b.hotplug_hook && device_at(d.pos) == &d) b.hotplug_hook(b.devices[static_cast<size_t>(d.pos)], false);
}

namespace {

// Caller holds bus().m. A device as it comes out of power-up at `pos`.
std::shared_ptr<Device> new_device(int pos, const SensorOptions& opts, bool led_driver) {
    auto d = std::make_shared<Device>();
    Bus& b = bus();
    d->pos = pos;
    d->address = b.next_address;
    b.next_address = b.next_address >= 127 ? 2 : b.next_address + 1;
    d->led_driver = led_driver;
    if (led_driver) return d;
    d->opts = opts;
    if (!opts.identity_set) {
        d->opts.identity = Identity{};
        d->opts.identity.x_coord = 12 + pos;
        d->opts.identity_set = true;  // a replugged sensor keeps it
    }
    d->identity_bytes = opts.raw_identity.size() == 5 ? opts.raw_identity : encode_identity(d->opts.identity);
    d->response = scene_response(d->opts.scene);
    d->faults = opts.faults;
    d->rng.seed(opts.noise_seed);
    d->next_due = SteadyClock::now();
    if (!opts.spectral_scene.empty()) switch_to_spectral(*d, opts.spectral_scene, nullptr);
    return d;
}

}  // namespace

}  // namespace detail

using detail::bus;
using detail::checked_device;

void reset() {
    detail::clear_schedule();
    {
        std::lock_guard<std::mutex> lk(bus().m);
        bus().devices.clear();
        bus().next_address = 2;
    }
    bus().cv.notify_all();
    detail::clear_log();
    detail::reset_clock();
}

int add_sensor(const SensorOptions& opts) {
    std::lock_guard<std::mutex> lk(bus().m);
    const int pos = static_cast<int>(bus().devices.size());
    bus().devices.push_back(detail::new_device(pos, opts, false));
    return pos;
}

int add_led_driver() {
    std::lock_guard<std::mutex> lk(bus().m);
    const int pos = static_cast<int>(bus().devices.size());
    bus().devices.push_back(detail::new_device(pos, {}, true));
    return pos;
}

int device_count() {
    std::lock_guard<std::mutex> lk(bus().m);
    return static_cast<int>(bus().devices.size());
}

void set_faults(int dev, unsigned faults) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        checked_device(dev).faults = faults;
    }
    bus().cv.notify_all();
}

void set_scene(int dev, Scene scene, double brightness) {
    std::lock_guard<std::mutex> lk(bus().m);
    detail::Device& d = checked_device(dev);
    d.opts.scene = scene;
    d.opts.brightness = brightness;
    d.response = detail::scene_response(scene);
}

bool set_spectral_scene(int dev, const std::string& text, std::string* error) {
    std::lock_guard<std::mutex> lk(bus().m);
    return detail::switch_to_spectral(checked_device(dev), text, error);
}

void set_frame_source(int dev, FrameSource src) {
    std::lock_guard<std::mutex> lk(bus().m);
    detail::Device& d = checked_device(dev);
    d.callback = std::move(src);
    d.source = detail::Source::Callback;
}

void set_constant_frame(int dev, uint16_t value) {
    std::lock_guard<std::mutex> lk(bus().m);
    detail::Device& d = checked_device(dev);
    d.constant = value;
    d.source = detail::Source::Constant;
}

void set_pattern(int dev, const std::vector<uint16_t>& per_filter) {
    std::lock_guard<std::mutex> lk(bus().m);
    detail::Device& d = checked_device(dev);
    d.pattern = per_filter;
    d.pattern.resize(kFilters, 0);
    d.source = detail::Source::Pattern;
}

void use_frame_counter(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    checked_device(dev).source = detail::Source::Counter;
}

void use_optical_model(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    checked_device(dev).source = detail::Source::Model;
}

void set_realtime(bool on) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        bus().realtime = on;
        for (auto& d : bus().devices) d->next_due = detail::SteadyClock::now();
    }
    bus().cv.notify_all();
}

void unplug(int dev) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        detail::unplug_locked(checked_device(dev));
    }
    bus().cv.notify_all();
}

void replug(int dev) {
    {
        std::lock_guard<std::mutex> lk(bus().m);
        detail::Device& old = checked_device(dev);
        detail::unplug_locked(old);
        SensorOptions opts = old.opts;
        opts.faults = kFaultNone;
        auto fresh = detail::new_device(dev, opts, old.led_driver);
        // The frame source is the user's choice of what the sensor sees.
        fresh->source = old.source;
        fresh->constant = old.constant;
        fresh->pattern = old.pattern;
        fresh->callback = old.callback;
        fresh->truth = old.truth;
        fresh->scene_spectrum = old.scene_spectrum;
        bus().devices[static_cast<size_t>(dev)] = fresh;
        detail::log_lifecycle(dev, "replug");
        if (bus().hotplug_hook) bus().hotplug_hook(fresh, true);
    }
    bus().cv.notify_all();
}

uint8_t register_value(int dev, int code) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).regs.at(static_cast<size_t>(code));
}

void set_register_value(int dev, int code, uint8_t v) {
    std::lock_guard<std::mutex> lk(bus().m);
    checked_device(dev).regs.at(static_cast<size_t>(code)) = v;
}

int shutter_speed(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return detail::shutter_of(checked_device(dev));
}

bool streaming(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).streaming;
}

uint64_t frames_sent(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).frames_sent;
}

int led_state_word(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).led_state;
}

bool is_open(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).open_handles > 0;
}

bool is_claimed(int dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    return checked_device(dev).claimed_by != nullptr;
}

}  // namespace vsensor
