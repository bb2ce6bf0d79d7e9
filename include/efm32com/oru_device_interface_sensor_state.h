// Health of each sensor, so that a fault stays on the sensor that has it: a
// failed bulk transfer or a removal marks that sensor alone, and its requests
// and stream end at once while the others go on. Also the libusb hotplug
// registration that marks a removed sensor without waiting for a transfer to
// fail, and records arrivals.
#ifndef ORU_DEVICE_INTERFACE_SENSOR_STATE_H
#define ORU_DEVICE_INTERFACE_SENSOR_STATE_H

#include <libusb.h>

#include <cstdint>

enum SensorHealth { kSensorUsable = 1, kSensorFailed = 2, kSensorRemoved = 3 };

// Bring-up: the sensor at `iDeviceId` is usable and is this USB device.
void mark_sensor_usable(unsigned int iDeviceId, libusb_device* pDevice);
// Event thread (bulk callback, hotplug): the sensor failed or was removed. A
// removal is not downgraded to a failure. Wakes a request waiting for frames.
void mark_sensor_failed(unsigned int iDeviceId);
void mark_sensor_removed(unsigned int iDeviceId);
// kSensorUsable, kSensorFailed or kSensorRemoved; usable for an index that was
// never brought up.
int sensor_health(unsigned int iDeviceId);
// Arrivals of 0483:5740 devices seen by hotplug since the library loaded.
uint64_t sensor_arrivals();

// Registers for arrival and removal of 0483:5740 where libusb supports
// hotplug; no-op otherwise or when already registered. Caller thread, before
// the event thread handles events.
void register_sensor_hotplug();
// Deregisters (after the event thread has ended).
void deregister_sensor_hotplug();

// Tests: every sensor usable again, arrivals 0, no registration.
void reset_sensor_health();

#endif
