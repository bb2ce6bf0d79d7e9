// Registry of sensors for programs that use the class interface: one facade
// per USB device index, the connection flag and the sensor-ID text of each.
// The maps are shared by every instance.
#ifndef ORU_DEVICE_INTERFACE_STM_USB_CONNECTION_HELPER_H
#define ORU_DEVICE_INTERFACE_STM_USB_CONNECTION_HELPER_H

#include "oru_device_interface.h"
#include "oru_export.h"

#include <map>
#include <string>

class ORU_EXPORT oru_device_usb_connection_helper {
public:
    oru_device_usb_connection_helper();
    ~oru_device_usb_connection_helper();

    // Connects index deviceId, or (multi) indices 0, 1, ... until one fails.
    int connect_multiple_devices(bool multi, int deviceId);
    bool connect_device(int deviceId);
    bool disconnect_multiple_devices(bool multi, int deviceId);
    bool disconnect_device(int deviceId);
    // With a sensor ID the device carrying it (the last match), otherwise the
    // device at deviceId, whose ID is written to sensorId.
    oru_device_interface* get_one_device_interface(int deviceId, std::string& sensorId);
    std::string get_sensor_id(int deviceId);
    void CreateSensorObject(int deviceId);
    void DestroySensorObject(int deviceId);
    bool is_sensor_connected(int deviceId);
    void set_sensor_connection_status(bool status, int deviceId);

    static std::map<int, oru_device_interface*> m_pSpecDevice;
    static std::map<int, std::string> sidMap;
    static std::map<int, bool> sensorConnectionStatus;

    int numOfDevices;
};

#endif  // ORU_DEVICE_INTERFACE_STM_USB_CONNECTION_HELPER_H
