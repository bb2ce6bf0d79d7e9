// Bringing one failed or unplugged sensor back while the others stream.
#ifndef ORU_DEVICE_INTERFACE_SENSOR_REOPEN_H
#define ORU_DEVICE_INTERFACE_SENSOR_REOPEN_H

// Drops the sensor's transfer and handle, then opens, under the same index,
// the attached sensor (not held by another index) whose sensor ID is
// sSensorId, and brings it up as a connect does, with its last shutter speed.
// 1 when it is back and usable, 0 when no such sensor is attached.
int reopen_sensor(unsigned int iDeviceId, const char* sSensorId);

#endif
