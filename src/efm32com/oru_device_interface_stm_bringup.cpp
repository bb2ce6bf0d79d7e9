// Bring-up and tear-down of one sensor: connection, initial settings, the
// event thread and bulk transfer, the LED driver, and their release.
#include "efm32com/oru_device_interface_stm_bringup.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_onboard_processings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_init.h"
#include "efm32com/oru_device_interface_usb.h"
#include "oru_base_exception.h"

#include <unistd.h>

#include <cstdlib>

// Caller thread only.
std::map<int, bool> allocTransferBulkMap;
int maxNumOfDevice = 256;
int asyncTransferInitialized = 0;  // the event thread was started once; never reset
std::thread usbEventLoop_thread;

namespace {

constexpr unsigned char kStartupAdcRange = 132;
constexpr unsigned char kStartupAdcGain = 1;
constexpr unsigned char kStartupAdcRes = 0;
constexpr int kBulkFrameBytes = ORU_FRAME_BYTES;
constexpr useconds_t kAfterJoinPauseUs = 10000;

// Never set by the library; released at tear-down all the same.
unsigned char* framebuf[1] = {nullptr};

void join_event_thread() {
    if (!usbEventLoop_thread.joinable()) return;
    // Wake the loop out of its 1-second wait rather than sit it out.
    libusb_interrupt_event_handler(nullptr);
    usbEventLoop_thread.join();
}

// A program that ends without tear-down must not meet a joinable std::thread
// in static destruction (that would terminate it).
void end_event_thread_at_exit() {
    request_exit(1);
    join_event_thread();
}

void start_event_thread() {
    static bool bAtExitRegistered = false;
    if (usbEventLoop_thread.joinable()) usbEventLoop_thread.join();  // its loop has ended
    start_usb_event_loop(usbEventLoop_thread);
    if (!bAtExitRegistered) {
        std::atexit(end_event_thread_at_exit);
        bAtExitRegistered = true;
    }
}

int claimed_interface_number(libusb_device_handle* handle) {
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(libusb_get_device(handle), 0, &config) != 0) return 0;
    int iInterface = -1;
    if (config->bNumInterfaces > 0) iInterface = config->interface[0].altsetting[0].bInterfaceNumber;
    libusb_free_config_descriptor(config);
    return iInterface;
}

void close_sensor_handle(libusb_device_handle* handle) {
    if (handle == nullptr) return;
    libusb_release_interface(handle, claimed_interface_number(handle));
    libusb_close(handle);
}

}  // namespace

int initialize_device_interface(unsigned int iDeviceId) {
    int iResult = lu_ec_success;
    initialize_ae_module("./config/intensity_LUT.csv", "./config/ss_LUT.csv");

    bool bConnected = connect_device(iDeviceId) == 1;
    if (bConnected) {
        initialize_sensor(iDeviceId);
        start_sensor(iDeviceId);
        set_adc_setting_values(kStartupAdcRange, kStartupAdcGain, kStartupAdcRes, iDeviceId);
        set_frame_average_count_for_on_board_processing(0, iDeviceId);
        get_frame_average_count_for_on_board_processing(iDeviceId);
    } else {
        iResult = lu_ec_fail_to_initialize_device;
    }

    if (libusb_device_handle* handle = find_device_handle(iDeviceId); bConnected && handle != nullptr)
        mark_sensor_usable(iDeviceId, libusb_get_device(handle));

    // One event thread serves all sensors (one libusb context); the first
    // sensor brought up starts it, whatever its index.
    if (!usb_event_loop_running()) {
        register_sensor_hotplug();
        start_event_thread();
        asyncTransferInitialized = 1;
        for (int i = 0; i < maxNumOfDevice; ++i) allocTransferBulkMap.insert({i, false});
    }

    const int iKey = static_cast<int>(iDeviceId);
    if (bConnected && !allocTransferBulkMap.empty() && find_device_handle(iDeviceId) != nullptr) {
        auto it = allocTransferBulkMap.find(iKey);
        if (it == allocTransferBulkMap.end() || !it->second) {
            alloc_transfer_bulk_l(0, kBulkFrameBytes, nullptr, iDeviceId);
            allocTransferBulkMap[iKey] = true;
        }
    }

    connect_LED_device();

    // The sensor starts idle.
    if (bConnected && !allocTransferBulkMap.empty()) {
        acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    }
    return iResult;
}

int close_device_interface(unsigned int iDeviceId) {
    // disconnect_device forgets the handle without closing it; keep it here.
    libusb_device_handle* handle = find_device_handle(iDeviceId);

    stop_sensor(iDeviceId);
    disconnect_device(iDeviceId);
    is_led_driver_close();
    // The handle is already forgotten, so these stop commands find none and
    // send nothing; only their pauses remain. Kept in this order all the same.
    stop_frame_streaming(iDeviceId);

    release_transfer_bulk(iDeviceId);
    close_sensor_handle(handle);
    auto it = allocTransferBulkMap.find(static_cast<int>(iDeviceId));
    if (it != allocTransferBulkMap.end()) it->second = false;

    request_exit(1);
    join_event_thread();
    deregister_sensor_hotplug();
    usleep(kAfterJoinPauseUs);

    if (framebuf[0] != nullptr) {
        free(framebuf[0]);
        framebuf[0] = nullptr;
    }
    return 1;
}
