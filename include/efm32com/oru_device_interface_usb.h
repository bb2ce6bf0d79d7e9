// Finding sensors on the bus, opening and claiming them, and the process-wide
// map of open handles keyed by sensor index.
#ifndef ORU_DEVICE_INTERFACE_USB_H
#define ORU_DEVICE_INTERFACE_USB_H

#include <libusb.h>
#include <cstddef>
#include <map>
#include <vector>

#define ORU_USB_VENDOR_ID 1155 /* 0x0483 */
#define ORU_USB_PRODUCT_ID 22336 /* 0x5740 */

// pDevH and currentDevId: written and read only through the functions of
// oru_device_interface_usb.cpp, which guard them with a lock of their own.
class UsbDevHandle {
public:
    static std::map<int, libusb_device_handle*> pDevH;
    static std::map<int, libusb_device_handle*> create_map();
};

class UsbDevId {
public:
    static std::map<int, int> currentDevId;
    static std::map<int, int> create_map();
};

int connect_device(unsigned int iDeviceId);
int connect_device();
int connect_device(int, int, unsigned int);
int disconnect_device(unsigned int iDeviceId);
int reconnect_device(unsigned int& iDeviceId, libusb_device* pDev, libusb_context* lctx, bool detach);

// Discovery steps shared with the LED driver's own search.
// Prints the line of a failed libusb_init; true when iResult is a success.
bool report_libusb_init(int iResult);
constexpr int kEndOfList = -1;
constexpr int kUnreadable = -2;
// Position of the next device from iFrom on that carries the sensor's ids;
// kEndOfList, or kUnreadable when a device descriptor cannot be read.
int next_oru_device(libusb_device** pList, int iFrom);
// Opens the device; on failure reports why and gives null.
libusb_device_handle* open_or_report(libusb_device* pDev);

// Number of the first interface of configuration 0, the one a sensor's
// connection claims; -1 when there is none or the descriptor cannot be read.
// pnInterfaces, when given, receives the number of interfaces (0 then).
int first_interface_number(libusb_device_handle* pHandle, int* pnInterfaces = nullptr);

// The dispatcher's lookup: like find_device_handle, but an unknown index is
// entered with a null handle.
libusb_device_handle* device_handle_entry(unsigned int iDeviceId);
// Records the index chosen by set_device_index.
void remember_device_index(unsigned int iDeviceId);

// Recovery of one sensor while the others run.
// Sensors on the bus that no index holds open, each referenced: the caller
// passes every one to libusb_unref_device.
std::vector<libusb_device*> free_sensor_devices();
// Opens pDev as sensor iDeviceId and claims its first interface; 1 on success,
// 0 with nothing stored otherwise.
int open_sensor_as(unsigned int iDeviceId, libusb_device* pDev);
// Releases and closes the handle of sensor iDeviceId (a dead one after an
// unplug too) and forgets it.
void close_sensor_as(unsigned int iDeviceId);

// Closes every stored handle and empties the maps (tests).
void reset_usb_handles();

// Handle stored for a sensor index, or null. Unlike a subscript of the map it
// never inserts an entry.
libusb_device_handle* find_device_handle(unsigned int iDeviceId);
// Number of entries of the handle map (null handles included).
std::size_t stored_handle_count();

#endif
