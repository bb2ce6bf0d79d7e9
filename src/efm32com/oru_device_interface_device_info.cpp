// The sensor's 5-byte identity record and its text form.
#include "efm32com/oru_device_interface_device_info.h"

#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"
#include "lusb_compat/lusb_compat.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int kCmdIdentity = 1;
constexpr int kIdentityBytes = 5;
constexpr int kIdentityTimeoutMs = 2000;
constexpr unsigned int kCommandPauseUs = 1000;

// Lots whose x/y/type fields use the 6/6/3-bit layout.
constexpr int kSpecialLots[] = {4486, 6529};

bool is_special_lot(int iLot) {
    for (int iSpecial : kSpecialLots)
        if (iLot == iSpecial) return true;
    return false;
}

// Reads the record into a cleared buffer. A failed read, or a sensor without
// handle, leaves the zeros, which decode as A0-0-0-0-0.
void read_identity(unsigned char* buf, unsigned int iDeviceId) {
    libusb_device_handle* pHandle = find_device_handle(iDeviceId);
    if (pHandle != nullptr)
        usb_control_msg(pHandle, ORU_REQUEST_TYPE_CLASS_IN, kCmdIdentity, 0, 0, reinterpret_cast<char*>(buf),
                        kIdentityBytes, kIdentityTimeoutMs);
}

}  // namespace

SSensorIdFields decode_sensor_id_fields(const unsigned char* raw5) {
    const unsigned int b0 = raw5[0], b1 = raw5[1], b2 = raw5[2], b3 = raw5[3], b4 = raw5[4];
    SSensorIdFields f;
    f.lot_char = static_cast<char>((b0 >> 3) + 'A');
    // Mask 5, not 7: bit 6 of b1 never reaches the lot number. Sensor IDs in
    // the field were made this way, so it stays.
    const unsigned int upper = ((b0 << 3) & 0x38) | ((b1 >> 5) & 5);
    const unsigned int lower = ((b1 << 3) & 0xFF) | (b2 >> 5);
    f.lot_id = static_cast<short>((upper << 8) | lower);
    f.wafer_id = static_cast<short>(b2 & 0x1F);
    if (is_special_lot(f.lot_id)) {
        f.x_coord = static_cast<short>(b3 >> 2);
        f.y_coord = static_cast<short>(((b3 << 4) & 0x30) | (b4 >> 4));
        f.sensor_type = static_cast<short>((b4 >> 1) & 7);
    } else {
        f.x_coord = static_cast<short>(b3 >> 1);
        f.y_coord = static_cast<short>(((b3 << 6) & 0x40) | (b4 >> 2));
        f.sensor_type = static_cast<short>(b4 & 3);
    }
    return f;
}

std::string format_sensor_id(const SSensorIdFields& f) {
    char text[128];
    snprintf(text, sizeof(text), "%c%d-%d-%d-%d-%d", f.lot_char, f.lot_id, f.wafer_id, f.x_coord, f.y_coord,
             f.sensor_type);
    return text;
}

ORU_ERROR_CODE get_firmware_version(unsigned char*) { return lu_ec_success; }

ORU_ERROR_CODE get_sensor_id_with_index(char* SensorID, unsigned int iDeviceId) {
    unsigned char buf[kIdentityBytes + 1] = {};
    send_command_to_device(kCmdIdentity, 0, iDeviceId);
    usleep(kCommandPauseUs);
    read_identity(buf, iDeviceId);
    std::memcpy(SensorID, buf, kIdentityBytes);
    return lu_ec_success;
}

// Unlike the raw form, no command and no pause before the read.
ORU_ERROR_CODE get_sensor_id_with_index(char* lot_char, short* lot_id, short* wafer_id, short* x_coord, short* y_coord,
                                        short* sensor_type, unsigned int iDeviceId) {
    unsigned char buf[kIdentityBytes + 1] = {};
    read_identity(buf, iDeviceId);
    const SSensorIdFields f = decode_sensor_id_fields(buf);
    *lot_char = f.lot_char;
    *lot_id = f.lot_id;
    *wafer_id = f.wafer_id;
    *x_coord = f.x_coord;
    *y_coord = f.y_coord;
    *sensor_type = f.sensor_type;
    return lu_ec_success;
}

std::string decode_sensor_id_from_string(char* buf, unsigned int) {
    return format_sensor_id(decode_sensor_id_fields(reinterpret_cast<const unsigned char*>(buf)));
}
