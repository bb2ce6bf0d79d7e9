// Saturation of a reading: a filter is saturated when any frame of the
// reading hit the converter's top or the stuck-filter mark. The stream read
// with flags and the flags of a sensor's last request give it per filter;
// the count of values at full scale serves single frames and older callers.
#include "oru_device_api.h"

#include "oru_base_exception.h"
#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "sensors/oru_sensor_record.h"

#include <algorithm>

namespace {
// Full scale of the 12-bit converter; 4096 marks a stuck over-range filter.
constexpr double kFullScaleDN = 4095.0;
}  // namespace

extern "C" {

int duCountSaturatedFilters(const double* values, int count) {
    if (values == nullptr) return -lu_ec_filter_buffer_is_null;
    if (count < 0) return -lu_ec_ill_defined_input;
    int saturated = 0;
    for (int i = 0; i < count; ++i)
        if (values[i] >= kFullScaleDN) ++saturated;
    return saturated;
}

int duGetLastRequestSaturation(int sensor_index, unsigned char* saturated) {
    return oru_api_call([&] {
        if (saturated == nullptr) return -lu_ec_filter_buffer_is_null;
        {
            const ApiGuard guard(g_apiLock);
            oru_api_device_at(sensor_index);
        }
        oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(static_cast<unsigned int>(sensor_index));
        if (record == nullptr || !oru_sensor::request_saturation(*record, saturated))
            return -lu_ec_initialization_required;
        return static_cast<int>(std::count(saturated, saturated + oru_sensor::kRecordFilters, 1));
    });
}

}  // extern "C"
