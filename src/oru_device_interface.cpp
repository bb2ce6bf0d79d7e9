// The per-sensor facade: creates the device object and forwards to it.
#include "oru_device_interface.h"

#include "oru_log.h"

#include "oru_base_exception.h"
#include "oru_device_interface_base.h"

#include <algorithm>
#include <cstdio>

namespace {

// The device object behind a facade; a facade used before initialize() has
// none, and says so instead of dereferencing null.
oru_device_interface_base& device_of(oru_device_interface_base* pDevice) {
    if (pDevice == nullptr) throw oru_base_exception(lu_ec_initialization_required);
    return *pDevice;
}

}  // namespace

int oru_device_interface::initialize(unsigned int iDeviceId) {
    // An earlier device object is dropped, not destroyed: its destructor
    // would tear down sensor 0.
    m_device_interface_base = new oru_device_interface_base(0);
    m_interface_is_initialized = (m_device_interface_base->initialize(iDeviceId) == 1);
    return m_interface_is_initialized ? 1 : -1;
}

void oru_device_interface::initialize() { initialize(0u); }

bool oru_device_interface::is_initialized(unsigned int iDeviceId) {
    return m_device_interface_base != nullptr && m_device_interface_base->is_initialized(iDeviceId) &&
           m_interface_is_initialized;
}

void oru_device_interface::finalize(unsigned int iDeviceId) { device_of(m_device_interface_base).finalize(iDeviceId); }

int oru_device_interface::reconnect_device(const unsigned int& iDeviceId, std::string dark_data_file,
                                           libusb_device* pDev, libusb_context* lctx, bool detach) {
    if (detach) {
        unsigned int device_id = iDeviceId;
        device_of(m_device_interface_base).reconnect_device(device_id, dark_data_file, pDev, lctx);
    }
    return 1;
}

void oru_device_interface::activate_device(unsigned int deviceid) {
    device_of(m_device_interface_base).activate_device(deviceid);
}

int oru_device_interface::get_total_devices() { return device_of(m_device_interface_base).get_total_devices(); }

bool oru_device_interface::test_device(unsigned int iDeviceId) {
    bool sensorOk = false;
    bool controllerOk = false;
    device_of(m_device_interface_base).test_device(sensorOk, controllerOk, iDeviceId);
    return sensorOk && controllerOk;
}

void oru_device_interface::enable_spatial_filtering(bool bEnable, int iSize, unsigned int iDeviceId) {
    if (is_initialized(iDeviceId))
        device_of(m_device_interface_base).enable_spatial_filtering(bEnable, iSize, iDeviceId);
}

void oru_device_interface::enable_frame_moving_average(bool bEnable, unsigned int iDeviceId) {
    if (is_initialized(iDeviceId)) device_of(m_device_interface_base).enable_frame_moving_average(bEnable, iDeviceId);
}

// The search never aims above 4000 DN.
int oru_device_interface::find_optimal_shutter_speed(std::vector<int>& valid_filter_list,
                                                     std::vector<double>& background_data, int saturation_value,
                                                     int sleep_time, unsigned int iDeviceId) {
    return device_of(m_device_interface_base)
        .find_optimal_shutter_speed(valid_filter_list, background_data, std::min(saturation_value, 4000), sleep_time,
                                    iDeviceId);
}

void oru_device_interface::set_auto_exposure_parameters(int target_DN, unsigned int iDeviceId) {
    device_of(m_device_interface_base).set_auto_exposure_parameters(target_DN, iDeviceId);
}

void oru_device_interface::set_auto_exposure_parameters(int target_DN, int upper_DN, int lower_DN, int mean_DN,
                                                        int max_integ_DN, unsigned int iDeviceId) {
    device_of(m_device_interface_base)
        .set_auto_exposure_parameters(target_DN, upper_DN, lower_DN, mean_DN, max_integ_DN, iDeviceId);
}

double oru_device_interface::get_filter_data(double* filter_buffer, int for_num_averages, int dark_correction_mode,
                                             int useContAcq, unsigned int iDeviceId) {
    return device_of(m_device_interface_base)
        .get_filter_data(filter_buffer, for_num_averages, dark_correction_mode, useContAcq, iDeviceId);
}

