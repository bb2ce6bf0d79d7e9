// Exported functions acting on the active sensor: exposure, auto exposure,
// filter data and ADC parameters.
#include "oru_device_api.h"

#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "oru_device_api_valid_filters.h"
#include "oru_device_interface.h"
#include "stream/oru_frame_stream.h"

#include <array>
#include <vector>

namespace {

constexpr int kMinShutterSpeed = 1;
constexpr int kMaxShutterSpeed = 3000;
constexpr int kDefaultAdcRange = 132;
constexpr int kNumFilters = 1024;

// While the sensor's frame stream is on, calls that stream or change the
// exposure are refused, so that no reading mixes two exposures.
void refuse_while_streaming(unsigned int index) {
    if (oru_stream::is_on(index)) throw oru_base_exception(lu_ec_ill_defined_input);
}

// The search indexes the frame with the caller's 1-based filter numbers, so
// each must name one of the 1024 filters. A null list or a count of 0 or
// less means the default set. The target must leave a window above 0 DN.
void check_exposure_search_input(const int* valid_filters_in, int num_of_valid_filters, int target_DN) {
    if (target_DN <= 0) throw oru_base_exception(lu_ec_ill_defined_input);
    if (valid_filters_in == nullptr || num_of_valid_filters <= 0) return;
    if (num_of_valid_filters > kNumFilters) throw oru_base_exception(lu_ec_ill_defined_input);
    for (int i = 0; i < num_of_valid_filters; ++i)
        if (valid_filters_in[i] < 1 || valid_filters_in[i] > kNumFilters)
            throw oru_base_exception(lu_ec_ill_defined_input);
}

int optimal_shutter_speed(const int* valid_filters_in, int num_of_valid_filters, int target_DN) {
    // The input is checked before the sensor is looked for.
    try {
        check_exposure_search_input(valid_filters_in, num_of_valid_filters, target_DN);
    } catch (const oru_base_exception& e) {
        return oru_api_report(e);
    }
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        refuse_while_streaming(index);
        const std::array<int, num_valid_filters> valid_filters = g_default_valid_filters;
        const int saturation_value = target_DN;
        const int sleep_time = 10;

        std::vector<int> valid_filter_list;
        std::vector<double> background_data(1024, 0.0);
        // Caller's list is 1-based and taken as given.
        if (valid_filters_in != nullptr)
            valid_filter_list.assign(valid_filters_in,
                                     valid_filters_in + (num_of_valid_filters > 0 ? num_of_valid_filters : 0));
        else
            valid_filter_list.assign(valid_filters.begin(), valid_filters.end());

        device.set_auto_exposure_parameters(target_DN, index);
        return device.find_optimal_shutter_speed(valid_filter_list, background_data, saturation_value, sleep_time,
                                                 index);
    });
}

}  // namespace

extern "C" {

int duGetShutterSpeed(void) {
    return oru_api_on_active(ApiHold::kRequest, [](oru_device_interface& device, unsigned int index) {
        return device.get_shutter_speed(index);
    });
}

int duGetShutterSpeedLimits(int* min_limit, int* max_limit) {
    if (min_limit != nullptr) *min_limit = kMinShutterSpeed;
    if (max_limit != nullptr) *max_limit = kMaxShutterSpeed;
    return 1;
}

int duShutterSpeedToExposureTime(int master_clock, int shutter_speed, double* exposure_time_val) {
    const ApiGuard guard(g_apiLock);
    return oru_api_call([&] {
        return oru_api_active_device().shutter_to_exposure_time_ms(master_clock, shutter_speed, exposure_time_val);
    });
}

int duExposureTimeToShutterSpeed(int master_clock, double exposure_time_val, int* shutter_speed) {
    const ApiGuard guard(g_apiLock);
    return oru_api_call([&] {
        return oru_api_active_device().exposure_tim_ms_to_shutter(master_clock, exposure_time_val, shutter_speed);
    });
}

int duSetShutterSpeed(int shutter) {
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        refuse_while_streaming(index);
        int clamped = shutter;
        if (clamped < kMinShutterSpeed) clamped = kMinShutterSpeed;
        if (clamped > kMaxShutterSpeed) clamped = kMaxShutterSpeed;
        device.set_shutter_speed(clamped, index);
        return 1;
    });
}

int duGetOptimalShutterSpeed2(int* valid_filters_in, int num_of_valid_filters, int target_DN) {
    return optimal_shutter_speed(valid_filters_in, num_of_valid_filters, target_DN);
}

int duGetOptimalShutterSpeed(int* valid_filters_in, int num_of_valid_filters) {
    return optimal_shutter_speed(valid_filters_in, num_of_valid_filters, 3500);
}

int duGetFilterData(double* output, int number_of_averages) {
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        refuse_while_streaming(index);
        const double ret_val = device.get_filter_data(output, number_of_averages, 0, 0, index);
        (void)ret_val;  // the device's own result carries nothing for the caller
        return 1;
    });
}

int duSetSensorParameters(int _adc_gain, int _adc_range) {
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        refuse_while_streaming(index);
        int adc_gain = _adc_gain;
        if (adc_gain < 0 || adc_gain > 1) adc_gain = 0;
        int adc_range = _adc_range;
        if (adc_range < 0 || adc_range > 255) adc_range = kDefaultAdcRange;
        int adc_res = 0;
        if (adc_res < 0 || adc_res > 1) adc_res = 0;
        device.set_adc_settings(static_cast<unsigned char>(adc_range), static_cast<unsigned char>(adc_gain),
                                static_cast<unsigned char>(adc_res), index);
        return 1;
    });
}

int duGetSensorParameters(int* _adc_gain, int* _adc_range) {
    if (_adc_gain == nullptr || _adc_range == nullptr) return oru_api_report(oru_base_exception(lu_ec_memory_is_null));
    return oru_api_on_active(ApiHold::kRequest, [&](oru_device_interface& device, unsigned int index) {
        unsigned char adc_range = 0, adc_gain = 0, adc_res = 0;
        device.get_adcsettings(&adc_range, &adc_gain, &adc_res, index);
        *_adc_range = adc_range;
        *_adc_gain = adc_gain;
        return 1;
    });
}

}  // extern "C"
