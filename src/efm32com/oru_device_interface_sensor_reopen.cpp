// Recovery of one sensor: the event thread and the other sensors go on.
#include "efm32com/oru_device_interface_sensor_reopen.h"

#include "efm32com/oru_device_interface_device_info.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_bulk.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_usb.h"

#include <string>
#include <vector>

namespace {

constexpr int kStartupShutterSpeed = 1;

std::string sensor_id_of(unsigned int iDeviceId) {
    SSensorIdFields f{};
    get_sensor_id_with_index(&f.lot_char, &f.lot_id, &f.wafer_id, &f.x_coord, &f.y_coord, &f.sensor_type, iDeviceId);
    return format_sensor_id(f);
}

void bring_up(unsigned int iDeviceId, libusb_device* pDev, int iShutterSpeed) {
    apply_startup_settings(iDeviceId);
    if (iShutterSpeed != kStartupShutterSpeed) set_shutter_speed_to_sensor(iShutterSpeed, iDeviceId);
    mark_sensor_usable(iDeviceId, pDev);
    alloc_transfer_bulk_l(0, ORU_FRAME_BYTES, nullptr, iDeviceId);
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
}

}  // namespace

int reopen_sensor(unsigned int iDeviceId, const char* sSensorId) {
    const int iShutterSpeed = sensor_shutter_speed(iDeviceId);
    // A transfer that ended in error or with the device gone is no longer
    // submitted, so this frees it without waiting.
    release_transfer_bulk(iDeviceId);
    close_sensor_as(iDeviceId);

    int iResult = 0;
    for (libusb_device* pDev : free_sensor_devices()) {
        if (iResult == 0 && open_sensor_as(iDeviceId, pDev) == 1) {
            if (sensor_id_of(iDeviceId) == sSensorId) {
                bring_up(iDeviceId, pDev, iShutterSpeed);
                iResult = 1;
            } else {
                close_sensor_as(iDeviceId);
            }
        }
        libusb_unref_device(pDev);
    }
    return iResult;
}