double oru_device_interface::get_filter_data(std::vector<double>& filter_data, int average, int darkcorrectionMode,
                                             bool useAE, int deviceId, int useContAcq) {
    return device_of(m_device_interface_base)
        .get_filter_data(filter_data, average, darkcorrectionMode, useAE, deviceId, useContAcq);
}

int oru_device_interface::get_filter_data_2048(std::vector<char>& filter_data, int deviceId) {
    return device_of(m_device_interface_base).get_filter_data_2048(filter_data, deviceId);
}

void oru_device_interface::get_background_filter_data(double* filter_buffer, int frame_average, int iDeviceId) {
    device_of(m_device_interface_base).get_background_filter_data(filter_buffer, frame_average, iDeviceId);
}

std::vector<int> oru_device_interface::get_abnormal_filters(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_abnormal_filters(iDeviceId);
}

void oru_device_interface::set_frame_acquisition_conditions(const SDataAcqCondition& AcqCond, int deviceId) {
    device_of(m_device_interface_base).set_frame_acquisition_conditions(AcqCond, deviceId);
}

void oru_device_interface::set_acq_mode(int acq_mode) { device_of(m_device_interface_base).set_acq_mode(acq_mode); }

void oru_device_interface::get_acq_mode(int* acq_mode) { device_of(m_device_interface_base).get_acq_mode(acq_mode); }

int oru_device_interface::get_shutter_speed(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_shutter_speed(iDeviceId);
}

void oru_device_interface::set_shutter_speed(int set_shutter, unsigned int iDeviceId) {
    device_of(m_device_interface_base).set_shutter_speed(set_shutter, iDeviceId);
}

int oru_device_interface::get_blank_time(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_blank_time(iDeviceId);
}

void oru_device_interface::set_blank_time(int blank_time, unsigned int iDeviceId) {
    device_of(m_device_interface_base).set_blank_time(blank_time, iDeviceId);
}

int oru_device_interface::get_min_shutter_speed(unsigned int) { return 1; }

int oru_device_interface::get_max_shutter_speed(unsigned int) { return 500000; }

int oru_device_interface::shutter_to_exposure_time_ms(int MCLK, int shutter, double* exposure_time_val) {
    return device_of(m_device_interface_base).shutter_to_exposure_time_ms(MCLK, shutter, exposure_time_val);
}

int oru_device_interface::exposure_tim_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter) {
    return device_of(m_device_interface_base).exposure_tim_ms_to_shutter(MCLK, exposure_time_val, shutter);
}

int oru_device_interface::get_adc_range(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_adc_range(iDeviceId);
}

// Resolution 0 on device 0.
void oru_device_interface::set_adc_settings(unsigned char adc_range_index, unsigned char gain) {
    device_of(m_device_interface_base).set_adc_settings(adc_range_index, gain, 0, 0);
}

void oru_device_interface::set_adc_settings(unsigned char adc_range_index, unsigned char gain, unsigned char res,
                                            unsigned int iDeviceId) {
    device_of(m_device_interface_base).set_adc_settings(adc_range_index, gain, res, iDeviceId);
}

void oru_device_interface::get_adcsettings(unsigned char* adc_range_index, unsigned char* gain, unsigned char* res,
                                           unsigned int iDeviceId) {
    device_of(m_device_interface_base).get_adcsettings(adc_range_index, gain, res, iDeviceId);
}

double oru_device_interface::get_min_filter_out(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_min_filter_out(iDeviceId);
}

double oru_device_interface::get_max_filter_out(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_max_filter_out(iDeviceId);
}

int oru_device_interface::get_num_filters(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_num_filters(iDeviceId);
}

double oru_device_interface::get_start_lambda() { return 340.0; }

double oru_device_interface::get_end_lambda() { return 1100.0; }

double oru_device_interface::get_interval() { return 5.0; }

int oru_device_interface::get_resolution() { return 1; }

