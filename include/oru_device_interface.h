// Per-sensor facade held by the exported functions and by the connection
// registry. It owns one device object, created in initialize, and passes the
// operations on to it; a few add a guard, a clamp or a constant answer.
#ifndef ORU_DEVICE_INTERFACE_H
#define ORU_DEVICE_INTERFACE_H

#include "oru_data_acq_condition.h"
#include "oru_export.h"

#include <string>
#include <vector>

struct libusb_device;
struct libusb_context;
class oru_device_interface_base;

class ORU_EXPORT oru_device_interface {
public:
    oru_device_interface() = default;
    // Does not destroy the device object; finalize releases the sensor.
    ~oru_device_interface() = default;

    // Life cycle
    int initialize(unsigned int iDeviceId);
    void initialize();
    bool is_initialized(unsigned int iDeviceId);
    void finalize(unsigned int iDeviceId);
    int reconnect_device(const unsigned int& iDeviceId, std::string dark_data_file, libusb_device* pDev,
                         libusb_context* lctx, bool detach);
    void activate_device(unsigned int deviceid);
    int get_total_devices();
    bool test_device(unsigned int iDeviceId);

    // Processing switches
    void enable_spatial_filtering(bool bEnable, int iSize, unsigned int iDeviceId);
    void enable_frame_moving_average(bool bEnable, unsigned int iDeviceId);

    // Auto exposure
    int find_optimal_shutter_speed(std::vector<int>& valid_filter_list, std::vector<double>& background_data,
                                   int saturation_value, int sleep_time, unsigned int iDeviceId);
    void set_auto_exposure_parameters(int target_DN, unsigned int iDeviceId);
    void set_auto_exposure_parameters(int target_DN, int upper_DN, int lower_DN, int mean_DN, int max_integ_DN,
                                      unsigned int iDeviceId);

    // Filter data
    double get_filter_data(double* filter_buffer, int for_num_averages, int dark_correction_mode, int useContAcq,
                           unsigned int iDeviceId);
    double get_filter_data(std::vector<double>& filter_data, int average, int darkcorrectionMode, bool useAE,
                           int deviceId, int useContAcq);
    int get_filter_data_2048(std::vector<char>& filter_data, int deviceId);
    void get_background_filter_data(double* filter_buffer, int frame_average, int iDeviceId);
    std::vector<int> get_abnormal_filters(unsigned int iDeviceId);
    void set_frame_acquisition_conditions(const SDataAcqCondition& AcqCond, int deviceId);
    void set_acq_mode(int acq_mode);
    void get_acq_mode(int* acq_mode);

    // Exposure and ADC
    int get_shutter_speed(unsigned int iDeviceId);
    void set_shutter_speed(int set_shutter, unsigned int iDeviceId);
    int get_blank_time(unsigned int iDeviceId);
    void set_blank_time(int blank_time, unsigned int iDeviceId);
    int get_min_shutter_speed(unsigned int iDeviceId);
    int get_max_shutter_speed(unsigned int iDeviceId);
    int shutter_to_exposure_time_ms(int MCLK, int shutter, double* exposure_time_val);
    int exposure_tim_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter);
    int get_adc_range(unsigned int iDeviceId);
    void set_adc_settings(unsigned char adc_range_index, unsigned char gain);
    void set_adc_settings(unsigned char adc_range_index, unsigned char gain, unsigned char res, unsigned int iDeviceId);
    void get_adcsettings(unsigned char* adc_range_index, unsigned char* gain, unsigned char* res,
                         unsigned int iDeviceId);

    // Sensor description
    double get_min_filter_out(unsigned int iDeviceId);
    double get_max_filter_out(unsigned int iDeviceId);
    int get_num_filters(unsigned int iDeviceId);
    double get_start_lambda();
    double get_end_lambda();
    double get_interval();
    int get_resolution();
    void get_sensor_id(char* lot_char, short* lot_id, short* wafer_id, short* x_coord, short* y_coord,
                       short* sensor_type, unsigned int iDeviceId);
    void get_sensor_id(char* sensor_id, unsigned int iDeviceId);
    std::string get_sensor_id(unsigned int iDeviceId);
    std::string decode_sensor_id(char* sensor_id, unsigned int iDeviceId);

    // On-board processing: a caught oru_base_exception is returned as its code.
    int set_onboard_frame_average(unsigned char average_count, unsigned int device_id);
    int get_onboard_frame_average(unsigned int device_id);
    int set_onboard_dark_correction(bool bEnable, unsigned int device_id);
    int get_onboard_dark_correction(unsigned int device_id);
    int get_onboard_dark_frame(unsigned int device_id);
    int get_poi_info(std::vector<int>& poi, unsigned int iDeviceId);
    int set_poi_info(std::vector<int>& poi, unsigned int iDeviceId);
    int get_poi_filter_data(std::vector<int>& poi_filter_buffer, int poi_size, std::vector<double>& poi_background,
                            unsigned int iDeviceId);

    // LED module and external LED driver
    void set_led_module_op_mode(int op_mode, unsigned int iDeviceId);
    int set_led_state(bool* on_array, int num_LED, int intensity, unsigned int iDeviceId);
    int set_led_opmode(int iOpMode, int iToggleIntervalTime, unsigned int iDeviceId);
    int leddriver_isopen();
    int leddriver_close();
    int leddriver_set_led_state(bool* on_array, int num_LED, int intensity);
    int leddriver_turn_off_all();

private:
    oru_device_interface_base* m_device_interface_base = nullptr;
    bool m_interface_is_initialized = false;
};

#endif  // ORU_DEVICE_INTERFACE_H
