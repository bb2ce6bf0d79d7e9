// The virtual bus on a umockdev testbed: each device added with
// vsensor::add_sensor / add_led_driver becomes a USB device in the testbed's
// sysfs with an emulated usbfs node, so that the real libusb-1.0 finds,
// opens and drives it. The firmware model is the virtual sensor's own.
#ifndef UMOCKBUS_UMOCK_BUS_H
#define UMOCKBUS_UMOCK_BUS_H

#include <string>

namespace umockbus {

constexpr const char* kPreloadLibrary = "libumockdev-preload.so.0";

// Whether umockdev's preload library is in this process.
bool preload_loaded();
// "" when this process runs under umockdev's preload library, else why not.
std::string unavailable_reason();
// Puts every device of the virtual bus that is not on the testbed yet onto
// it, in bus order. Call before the library's first libusb_init. Returns an
// error text, or "" on success.
std::string plug_bus_devices();
// Pulls bus device `dev` out: what vsensor::unplug does, its submitted URBs
// complete with ESHUTDOWN, as usbfs reports a disconnect, and a "remove"
// uevent goes to libusb's udev monitor before the device leaves the testbed.
void unplug(int dev);
// Plugs bus device `dev` back (pulling it out first if needed) after
// libusb_init: a new device object of the firmware model with the same
// options and frame source, faults cleared, as after power-up; a new device
// number on the same port and an "add" uevent. Returns an error text or "".
std::string replug(int dev);
// vsensor::set_realtime; while on, bulk URBs complete one frame period apart.
void set_realtime(bool on);

}  // namespace umockbus

#endif