void oru_device_interface::get_sensor_id(char* lot_char, short* lot_id, short* wafer_id, short* x_coord, short* y_coord,
                                         short* sensor_type, unsigned int iDeviceId) {
    if (m_device_interface_base == nullptr) {
        oru_log(kLogError, "##### m_device_interface_base is NULL!!\n");
        return;
    }
    device_of(m_device_interface_base)
        .get_sensor_id(lot_char, lot_id, wafer_id, x_coord, y_coord, sensor_type, iDeviceId);
}

void oru_device_interface::get_sensor_id(char* sensor_id, unsigned int iDeviceId) {
    device_of(m_device_interface_base).get_sensor_id(sensor_id, iDeviceId);
}

std::string oru_device_interface::get_sensor_id(unsigned int iDeviceId) {
    return device_of(m_device_interface_base).get_sensor_id(iDeviceId);
}

std::string oru_device_interface::decode_sensor_id(char* sensor_id, unsigned int iDeviceId) {
    return device_of(m_device_interface_base).decode_sensor_id(sensor_id, iDeviceId);
}

int oru_device_interface::set_onboard_frame_average(unsigned char average_count, unsigned int device_id) {
    try {
        device_of(m_device_interface_base).set_onboard_frame_average(average_count, device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}

int oru_device_interface::get_onboard_frame_average(unsigned int device_id) {
    try {
        return device_of(m_device_interface_base).get_onboard_frame_average(device_id) & 0xFF;
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::set_onboard_dark_correction(bool bEnable, unsigned int device_id) {
    try {
        return device_of(m_device_interface_base).set_onboard_dark_correction(bEnable, device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::get_onboard_dark_correction(unsigned int device_id) {
    try {
        return device_of(m_device_interface_base).get_onboard_dark_correction(device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::get_onboard_dark_frame(unsigned int device_id) {
    try {
        return device_of(m_device_interface_base).get_onboard_dark_frame(device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::get_poi_info(std::vector<int>& poi, unsigned int iDeviceId) {
    try {
        return device_of(m_device_interface_base).get_poi_info(poi, iDeviceId);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::set_poi_info(std::vector<int>& poi, unsigned int iDeviceId) {
    try {
        return device_of(m_device_interface_base).set_poi_info(poi, iDeviceId);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

int oru_device_interface::get_poi_filter_data(std::vector<int>& poi_filter_buffer, int poi_size,
                                              std::vector<double>& poi_background, unsigned int iDeviceId) {
    try {
        return device_of(m_device_interface_base)
            .get_poi_filter_data(poi_filter_buffer, poi_size, poi_background, iDeviceId);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

void oru_device_interface::set_led_module_op_mode(int op_mode, unsigned int iDeviceId) {
    device_of(m_device_interface_base).set_led_module_op_mode(op_mode, iDeviceId);
}

int oru_device_interface::set_led_state(bool* on_array, int num_LED, int intensity, unsigned int iDeviceId) {
    return device_of(m_device_interface_base).set_led_state(on_array, num_LED, intensity, iDeviceId) ? 1 : 0;
}

int oru_device_interface::set_led_opmode(int iOpMode, int iToggleIntervalTime, unsigned int iDeviceId) {
    return device_of(m_device_interface_base).set_led_opmode(iOpMode, iToggleIntervalTime, iDeviceId) ? 1 : 0;
}

int oru_device_interface::leddriver_isopen() { return device_of(m_device_interface_base).leddriver_isopen(); }

int oru_device_interface::leddriver_close() { return device_of(m_device_interface_base).leddriver_close(); }

// Intensity 0 means all LEDs off.
int oru_device_interface::leddriver_set_led_state(bool* on_array, int num_LED, int intensity) {
    if (intensity != 0) return device_of(m_device_interface_base).leddriver_set_led_state(on_array, num_LED, intensity);
    return device_of(m_device_interface_base).leddriver_turn_off_all();
}

int oru_device_interface::leddriver_turn_off_all() {
    return device_of(m_device_interface_base).leddriver_turn_off_all();
}
