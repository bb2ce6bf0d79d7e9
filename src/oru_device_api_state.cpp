// Module state of the exported functions.
#include "oru_device_api_state.h"

#include "oru_log.h"

#include "oru_device_interface.h"

#include <cstdio>

// Written only by oru_device_api.cpp, on the caller thread of the exported
// functions, under g_apiLock: the table and the count by connect and
// disconnect (which hold every sensor's call lock as well, so no call on a
// sensor outlives its facade), the active sensor by the activate functions.
// Read under g_apiLock.
oru_device_interface* g_pDeviceInterface[ORU_API_SLOTS] = {};
int g_total_num_of_sensors = 0;
int g_current_device_index = 0;

oru_device_interface& oru_api_device_at(int index) {
    if (index < 0 || index >= ORU_API_SLOTS || g_pDeviceInterface[index] == nullptr)
        throw oru_base_exception(lu_ec_device_object_is_null);
    return *g_pDeviceInterface[index];
}

oru_device_interface& oru_api_active_device() { return oru_api_device_at(g_current_device_index); }

int oru_api_report(const oru_base_exception& e) {
    oru_log(kLogError, "[oru_device_api] ORU_BASE_EXCEPTION happened: %s\n", e.what());
    return -e.error_code;
}

int oru_api_report_unknown() {
    oru_log(kLogError, "[oru_device_api] std::exception happed !!\n");
    return -1;
}
