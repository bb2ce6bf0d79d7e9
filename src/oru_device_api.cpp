// Exported functions: finding and opening sensors, listing them and choosing
// the active one.
#include "oru_device_api.h"

#include "efm32com/oru_device_interface_device_info.h"
#include "oru_log.h"

#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "oru_device_interface.h"
#include "sensors/oru_sensor_record.h"
#include "stream/oru_frame_stream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {

// Sensor-ID text of the sensor in a slot, in a 26-byte buffer.
void sensor_id_text(oru_device_interface& device, int sensor_index, char (&text)[26]) {
    SSensorIdFields f{0, 0, 0, 0, 0, 0};
    device.get_sensor_id(&f.lot_char, &f.lot_id, &f.wafer_id, &f.x_coord, &f.y_coord, &f.sensor_type,
                         static_cast<unsigned int>(sensor_index));
    const std::string formatted = format_sensor_id(f);
    // An ID never reaches 26 characters; one that did is cut, not overrun.
    std::memset(text, 0, sizeof text);
    std::memcpy(text, formatted.c_str(), std::min<std::size_t>(formatted.size(), 25));
}

// Destroys the facades of slots 0 to g_total_num_of_sensors-1 and empties them.
void oru_api_release_sensor_slots() {
    for (int i = 0; i < g_total_num_of_sensors && i < ORU_API_SLOTS; ++i) {
        delete g_pDeviceInterface[i];
        g_pDeviceInterface[i] = nullptr;
    }
}

// Error path of connect and disconnect: empty the table, then report.
int release_and_report(const oru_base_exception& e) {
    oru_api_release_sensor_slots();
    return oru_api_report(e);
}

int release_and_report_unknown() {
    oru_api_release_sensor_slots();
    return oru_api_report_unknown();
}

void free_sensor_list(char** list, int count) {
    if (list == nullptr) return;
    for (int i = 0; i < count; ++i) std::free(list[i]);
    std::free(list);
}

}  // namespace

extern "C" {

// Connect, disconnect and the sensor list hold everything: they change the
// table, or talk to every sensor in it.
int duConnect(void) {
    const ApiCall call(ApiHold::kEverything);
    try {
        if (g_total_num_of_sensors > 0) duDisconnect();
        g_total_num_of_sensors = 0;

        // Sensors are numbered without gaps: the first index that does not
        // come up ends the search. Its facade stays in the slot, uncounted.
        const int max_sensor_count = duGetMaxSensorCount();
        for (int index = 0; index < max_sensor_count; ++index) {
            g_pDeviceInterface[index] = new (std::nothrow) oru_device_interface;
            if (g_pDeviceInterface[index] == nullptr) break;
            if (g_pDeviceInterface[index]->initialize(static_cast<unsigned int>(index)) < 0) break;
            ++g_total_num_of_sensors;
        }

        if (g_total_num_of_sensors != 0) {
            g_current_device_index = 0;
            oru_log(kLogNormal, "**** [oru_device_api] Total number of sensors: %d\n", g_total_num_of_sensors);
            return g_total_num_of_sensors;
        }
        g_current_device_index = -1;
        return -1;
    } catch (const oru_base_exception& e) {
        return release_and_report(e);
    } catch (...) {
        return release_and_report_unknown();
    }
}

int duDisconnect(void) {
    const ApiCall call(ApiHold::kEverything);
    try {
        for (int i = 0; i < g_total_num_of_sensors && i < ORU_API_SLOTS; ++i) {
            // Its readers wake; tear-down sends the stop commands.
            oru_stream::close(static_cast<unsigned int>(i));
            if (g_pDeviceInterface[i] != nullptr) {
                g_pDeviceInterface[i]->finalize(static_cast<unsigned int>(i));
                delete g_pDeviceInterface[i];
            }
            g_pDeviceInterface[i] = nullptr;
        }
        g_total_num_of_sensors = 0;
        oru_log(kLogNormal, "Sensor is disconnected.\n");
        return 1;
    } catch (const oru_base_exception& e) {
        return release_and_report(e);
    } catch (...) {
        return release_and_report_unknown();
    }
}

char** duGetSensorList(void) {
    const ApiCall call(ApiHold::kEverything);
    char** list = nullptr;
    int filled = 0;
    try {
        const int total_num_of_sensors = g_total_num_of_sensors;
        list = static_cast<char**>(std::malloc(sizeof(char*) * static_cast<std::size_t>(total_num_of_sensors)));
        if (list == nullptr && total_num_of_sensors > 0) throw oru_base_exception(lu_ec_memory_is_null);

        for (int i = 0; i < g_total_num_of_sensors; ++i) {
            const std::string sensor_id = oru_api_device_at(i).get_sensor_id(static_cast<unsigned int>(i));
            char* entry = static_cast<char*>(std::calloc(26, 1));
            if (entry == nullptr) throw oru_base_exception(lu_ec_memory_is_null);
            // The text with its terminator, the rest of the 26 bytes zero.
            std::memcpy(entry, sensor_id.c_str(), std::min<std::size_t>(sensor_id.size(), 25));
            list[i] = entry;
            filled = i + 1;
        }

        oru_log(kLogNormal, "[oru_device_api] Total sensors in your system = %d).\n", total_num_of_sensors);
        for (int i = 0; i < filled; ++i) oru_log(kLogNormal, "[oru_device_api] Sensor ID: %s\n", list[i]);
        return list;
    } catch (const oru_base_exception& e) {
        free_sensor_list(list, filled);
        oru_api_report(e);
        return nullptr;
    } catch (...) {
        free_sensor_list(list, filled);
        oru_api_report_unknown();
        return nullptr;
    }
}

// The library's one limit on open sensors.
int duGetMaxSensorCount(void) { return static_cast<int>(oru_sensor::kMaxOpenSensors); }

// Clamps instead of failing.
int duActivateSensorWithIndex(int sensor_index) {
    const ApiGuard guard(g_apiLock);
    if (sensor_index < 0)
        g_current_device_index = 0;
    else if (sensor_index < g_total_num_of_sensors)
        g_current_device_index = sensor_index;
    else
        g_current_device_index = g_total_num_of_sensors - 1;
    return 1;
}

int duActivateSensorWithID(const char* sensor_id_str) {
    return oru_api_call([&] {
        const ApiCall call(ApiHold::kEverything);
        if (sensor_id_str == nullptr) throw oru_base_exception(lu_ec_sensor_id_is_empty);
        for (int sensor_index = 0; sensor_index < g_total_num_of_sensors; ++sensor_index) {
            char text[26];
            sensor_id_text(oru_api_device_at(sensor_index), sensor_index, text);
            if (std::strcmp(text, sensor_id_str) == 0) {
                g_current_device_index = sensor_index;
                return sensor_index;
            }
        }
        return -1;
    });
}

int duGetTotalSensors(void) {
    const ApiGuard guard(g_apiLock);
    return g_total_num_of_sensors;
}

int duGetSensorID(char* sensor_id) {
    if (sensor_id == nullptr) return oru_api_report(oru_base_exception(lu_ec_memory_is_null));
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        char text[26];
        sensor_id_text(device, static_cast<int>(index), text);
        std::memcpy(sensor_id, text, sizeof text);
        return 1;
    });
}

}  // extern "C"
