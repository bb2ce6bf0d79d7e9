// Device object: life cycle, exposure and ADC settings, constants, sensor
// identity and the auto-exposure entry.
#include "oru_device_interface_base.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_device_info.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_usb.h"
#include "oru_exposure_units.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>

// Written only here, by the device objects on the caller thread; no lock.
int g_current_shutter_speed = 1;  // the shutter speed every bring-up leaves on the sensor
bool g_bEnableSpatialFiltering = false;
int g_iSpatialFilterSize = 0;

void reset_device_object_state() {
    g_current_shutter_speed = 1;
    g_bEnableSpatialFiltering = false;
    g_iSpatialFilterSize = 0;
}

void oru_throw_on_failure(int code) {
    if (code != lu_ec_success) throw oru_base_exception(static_cast<ORU_ERROR_CODE>(code));
}

oru_device_interface_base::oru_device_interface_base(unsigned int /*iReserved*/)
    : m_interface_is_initialized(false),
      m_dark_average_val(0.0),
      m_ShutterSpeed2(20),
      m_adc_range(132),
      m_adc_gain(1),
      m_adc_res(0),
      m_bEnableOBDC(false),
      m_bFilterDataAtSS1IsReady(false) {
    clear_frame_ring();
}

// Always device 0, whatever sensor this object served.
oru_device_interface_base::~oru_device_interface_base() { close_device_interface(0); }

void oru_device_interface_base::require_initialized() const {
    if (!m_interface_is_initialized) throw oru_base_exception(lu_ec_initialization_required);
}

void oru_device_interface_base::initialize() { initialize(0u); }

int oru_device_interface_base::initialize(unsigned int iDeviceId) {
    set_device_index(iDeviceId);
    if (initialize_device_interface(iDeviceId) != lu_ec_success) return -1;
    m_interface_is_initialized = true;
    set_shutter_speed_to_sensor(1, iDeviceId);
    return 1;
}

bool oru_device_interface_base::is_initialized(unsigned int) { return m_interface_is_initialized; }

void oru_device_interface_base::finalize(unsigned int iDeviceId) {
    require_initialized();
    close_device_interface(iDeviceId);
}

int oru_device_interface_base::reconnect_device(unsigned int& iDeviceId, std::string /*dark_data_file*/,
                                                libusb_device* pDev, libusb_context* lctx) {
    return ::reconnect_device(iDeviceId, pDev, lctx, true) == 1 ? 1 : -1;
}

void oru_device_interface_base::enable_spatial_filtering(bool bEnable, int iSize, unsigned int) {
    g_bEnableSpatialFiltering = bEnable;
    g_iSpatialFilterSize = iSize;
}

int oru_device_interface_base::find_optimal_shutter_speed(const std::vector<int>& valid_filter_list,
                                                          const std::vector<double>& /*background_data*/,
                                                          int saturation_value, int sleep_time,
                                                          unsigned int iDeviceId) {
    // Callers number filters from 1; the search works from 0.
    std::vector<int> filters = valid_filter_list;
    if (filters.empty()) {
        filters.resize(1024);
        std::iota(filters.begin(), filters.end(), 0);
    } else {
        for (int& index : filters) --index;
    }
    if (saturation_value != -1) set_params_for_ae_module(saturation_value, iDeviceId);

    ORU_ERROR_CODE error_code = lu_ec_success;
    const int optimal_ss = find_optimal_shutter_speed_with_ae(filters, 10, sleep_time, iDeviceId, &error_code);
    oru_throw_on_failure(error_code);
    return optimal_ss;
}

void oru_device_interface_base::set_auto_exposure_parameters(int target_DN, unsigned int iDeviceId) {
    set_params_for_ae_module(target_DN, iDeviceId);
}

void oru_device_interface_base::set_auto_exposure_parameters(int target_DN, int upper_DN, int lower_DN, int mean_DN,
                                                             int max_integ_DN, unsigned int iDeviceId) {
    set_params_for_ae_module(target_DN, upper_DN, lower_DN, mean_DN, max_integ_DN, iDeviceId);
}

void oru_device_interface_base::enable_frame_moving_average(bool bEnable, unsigned int) {
    set_frame_moving_average(bEnable);
}

int oru_device_interface_base::get_shutter_speed(unsigned int) {
    require_initialized();
    return g_current_shutter_speed;
}

void oru_device_interface_base::set_shutter_speed(int set_shutter, unsigned int iDeviceId) {
    require_initialized();
    const ORU_ERROR_CODE result = set_shutter_speed_to_sensor(set_shutter, iDeviceId);
    g_current_shutter_speed = set_shutter;  // kept even when the write failed
    oru_throw_on_failure(result);
}

void oru_device_interface_base::set_blank_time(int blank_time, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(set_blank_time_to_sensor(blank_time, iDeviceId));
}

