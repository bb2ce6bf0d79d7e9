// Per-sensor health and the hotplug registration.
#include "efm32com/oru_device_interface_sensor_state.h"

#include "efm32com/oru_device_interface_stm_frames.h"
#include "stream/oru_frame_stream.h"

#include <array>
#include <atomic>
#include <mutex>

namespace {

constexpr unsigned int kMaxSensors = 256;
constexpr int kSensorVendorId = 0x0483;
constexpr int kSensorProductId = 0x5740;

// g_health[i]: written by bring-up (caller thread) and by the event thread's
// callbacks, read by callers; atomic, no lock. g_devices[i]: the USB device of
// sensor i, written at bring-up and read by the hotplug callback, both under
// g_devicesLock.
// 0 stands for usable, so that the table starts usable without a constructor.
std::atomic<int> g_health[kMaxSensors] = {};
std::mutex g_devicesLock;
std::array<libusb_device*, kMaxSensors> g_devices{};
std::atomic<uint64_t> g_arrivals{0};
// Caller thread only (bring-up and tear-down).
bool g_bHotplugRegistered = false;
libusb_hotplug_callback_handle g_hotplugHandle = 0;

// A request of this sensor may be waiting for frames that will not come.
void wake_request_waiters() {
    { std::lock_guard<std::mutex> lk(exit_cond_lock); }
    exit_cond.notify_all();
}

void mark(unsigned int iDeviceId, int health) {
    if (iDeviceId >= kMaxSensors) return;
    int expected = 0;
    if (health == kSensorFailed) {
        g_health[iDeviceId].compare_exchange_strong(expected, kSensorFailed);
    } else {
        g_health[iDeviceId] = health;
    }
    oru_stream::fail(iDeviceId);
    wake_request_waiters();
}

// Runs on the event thread inside libusb's event handling: it only records,
// since no USB I/O may happen here.
int LIBUSB_CALL on_hotplug(libusb_context*, libusb_device* device, libusb_hotplug_event event, void*) {
    if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED) {
        ++g_arrivals;
        return 0;
    }
    int iRemoved = -1;
    {
        std::lock_guard<std::mutex> lk(g_devicesLock);
        for (unsigned int i = 0; i < kMaxSensors && iRemoved < 0; ++i)
            if (g_devices[i] == device) iRemoved = static_cast<int>(i);
    }
    if (iRemoved >= 0) mark_sensor_removed(static_cast<unsigned int>(iRemoved));
    return 0;
}

}  // namespace

void mark_sensor_usable(unsigned int iDeviceId, libusb_device* pDevice) {
    if (iDeviceId >= kMaxSensors) return;
    {
        std::lock_guard<std::mutex> lk(g_devicesLock);
        g_devices[iDeviceId] = pDevice;
    }
    g_health[iDeviceId] = 0;
}

void mark_sensor_failed(unsigned int iDeviceId) { mark(iDeviceId, kSensorFailed); }

void mark_sensor_removed(unsigned int iDeviceId) { mark(iDeviceId, kSensorRemoved); }

int sensor_health(unsigned int iDeviceId) {
    const int health = iDeviceId < kMaxSensors ? g_health[iDeviceId].load() : 0;
    return health == 0 ? kSensorUsable : health;
}

uint64_t sensor_arrivals() { return g_arrivals; }

void register_sensor_hotplug() {
    if (g_bHotplugRegistered || !libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG)) return;
    g_bHotplugRegistered =
        libusb_hotplug_register_callback(
            nullptr,
            static_cast<libusb_hotplug_event>(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT),
            LIBUSB_HOTPLUG_NO_FLAGS, kSensorVendorId, kSensorProductId, LIBUSB_HOTPLUG_MATCH_ANY, on_hotplug, nullptr,
            &g_hotplugHandle) == LIBUSB_SUCCESS;
}

void deregister_sensor_hotplug() {
    if (!g_bHotplugRegistered) return;
    libusb_hotplug_deregister_callback(nullptr, g_hotplugHandle);
    g_bHotplugRegistered = false;
}

void reset_sensor_health() {
    deregister_sensor_hotplug();
    std::lock_guard<std::mutex> lk(g_devicesLock);
    for (unsigned int i = 0; i < kMaxSensors; ++i) {
        g_health[i] = 0;
        g_devices[i] = nullptr;
    }
    g_arrivals = 0;
}
