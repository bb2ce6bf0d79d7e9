// Processing done by the sensor's microcontroller: on-board frame averaging,
// and the dark-correction / region-of-interest interface (no-ops here).
#ifndef ORU_DEVICE_INTERFACE_ONBOARD_PROCESSINGS_H
#define ORU_DEVICE_INTERFACE_ONBOARD_PROCESSINGS_H

#include <vector>

void set_frame_average_count_for_on_board_processing(unsigned char ucData, unsigned int iDeviceId);
unsigned char get_frame_average_count_for_on_board_processing(unsigned int iDeviceId);
void set_dark_correction_mode_for_on_board_processing(bool bEnable, unsigned int iDeviceId);
unsigned char get_dark_correction_mode_for_on_board_processing(unsigned int iDeviceId);
void get_dark_frame_for_on_board_processing(unsigned int iDeviceId);
void get_roi_info_from_sensor(const std::vector<int>& poi, int iDeviceId);
void set_roi_info_to_sensor(const std::vector<int>& poi, int iDeviceId);
void get_roi_data_from_sensor(const std::vector<int>& poi_data, int iPoiSize, const std::vector<double>& poi_background,
                              int iDeviceId);
double acquire_sub_frame_data(int* frameBuf, int iDarkCorrectionMode, unsigned int iDeviceId);
void write_roi_info_to_fw(int iCommand, int wValue, unsigned int iDeviceId);
int read_roi_info_from_fw(int iCommand, int wValue, unsigned int iDeviceId);
std::vector<int> get_roi_info_from_sensor(int iCommand, int wValue, unsigned int iDeviceId);
void set_roi_info_to_sensor(int iCommand, std::vector<int> POI, unsigned int iDeviceId);

#endif
