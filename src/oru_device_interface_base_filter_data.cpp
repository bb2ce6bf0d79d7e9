// Device object: the operations that hand measured filter values upward
// (averaged frames, background, raw frame, regions of interest).
#include "oru_device_interface_base.h"

#include "efm32com/oru_device_interface_onboard_processings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_streaming.h"

#include <algorithm>

void oru_device_interface_base::read_averaged_frame(double* out, int averages, int dark_correction_mode, int useContAcq,
                                                    unsigned int iDeviceId) {
    ORU_ERROR_CODE error_code = lu_ec_success;
    get_filter_data_from_sensor(out, averages, dark_correction_mode, useContAcq, iDeviceId, &error_code);
    oru_throw_on_failure(error_code);
}

double oru_device_interface_base::get_filter_data(FLOAT64_TYPE* filter_buffer, int for_num_averages,
                                                  int dark_correction_mode, int useContAcq, unsigned int iDeviceId) {
    require_initialized();
    if (filter_buffer == nullptr) throw oru_base_exception(lu_ec_filter_buffer_is_null);

    if (dark_correction_mode == 1) {
        // Mode 1 reads without correction and keeps a copy of the frame.
        const int cur_shutter_speed = get_shutter_speed(iDeviceId);
        (void)cur_shutter_speed;
        read_averaged_frame(m_current_filter_data, for_num_averages, 0, useContAcq, iDeviceId);
        double fMaxVal = 0.0;
        for (int i = 0; i < 1024; ++i) {
            filter_buffer[i] = m_current_filter_data[i];
            fMaxVal = std::max(fMaxVal, m_current_filter_data[i]);
        }
        (void)fMaxVal;
        return 1.0;
    }

    read_averaged_frame(filter_buffer, for_num_averages, dark_correction_mode, useContAcq, iDeviceId);
    return 1.0;
}

int oru_device_interface_base::get_filter_data(std::vector<double>& filter_data, int average, int darkcorrectionMode,
                                               bool /*useAE*/, int deviceId, int useContAcq) {
    filter_data.clear();
    filter_data.resize(1024, 0.0);

    double frame[1024] = {};
    read_averaged_frame(frame, average, darkcorrectionMode, useContAcq, static_cast<unsigned int>(deviceId));

    // The stored conditions decide how many values are delivered; the rest stay 0.0.
    const int datasize = std::clamp(m_AcqCond[deviceId].datasize, 0, 1024);
    std::copy(frame, frame + datasize, filter_data.begin());
    return 0;
}

void oru_device_interface_base::get_background_filter_data(FLOAT64_TYPE* filter_buffer, int frame_average,
                                                           int iDeviceId) {
    const unsigned int device = static_cast<unsigned int>(iDeviceId);
    const int cur_shutter_speed = get_shutter_speed(device);
    if (filter_buffer == nullptr) throw oru_base_exception(lu_ec_background_buffer_is_null);
    // The background is the output at the shortest shutter speed. A failure
    // leaves the sensor at shutter speed 1.
    set_shutter_speed(1, device);
    read_averaged_frame(filter_buffer, frame_average, 0, 0, device);
    set_shutter_speed(cur_shutter_speed, device);
}

int oru_device_interface_base::get_filter_data_2048(std::vector<char>& filter_data, int deviceId) {
    filter_data.clear();
    filter_data.resize(2048);
    char frame[2048] = {};
    acquire_frame_data_2048(frame, static_cast<unsigned int>(deviceId));
    std::copy(frame, frame + 2048, filter_data.begin());
    return 0;
}

int oru_device_interface_base::get_poi_info(std::vector<int>& poi, unsigned int iDeviceId) {
    try {
        get_roi_info_from_sensor(poi, static_cast<int>(iDeviceId));
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}

int oru_device_interface_base::set_poi_info(std::vector<int>& poi, unsigned int iDeviceId) {
    try {
        set_roi_info_to_sensor(poi, static_cast<int>(iDeviceId));
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}

int oru_device_interface_base::get_poi_filter_data(std::vector<int>& poi_filter_buffer, int poi_size,
                                                   std::vector<double>& poi_background, unsigned int iDeviceId) {
    try {
        get_roi_data_from_sensor(poi_filter_buffer, poi_size, poi_background, static_cast<int>(iDeviceId));
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}