int oru_device_interface_base::get_blank_time(unsigned int iDeviceId) {
    require_initialized();
    int blank_time = 0;
    oru_throw_on_failure(get_blank_time_from_sensor(&blank_time, iDeviceId));
    return blank_time;
}

int oru_device_interface_base::get_min_shutter_speed(unsigned int) { return 1; }
int oru_device_interface_base::get_max_shutter_speed(unsigned int) { return 16777215; }
double oru_device_interface_base::get_min_filter_out(unsigned int) { return 0.0; }
double oru_device_interface_base::get_max_filter_out(unsigned int) { return 4095.0; }
int oru_device_interface_base::get_num_filters(unsigned int) { return 1024; }

int oru_device_interface_base::get_adc_range(unsigned int) { return m_adc_range; }

void oru_device_interface_base::set_frame_acquisition_conditions(const SDataAcqCondition& AcqCond, int deviceId) {
    SDataAcqCondition& stored = m_AcqCond[deviceId];
    stored = AcqCond;
    activate_device(static_cast<unsigned int>(deviceId));
    set_shutter_speed(stored.ss, static_cast<unsigned int>(deviceId));
}

// Acquisition mode always goes to device 0.
void oru_device_interface_base::set_acq_mode(int acq_mode) {
    require_initialized();
    oru_throw_on_failure(set_frame_data_acq_mode(static_cast<unsigned int>(acq_mode), 0));
}

void oru_device_interface_base::get_acq_mode(int*) { require_initialized(); }

void oru_device_interface_base::activate_device(unsigned int deviceid) { set_device_index(deviceid); }

int oru_device_interface_base::get_total_devices() { return static_cast<int>(get_connected_total_devices()); }

void oru_device_interface_base::test_device(bool& bSensorBoardOk, bool& bControllerBoardOk, unsigned int iDeviceId) {
    if (!m_interface_is_initialized) {
        bSensorBoardOk = false;
        bControllerBoardOk = false;
        throw oru_base_exception(lu_ec_initialization_required);
    }
    bControllerBoardOk = true;
    int shutter_speed = 0;
    bSensorBoardOk = (get_current_shutter_speed(&shutter_speed, iDeviceId) == lu_ec_success);
}

// The arithmetic is shared with the exported sensor-free conversions.
int oru_device_interface_base::shutter_to_exposure_time_ms(int MCLK, int shutter, double* exposure_time_val) {
    oru_shutter_to_exposure_ms(MCLK, shutter, exposure_time_val);
    return 1;
}

int oru_device_interface_base::exposure_tim_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter) {
    oru_exposure_ms_to_shutter(MCLK, exposure_time_val, shutter);
    return 1;
}

// The two-argument form always addresses device 0 with resolution 0.
void oru_device_interface_base::set_adc_settings(unsigned char adc_range_index, unsigned char gain) {
    require_initialized();
    oru_throw_on_failure(set_adc_setting_values(adc_range_index, gain, 0, 0));
}

void oru_device_interface_base::set_adc_settings(unsigned char adc_range_index, unsigned char gain, unsigned char res,
                                                 unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(set_adc_setting_values(adc_range_index, gain, res, iDeviceId));
}

void oru_device_interface_base::get_adcsettings(unsigned char* adc_range_index, unsigned char* gain, unsigned char* res,
                                                unsigned int iDeviceId) {
    require_initialized();
    if (adc_range_index == nullptr || gain == nullptr || res == nullptr) throw oru_base_exception(lu_ec_memory_is_null);
    oru_throw_on_failure(get_adc_setting_values(adc_range_index, gain, res, iDeviceId));
}

void oru_device_interface_base::get_sensor_id(char* sensor_id, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(get_sensor_id_with_index(sensor_id, iDeviceId));
}

void oru_device_interface_base::get_sensor_id(char* lot_char, short* lot_id, short* wafer_id, short* x_coord,
                                              short* y_coord, short* sensor_type, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(
        get_sensor_id_with_index(lot_char, lot_id, wafer_id, x_coord, y_coord, sensor_type, iDeviceId));
}

std::string oru_device_interface_base::get_sensor_id(unsigned int iDeviceId) {
    SSensorIdFields f{'A', 0, 0, 0, 0, 0};
    oru_throw_on_failure(get_sensor_id_with_index(&f.lot_char, &f.lot_id, &f.wafer_id, &f.x_coord, &f.y_coord,
                                                  &f.sensor_type, iDeviceId));
    return format_sensor_id(f);
}

std::string oru_device_interface_base::decode_sensor_id(char* sensor_id, unsigned int iDeviceId) {
    require_initialized();
    return decode_sensor_id_from_string(sensor_id, iDeviceId);
}
