// Virtual sensor: a code-defined model of the spectral sensor's firmware on a
// virtual USB bus, reachable through a libusb-1.0 compatible face. This header
// is the test-side control API (configure the bus, inject faults, observe the
// wire and the virtual clock).
#ifndef VSENSOR_VSENSOR_H
#define VSENSOR_VSENSOR_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vsensor {

constexpr uint16_t kVendorId = 0x0483;
constexpr uint16_t kProductId = 0x5740;
constexpr unsigned char kBulkEndpoint = 0x81;
constexpr int kFrameBytes = 2048;
constexpr int kFilters = 1024;

enum class Scene { Dark, FlatWhite, LedLine, BroadLamp };

// Fault modes, per device; combine with |.
enum Fault : unsigned {
    kFaultNone = 0,
    kFaultOpenAccess = 1u << 0,  // libusb_open fails with LIBUSB_ERROR_ACCESS
    kFaultDescriptor = 1u << 1,  // libusb_get_device_descriptor fails
    kFaultClaim = 1u << 2,  // libusb_claim_interface fails (LIBUSB_ERROR_BUSY)
    kFaultNoEcho = 1u << 3,  // every IN control request answers 0
    kFaultControlTimeout = 1u << 4,  // control transfers fail with LIBUSB_ERROR_TIMEOUT
    kFaultStreamStall = 1u << 5,  // bulk transfers never complete
    kFaultBulkError = 1u << 6,  // the next bulk completion has status LIBUSB_TRANSFER_ERROR
    kFaultUnplugOnStream = 1u << 7,  // unplugs itself at its next start-streaming request
};

// 5-byte identity record, encoded so that the library decodes these fields.
struct Identity {
    char lot_char = 'A';
    int lot_id = 4486;
    int wafer_id = 3;
    int x_coord = 12;
    int y_coord = 40;
    int sensor_type = 2;
};
std::vector<uint8_t> encode_identity(const Identity& id);

// Fills `out` (1024 values, 0..4095) for frame number `frame_no` (counted from
// 0 at the device's last start-streaming request).
using FrameSource = std::function<void(uint64_t frame_no, uint16_t* out)>;

struct SensorOptions {
    Identity identity;  // default: x_coord = 12 + bus position
    bool identity_set = false;  // false: derive a distinct default per device
    std::vector<uint8_t> raw_identity;  // if 5 bytes: sent verbatim instead of `identity`
    Scene scene = Scene::FlatWhite;
    double brightness = 1.0;  // scene scale
    double dark_level = 64.0;
    double noise_sigma = 0.0;  // Gaussian noise in DN (0 = none)
    uint32_t noise_seed = 1;
    // Spectral model: a scene text (see optics.h) switches it on at power-up.
    std::string spectral_scene;
    double dn_per_electron = 0.25;  // shot noise of the spectral model at gain x1 (0 = none)
    unsigned faults = kFaultNone;
};

// ---- the bus ------------------------------------------------------------
// Removes every device and clears log and clock. Only call while no transfer
// is pending (between tests).
void reset();
// Appends a sensor to the bus; returns its position on the bus.
int add_sensor(const SensorOptions& opts = {});
// Appends an external LED driver (same ids; accepts request 9 only).
int add_led_driver();
int device_count();
// Configuration from the environment (ORU_VSENSOR_*), as the drop-in library
// does on first use. Returns the number of devices added.
int configure_from_environment();

// ---- per-device control (index = bus position) --------------------------
void set_faults(int dev, unsigned faults);
void set_scene(int dev, Scene scene, double brightness = 1.0);
void set_frame_source(int dev, FrameSource src);  // replaces the optical model
void set_constant_frame(int dev, uint16_t value);
void set_pattern(int dev, const std::vector<uint16_t>& per_filter);  // 1024 values
void use_frame_counter(int dev);  // every filter = frame_no % 4096
void use_optical_model(int dev);
void set_realtime(bool on);  // pace frames in real time (default off)
// Unplug: later transfers fail with LIBUSB_ERROR_NO_DEVICE, a pending bulk
// transfer completes with LIBUSB_TRANSFER_NO_DEVICE and contexts with hotplug
// callbacks see DEVICE_LEFT. Unplugging twice does nothing more.
void unplug(int dev);
// Plugs the sensor at `dev` back (unplugging it first if needed): same
// identity, scene, options and frame source, faults cleared, firmware state
// as after power-up. It is a new libusb_device (new device address, same bus
// and port); the old one and its handles stay gone. Contexts with hotplug
// callbacks see DEVICE_LEFT (if it was still plugged) and DEVICE_ARRIVED.
// The test API's `dev` then refers to the new device.
void replug(int dev);

// ---- inspection ---------------------------------------------------------
uint8_t register_value(int dev, int code);  // last byte written by code
void set_register_value(int dev, int code, uint8_t v);
int shutter_speed(int dev);  // (reg37 << 8) | reg5
bool streaming(int dev);
uint64_t frames_sent(int dev);  // bulk frames completed, total
int led_state_word(int dev);  // last wValue of request 9, -1 if none
bool is_open(int dev);  // a handle is open on it
bool is_claimed(int dev);
// Encodes one frame the way the firmware sends it.
std::vector<uint8_t> encode_frame(const uint16_t* values1024);

// ---- observation --------------------------------------------------------
enum class EventKind { Control, Bulk, Pause, Lifecycle };
struct Event {
    EventKind kind;
    int dev = -1;  // bus position (-1 for pauses)
    uint8_t bmRequestType = 0;
    uint8_t bRequest = 0;
    uint16_t wValue = 0, wIndex = 0, wLength = 0;
    unsigned timeout = 0;  // ms
    int status = 0;  // bulk: transfer status; control/lifecycle: the call's result
    uint64_t pause_us = 0;  // pause
    std::string what;  // lifecycle: "open", "claim 0", "release 0", "close", "set_configuration -1", "exit", ...
    uint64_t at_us = 0;  // virtual time when it happened
    uint64_t count = 1;  // bulk: completions merged into this event (see below)
};
// Long streaming runs stay readable: per device and streaming run, the first
// kBulkEventsPerRun successful completions are logged one by one, the rest are
// counted in one further Bulk event (its `count`). Failed completions are
// always logged one by one.
constexpr int kBulkEventsPerRun = 8;
std::vector<Event> events();
void clear_events();
// Compact text of the control requests and pauses, joined by ", ":
//   0xA1 requests: "cmd 34 value 4"      0x21 requests: "out 70 value 0 index 1"
//   other request types: "req 0xC0 5 value 0 index 0 length 1"
//   pauses: "pause 5 ms" (or "pause 1500 us" when not whole ms)
// dev >= 0 keeps only that device's requests (pauses are always kept);
// with_lifecycle adds lifecycle events as "dev0 open" etc.
std::string transcript(int dev = -1, bool with_lifecycle = false);

// ---- virtual clock ------------------------------------------------------
// Tests link the clock library, whose usleep() records a Pause event and
// advances virtual time instead of sleeping.
uint64_t now_us();
uint64_t total_pause_us();

}  // namespace vsensor

#include "vsensor/optics.h"

#endif  // VSENSOR_VSENSOR_H
