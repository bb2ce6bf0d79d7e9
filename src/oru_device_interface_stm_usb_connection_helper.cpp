// Registry of sensors by USB device index for the class interface.
#include "oru_device_interface_stm_usb_connection_helper.h"

#include "oru_log.h"

#include "oru_base_exception.h"

#include <cstdio>
#include <sstream>

std::map<int, oru_device_interface*> oru_device_usb_connection_helper::m_pSpecDevice;
std::map<int, std::string> oru_device_usb_connection_helper::sidMap;
std::map<int, bool> oru_device_usb_connection_helper::sensorConnectionStatus;

oru_device_usb_connection_helper::oru_device_usb_connection_helper() : numOfDevices(0) {
    m_pSpecDevice.clear();
    sidMap.clear();
    sensorConnectionStatus.clear();
}

oru_device_usb_connection_helper::~oru_device_usb_connection_helper() {
    for (int i = 0; i < numOfDevices; ++i) DestroySensorObject(i);
}

int oru_device_usb_connection_helper::connect_multiple_devices(bool multi, int deviceId) {
    numOfDevices = 0;
    sidMap.clear();
    if (!multi) {
        if (!connect_device(deviceId)) return 0;
        return ++numOfDevices;
    }
    // Indices must follow each other from 0: the first failure ends the search.
    int loopCnt = 0;
    for (; loopCnt < 100; ++loopCnt) {
        if (!connect_device(loopCnt)) break;
        ++numOfDevices;
    }
    return loopCnt == 0 ? 0 : numOfDevices;
}

bool oru_device_usb_connection_helper::connect_device(int deviceId) {
    const unsigned char adcValue = 132;
    if (!sensorConnectionStatus.empty() && is_sensor_connected(deviceId)) {
        oru_log(kLogNormal, ">>>>>>>>>>>>>>>> Sensor device is already connected!!\n");
        return false;
    }

    try {
        std::string idBuf;
        CreateSensorObject(deviceId);
        const unsigned int device = static_cast<unsigned int>(deviceId);
        int result = 0;
        try {
            std::stringstream darkDataMapFile;  // reserved for a per-sensor dark map
            darkDataMapFile << "darkdatamap"
                            << ".bin";

            result = m_pSpecDevice[deviceId]->initialize(device);

            char lot_char = 0;
            short lot_id = 0, wafer_id = 0, x_coord = 0, y_coord = 0, sensor_type = 0;
            m_pSpecDevice[deviceId]->get_sensor_id(&lot_char, &lot_id, &wafer_id, &x_coord, &y_coord, &sensor_type,
                                                   device);
            std::stringstream id;
            id << lot_char << lot_id << "-" << wafer_id << "-" << x_coord << "-" << y_coord << "-" << sensor_type;
            idBuf = id.str();

            if (result == -1) {
                DestroySensorObject(deviceId);
                return false;
            }
        } catch (const oru_base_exception& e) {
            result = e.error_code;
            DestroySensorObject(deviceId);
            return false;
        }

        if (m_pSpecDevice[deviceId] != nullptr && !m_pSpecDevice[deviceId]->is_initialized(device)) {
            DestroySensorObject(deviceId);
            return false;
        }
        set_sensor_connection_status(true, deviceId);
        if (!idBuf.empty()) sidMap[deviceId] = idBuf;
        m_pSpecDevice[deviceId]->enable_spatial_filtering(false, 0, device);
        m_pSpecDevice[deviceId]->set_adc_settings(adcValue, 1, 0, device);
        return true;
    } catch (const oru_base_exception& e) {
        oru_log(kLogError, "Exception, error: %d\n", e.error_code);
        DestroySensorObject(deviceId);
        return false;
    }
}

bool oru_device_usb_connection_helper::disconnect_multiple_devices(bool multi, int deviceId) {
    bool result = false;
    if (multi) {
        const int loopCnt = static_cast<int>(m_pSpecDevice.size());
        for (int i = 0; i < loopCnt; ++i) result = disconnect_device(i);
    } else {
        result = disconnect_device(deviceId);
    }
    if (!result) return false;
    numOfDevices = 0;
    sidMap.clear();
    return true;
}

bool oru_device_usb_connection_helper::disconnect_device(int deviceId) {
    try {
        if (m_pSpecDevice[deviceId] != nullptr) m_pSpecDevice[deviceId]->finalize(static_cast<unsigned int>(deviceId));
        DestroySensorObject(deviceId);
        set_sensor_connection_status(false, deviceId);
        return true;
    } catch (...) {
        oru_log(kLogError, "[Exception] Fail to disconnect device !\n");
        return false;
    }
}

oru_device_interface* oru_device_usb_connection_helper::get_one_device_interface(int deviceId, std::string& sensorId) {
    if (!sensorId.empty()) {
        int foundId = -1;
        for (const auto& entry : sidMap) {
            if (entry.second == sensorId) foundId = entry.first;
        }
        if (foundId != -1) deviceId = foundId;
        return m_pSpecDevice[deviceId];
    }
    sensorId = sidMap[deviceId];
    return m_pSpecDevice[deviceId];
}

// The ID is kept in sidMap; this answer is always empty.
std::string oru_device_usb_connection_helper::get_sensor_id(int) { return std::string(); }

void oru_device_usb_connection_helper::CreateSensorObject(int deviceId) {
    if (m_pSpecDevice[deviceId] == nullptr) m_pSpecDevice[deviceId] = new oru_device_interface;
}

void oru_device_usb_connection_helper::DestroySensorObject(int deviceId) {
    if (m_pSpecDevice[deviceId] != nullptr) {
        delete m_pSpecDevice[deviceId];
        m_pSpecDevice[deviceId] = nullptr;
        m_pSpecDevice.erase(deviceId);
    }
}

bool oru_device_usb_connection_helper::is_sensor_connected(int deviceId) { return sensorConnectionStatus[deviceId]; }

void oru_device_usb_connection_helper::set_sensor_connection_status(bool status, int deviceId) {
    sensorConnectionStatus[deviceId] = status;
}
