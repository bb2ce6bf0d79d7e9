// The sensor's 5-byte identity and its text form, e.g. A4486-3-12-40-2.
#ifndef ORU_DEVICE_INTERFACE_DEVICE_INFO_H
#define ORU_DEVICE_INTERFACE_DEVICE_INFO_H

#include "oru_base_exception.h"
#include <string>

struct SSensorIdFields {
    char lot_char;
    short lot_id, wafer_id, x_coord, y_coord, sensor_type;
};
// Decodes 5 raw identity bytes (no I/O).
SSensorIdFields decode_sensor_id_fields(const unsigned char* raw5);
std::string format_sensor_id(const SSensorIdFields& f);

ORU_ERROR_CODE get_firmware_version(unsigned char* version);
ORU_ERROR_CODE get_sensor_id_with_index(char* SensorID, unsigned int iDeviceId);
ORU_ERROR_CODE get_sensor_id_with_index(char* lot_char, short* lot_id, short* wafer_id, short* x_coord, short* y_coord,
                                        short* sensor_type, unsigned int iDeviceId);
std::string decode_sensor_id_from_string(char* buf, unsigned int iDeviceId);

#endif
