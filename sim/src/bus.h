// The virtual bus: the devices in bus order and the one lock that guards them
// and everything of the libusb face.
#ifndef VSENSOR_BUS_H
#define VSENSOR_BUS_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include "vsensor/vsensor.h"

namespace vsensor::detail {

using SteadyClock = std::chrono::steady_clock;

enum class Source { Model, Constant, Pattern, Counter, Callback, Spectral };

struct Device {
    int pos = 0;
    int address = 0;  // USB device address; a replugged sensor gets a new one
    bool root_hub = false;  // the hub every device hangs off (pos -1, address 1)
    bool led_driver = false;
    SensorOptions opts;
    std::vector<uint8_t> identity_bytes;  // the 5 bytes answered to code 1
    std::vector<double> response;  // scene response per filter, peak 1

    std::array<uint8_t, 256> regs{};  // last byte written, by write code
    bool streaming = false;
    uint64_t frame_no = 0;  // next frame number of this run
    uint32_t run_no = 0;  // start-streaming requests so far
    uint64_t frames_sent = 0;
    int led_state = -1;
    unsigned faults = kFaultNone;
    bool unplugged = false;

    int open_handles = 0;
    const void* claimed_by = nullptr;  // handle holding interface 0
    int configuration = 1;

    Source source = Source::Model;
    uint16_t constant = 0;
    std::vector<uint16_t> pattern;
    FrameSource callback;
    std::mt19937 rng;

    // Spectral model (Source::Spectral); written under Bus::m like the rest.
    std::shared_ptr<const std::vector<double>> truth;  // true_response of its ID, made on first use
    std::vector<double> scene_spectrum;  // what it looks at, before LED driver light
    uint64_t scene_gen = 0;  // bumped at each scene change
    std::vector<double> lit;  // DN per ms per filter for scene and LEDs as last computed
    uint64_t lit_gen = 0;  // scene_gen and LED driver word `lit` was computed for
    int lit_driver_word = -2;

    SteadyClock::time_point next_due{};  // real-time pacing: next frame ready at
    int delivering = 0;  // completions taken but whose callback still runs
};

// Called under Bus::m when a device leaves or arrives, so that the libusb
// face can queue hotplug events for its event handlers.
using HotplugHook = void (*)(const std::shared_ptr<Device>& d, bool arrived);

struct Bus {
    std::mutex m;
    std::condition_variable cv;
    std::vector<std::shared_ptr<Device>> devices;
    bool realtime = false;
    int next_address = 2;  // 1 is the root hub
    HotplugHook hotplug_hook = nullptr;
    std::shared_ptr<Device> root_hub;
};

// Never destroyed: an event thread may still be waiting at process exit.
Bus& bus();

// Caller holds bus().m. Null when `dev` is not a bus position.
Device* device_at(int dev);
// Throws std::out_of_range for a bad position (test API misuse).
Device& checked_device(int dev);
// Caller holds bus().m. Takes the device off the bus (once): transfers fail
// with NO_DEVICE from now on and the hotplug hook hears of it.
void unplug_locked(Device& d);

}  // namespace vsensor::detail

#endif
