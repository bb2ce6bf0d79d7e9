// Per-sensor health and the hotplug registration.
#include "efm32com/oru_device_interface_sensor_state.h"

#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_usb.h"
#include "sensors/oru_sensor_record.h"

#include <atomic>
#include <mutex>

using oru_sensor::kMaxOpenSensors;
using oru_sensor::SSensorRecord;
using oru_sensor::sensor_record;

namespace {

// Health and USB device live in each sensor's record (0 stands for usable,
// so that a record starts usable); this file writes them.
// Arrivals: counted by the hotplug callback (event thread), atomic.
std::atomic<uint64_t> g_arrivals{0};
// Caller thread only (bring-up and tear-down).
bool g_bHotplugRegistered = false;
libusb_hotplug_callback_handle g_hotplugHandle = 0;

void mark(unsigned int iDeviceId, int health) {
    SSensorRecord* record = sensor_record(iDeviceId);
    if (record == nullptr) return;
    int expected = 0;
    if (health == kSensorFailed) {
        record->iHealth.compare_exchange_strong(expected, kSensorFailed);
    } else {
        record->iHealth = health;
    }
    oru_sensor::fail_sink(*record);
    // A request of this sensor may be waiting for frames that will not come.
    wake_frame_request();
}

// Runs on the event thread inside libusb's event handling: it only records,
// since no USB I/O may happen here.
int LIBUSB_CALL on_hotplug(libusb_context*, libusb_device* device, libusb_hotplug_event event, void*) {
    if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED) {
        ++g_arrivals;
        return 0;
    }
    for (unsigned int i = 0; i < kMaxOpenSensors; ++i) {
        SSensorRecord& record = *sensor_record(i);
        bool bThisOne = false;
        {
            std::lock_guard<std::mutex> lk(record.deviceLock);
            bThisOne = record.pDevice == device;
        }
        if (bThisOne) {
            mark_sensor_removed(i);
            break;
        }
    }
    return 0;
}

void set_device(SSensorRecord& record, libusb_device* pDevice) {
    std::lock_guard<std::mutex> lk(record.deviceLock);
    record.pDevice = pDevice;
}

}  // namespace

void mark_sensor_usable(unsigned int iDeviceId, libusb_device* pDevice) {
    SSensorRecord* record = sensor_record(iDeviceId);
    if (record == nullptr) return;
    set_device(*record, pDevice);
    forget_request_saturation(*record);  // a sensor brought up has had no request yet
    record->iHealth = 0;
}

void mark_sensor_failed(unsigned int iDeviceId) { mark(iDeviceId, kSensorFailed); }

void mark_sensor_removed(unsigned int iDeviceId) { mark(iDeviceId, kSensorRemoved); }

int sensor_health(unsigned int iDeviceId) {
    SSensorRecord* record = sensor_record(iDeviceId);
    const int health = record != nullptr ? record->iHealth.load() : 0;
    return health == 0 ? kSensorUsable : health;
}

uint64_t sensor_arrivals() { return g_arrivals; }

void register_sensor_hotplug() {
    if (g_bHotplugRegistered || !libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG)) return;
    g_bHotplugRegistered =
        libusb_hotplug_register_callback(
            nullptr,
            static_cast<libusb_hotplug_event>(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT),
            LIBUSB_HOTPLUG_NO_FLAGS, ORU_USB_VENDOR_ID, ORU_USB_PRODUCT_ID, LIBUSB_HOTPLUG_MATCH_ANY, on_hotplug, nullptr,
            &g_hotplugHandle) == LIBUSB_SUCCESS;
}

void deregister_sensor_hotplug() {
    if (!g_bHotplugRegistered) return;
    libusb_hotplug_deregister_callback(nullptr, g_hotplugHandle);
    g_bHotplugRegistered = false;
}

void reset_sensor_health() {
    deregister_sensor_hotplug();
    for (unsigned int i = 0; i < kMaxOpenSensors; ++i) {
        set_device(*sensor_record(i), nullptr);
        sensor_record(i)->iHealth = 0;
    }
    g_arrivals = 0;
}
