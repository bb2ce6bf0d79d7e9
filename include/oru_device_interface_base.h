// The per-sensor device object behind the facade: one object with a fixed
// table of virtual operations over the free functions of the device layer.
// It guards device access with its initialisation flag and turns the device
// layer's result codes into oru_base_exception. Internal (not exported).
#ifndef ORU_DEVICE_INTERFACE_BASE_H
#define ORU_DEVICE_INTERFACE_BASE_H

#include "oru_base_exception.h"
#include "oru_data_acq_condition.h"

#include <map>
#include <string>
#include <vector>

struct libusb_device;
struct libusb_context;

typedef double FLOAT64_TYPE;

// Process-wide switches shared by every device object.
extern int g_current_shutter_speed;  // last value given to set_shutter_speed
extern bool g_bEnableSpatialFiltering;  // stored only; no filtering is applied
extern int g_iSpatialFilterSize;
// Puts the three back to their start values (tests).
void reset_device_object_state();

class oru_device_interface_base {
public:
    explicit oru_device_interface_base(unsigned int iReserved);
    // Not virtual: the facade never deletes its device object.
    ~oru_device_interface_base();

    oru_device_interface_base(const oru_device_interface_base&) = delete;
    oru_device_interface_base& operator=(const oru_device_interface_base&) = delete;

    // The virtual operations, in their fixed table order (0 to 36).
    virtual void initialize();  // 0
    virtual int initialize(unsigned int iDeviceId);  // 1
    virtual bool is_initialized(unsigned int iDeviceId);  // 2
    virtual void finalize(unsigned int iDeviceId);  // 3
    virtual int reconnect_device(unsigned int& iDeviceId, std::string dark_data_file, libusb_device* pDev,
                                 libusb_context* lctx);  // 4
    virtual void enable_spatial_filtering(bool bEnable, int iSize, unsigned int iDeviceId);  // 5
    virtual int find_optimal_shutter_speed(const std::vector<int>& valid_filter_list,
                                           const std::vector<double>& background_data, int saturation_value,
                                           int sleep_time,
                                           unsigned int iDeviceId);  // 6
    virtual void set_auto_exposure_parameters(int target_DN, unsigned int iDeviceId);  // 7
    virtual void set_auto_exposure_parameters(int target_DN, int upper_DN, int lower_DN, int mean_DN, int max_integ_DN,
                                              unsigned int iDeviceId);  // 8
    virtual void enable_frame_moving_average(bool bEnable, unsigned int iDeviceId);  // 9
    virtual void get_background_filter_data(FLOAT64_TYPE* filter_buffer, int frame_average,
                                            int iDeviceId);  // 10
    virtual double get_filter_data(FLOAT64_TYPE* filter_buffer, int for_num_averages, int dark_correction_mode,
                                   int useContAcq,
                                   unsigned int iDeviceId);  // 11
    virtual int get_filter_data(std::vector<double>& filter_data, int average, int darkcorrectionMode, bool useAE,
                                int deviceId, int useContAcq);  // 12
    virtual int get_filter_data_2048(std::vector<char>& filter_data, int deviceId);  // 13
    virtual int get_shutter_speed(unsigned int iDeviceId);  // 14
    virtual void set_shutter_speed(int set_shutter, unsigned int iDeviceId);  // 15
    virtual void set_blank_time(int blank_time, unsigned int iDeviceId);  // 16
    virtual int get_blank_time(unsigned int iDeviceId);  // 17
    virtual int get_min_shutter_speed(unsigned int iDeviceId);  // 18
    virtual int get_max_shutter_speed(unsigned int iDeviceId);  // 19
    virtual double get_min_filter_out(unsigned int iDeviceId);  // 20
    virtual double get_max_filter_out(unsigned int iDeviceId);  // 21
    virtual int get_num_filters(unsigned int iDeviceId);  // 22
    virtual std::vector<int> get_abnormal_filters(unsigned int iDeviceId);  // 23
    virtual void set_led_module_op_mode(int op_mode, unsigned int iDeviceId);  // 24
    virtual int set_onboard_frame_average(unsigned char average_count, unsigned int device_id);  // 25
    virtual int get_onboard_frame_average(unsigned int device_id);  // 26
    virtual int set_onboard_dark_correction(bool bEnable, unsigned int device_id);  // 27
    virtual int get_onboard_dark_correction(unsigned int device_id);  // 28
    virtual int get_onboard_dark_frame(unsigned int device_id);  // 29
    virtual int get_poi_info(std::vector<int>& poi, unsigned int iDeviceId);  // 30
    virtual int set_poi_info(std::vector<int>& poi, unsigned int iDeviceId);  // 31
    virtual int get_poi_filter_data(std::vector<int>& poi_filter_buffer, int poi_size,
                                    std::vector<double>& poi_background,
                                    unsigned int iDeviceId);  // 32
    virtual int leddriver_isopen();  // 33
    virtual int leddriver_close();  // 34
    virtual int leddriver_set_led_state(bool* on_array, int num_LED, int intensity);  // 35
    virtual int leddriver_turn_off_all();  // 36

    // Non-virtual operations.
    int get_adc_range(unsigned int iDeviceId);
    void set_frame_acquisition_conditions(const SDataAcqCondition& AcqCond, int deviceId);
    void set_acq_mode(int acq_mode);
    void get_acq_mode(int* acq_mode);
    void activate_device(unsigned int deviceid);
    int get_total_devices();
    void test_device(bool& bSensorBoardOk, bool& bControllerBoardOk, unsigned int iDeviceId);
    int shutter_to_exposure_time_ms(int MCLK, int shutter, double* exposure_time_val);
    int exposure_tim_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter);
    int set_led_state(bool* on_array, int num_LED, int intensity, unsigned int iDeviceId);
    int set_led_opmode(int iOpMode, int iToggleIntervalTime, unsigned int iDeviceId);
    void set_adc_settings(unsigned char adc_range_index, unsigned char gain);
    void set_adc_settings(unsigned char adc_range_index, unsigned char gain, unsigned char res, unsigned int iDeviceId);
    void get_adcsettings(unsigned char* adc_range_index, unsigned char* gain, unsigned char* res,
                         unsigned int iDeviceId);
    void get_sensor_id(char* sensor_id, unsigned int iDeviceId);
    void get_sensor_id(char* lot_char, short* lot_id, short* wafer_id, short* x_coord, short* y_coord,
                       short* sensor_type, unsigned int iDeviceId);
    std::string get_sensor_id(unsigned int iDeviceId);
    std::string decode_sensor_id(char* sensor_id, unsigned int iDeviceId);

    // State (public: the class is internal and its tests inspect it).
    bool m_interface_is_initialized;
    double m_dark_average_val;
    double m_current_filter_data[1024];
    double m_current_dark_map[1024];
    int m_ShutterSpeed2;
    int m_adc_range;
    int m_adc_gain;
    int m_adc_res;
    std::string m_sensor_id;
    bool m_bEnableOBDC;
    bool m_bFilterDataAtSS1IsReady;
    std::map<int, SDataAcqCondition> m_AcqCond;

private:
    // Throws lu_ec_initialization_required unless initialize succeeded.
    void require_initialized() const;
    // Averaged read through the acquisition layer; a failed acquisition
    // (for instance a stalled stream) is thrown with its code.
    static void read_averaged_frame(double* out, int averages, int dark_correction_mode, int useContAcq,
                                    unsigned int iDeviceId);
};

// Throws oru_base_exception(code) unless code is lu_ec_success.
void oru_throw_on_failure(int code);

#endif  // ORU_DEVICE_INTERFACE_BASE_H
