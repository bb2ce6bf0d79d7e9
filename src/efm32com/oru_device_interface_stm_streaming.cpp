// The streaming commands and the control-mode read.
#include "efm32com/oru_device_interface_stm_streaming.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_usb.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>

// Caller thread only: ends the control-mode read loop early. Nothing in the
// library sets it.
bool stopFlag = false;

void reset_frame_streaming() { stopFlag = false; }

namespace {

constexpr uint8_t kStreamRequestType = 0x21;  // host-to-device, class, interface
constexpr uint16_t kStreamInterfaceIndex = 1;
constexpr unsigned int kStreamTimeoutMs = 2000;
constexpr uint16_t kControlReadAdcRange = 0x84;  // the ADC range value of start-up
constexpr unsigned char kAcqBlankTime = 2;
constexpr useconds_t kStopRepeatPauseUs = 20000;

}  // namespace

// ---- streaming commands --------------------------------------------------------

int get_sleep_time_for_shutter_speed(int iShutterSpeed) {
    // In 32 bits; an absurd shutter speed wraps rather than overflows.
    int t = static_cast<int>(static_cast<unsigned int>(iShutterSpeed) * 912u + 160u);
    int x = static_cast<int>(std::ceil(t / 5000.0 * 3.0));
    return x < g_iSleepTime ? g_iSleepTime : x;
}

int get_current_shutter_speed() {
    return 1;  // reserved
}

int acquire_frame_data_bulk(int iCommand, unsigned int iDeviceId) {
    int iPauseMs = get_sleep_time_for_shutter_speed(g_iCurShutterSpeed);
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    if (handle == nullptr) return 0;
    libusb_control_transfer(handle, kStreamRequestType, static_cast<uint8_t>(iCommand), 0, kStreamInterfaceIndex,
                            nullptr, 0, kStreamTimeoutMs);
    // The firmware needs the time of at least one exposure to switch.
    usleep(static_cast<useconds_t>(iPauseMs) * 1000);
    return 0;
}

void start_frame_streaming(unsigned int iDeviceId) {
    // A stop first, so that the firmware starts a fresh run.
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_START_STREAMING, iDeviceId);
}

void stop_frame_streaming(unsigned int iDeviceId) {
    // Repeated, since a stop sent while a frame is on its way can be missed.
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
}

int acquire_frame_data_control(int iCommand, unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    int count = 0;
    int iPauseMs = get_sleep_time_for_shutter_speed(g_iCurShutterSpeed);
    unsigned char buffer[ORU_FRAME_BYTES];
    while (!stopFlag && count < iCurrAvgNum) {
        std::memset(buffer, 0, sizeof buffer);
        if (handle != nullptr) {
            libusb_control_transfer(handle, ORU_REQUEST_TYPE_CLASS_IN, static_cast<uint8_t>(iCommand),
                                    kControlReadAdcRange, kStreamInterfaceIndex, buffer, ORU_FRAME_BYTES,
                                    kStreamTimeoutMs);
        }
        usleep(static_cast<useconds_t>(iPauseMs) * 1000);
        if (count == 0 || count == iCurrAvgNum - 1) {
            oru_log(kLogNormal, "Received data Count = %d\n", count);
            oru_log(kLogNormal, "===>>>> curent count : %d\n", count);
        }
        ++count;
        uint16_t samples[ORU_NUM_FILTERS];
        decode_frame(buffer, samples);
        take_control_frame(samples);
        std::memset(buffer, 0, sizeof buffer);
    }
    return 1;
}

int set_frame_data_acq_mode(unsigned int /*iAcqMode*/, unsigned int iDeviceId) {
    // One retry, then accepted whatever it reads.
    write_verified_pair(ORU_WRITE_BLANK_TIME, ORU_READ_BLANK_TIME, {0, kAcqBlankTime},
                        static_cast<unsigned int>(g_iSleepTime) * 1000, iDeviceId);
    return 1;
}

double acquire_frame_data(double* /*frame*/, int /*num*/, unsigned int /*iDeviceId*/) {
    return 0.0;  // reserved
}

int acquire_frame_data_2048(char* /*frame*/, unsigned int /*iDeviceId*/) {
    return 1;  // reserved
}
