// Bring-up and tear-down of one sensor: connection, initial settings, the
// event thread and bulk transfer, the LED driver, and their release.
#include "efm32com/oru_device_interface_stm_bringup.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_onboard_processings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_stm_bulk.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_stm_init.h"
#include "efm32com/oru_device_interface_usb.h"
#include "oru_base_exception.h"

#include <unistd.h>

#include <cstdlib>

// Caller thread only; read, never written, by the library.
int maxNumOfDevice = 256;

namespace {

constexpr unsigned char kStartupAdcRange = 132;
constexpr unsigned char kStartupAdcGain = 1;
constexpr unsigned char kStartupAdcRes = 0;
constexpr int kBulkFrameBytes = ORU_FRAME_BYTES;
constexpr useconds_t kAfterJoinPauseUs = 10000;

// Never set by the library; released at tear-down all the same.
unsigned char* framebuf[1] = {nullptr};

void close_sensor_handle(libusb_device_handle* handle) {
    if (handle == nullptr) return;
    // A connection whose descriptor could not be read never claimed anything.
    const int iInterface = first_interface_number(handle);
    if (iInterface >= 0) libusb_release_interface(handle, iInterface);
    libusb_close(handle);
}

}  // namespace

void apply_startup_settings(unsigned int iDeviceId) {
    initialize_sensor(iDeviceId);
    start_sensor(iDeviceId);
    set_adc_setting_values(kStartupAdcRange, kStartupAdcGain, kStartupAdcRes, iDeviceId);
    set_frame_average_count_for_on_board_processing(0, iDeviceId);
    get_frame_average_count_for_on_board_processing(iDeviceId);
}

int initialize_device_interface(unsigned int iDeviceId) {
    int iResult = lu_ec_success;
    initialize_ae_module("./config/intensity_LUT.csv", "./config/ss_LUT.csv");

    bool bConnected = connect_device(iDeviceId) == 1;
    if (bConnected)
        apply_startup_settings(iDeviceId);
    else
        iResult = lu_ec_fail_to_initialize_device;

    if (libusb_device_handle* handle = find_device_handle(iDeviceId); bConnected && handle != nullptr)
        mark_sensor_usable(iDeviceId, libusb_get_device(handle));

    // One event thread serves all sensors (one libusb context); the first
    // sensor brought up starts it, whatever its index.
    if (!usb_event_loop_running()) {
        register_sensor_hotplug();
        start_usb_event_loop();
        open_bulk_transfer_table(maxNumOfDevice);
    }

    if (bConnected && !allocTransferBulkMap.empty() && find_device_handle(iDeviceId) != nullptr &&
        !bulk_transfer_made(iDeviceId)) {
        alloc_transfer_bulk_l(0, kBulkFrameBytes, nullptr, iDeviceId);
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

    request_exit(1);
    join_usb_event_loop();
    deregister_sensor_hotplug();
    usleep(kAfterJoinPauseUs);

    if (framebuf[0] != nullptr) {
        free(framebuf[0]);
        framebuf[0] = nullptr;
    }
    return 1;
}
