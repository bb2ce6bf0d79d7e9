// On-board frame averaging, and the dark-correction / region-of-interest
// operations that this firmware does not offer (they keep fixed results).
#include "efm32com/oru_device_interface_onboard_processings.h"

#include "efm32com/oru_device_interface_stm.h"

#include <unistd.h>

namespace {

constexpr int kCmdSetFrameAverage = 54;
constexpr int kCmdGetFrameAverage = 53;
constexpr unsigned int kFrameAveragePauseUs = 20000;
constexpr int kSuccess = 1;

}  // namespace

void set_frame_average_count_for_on_board_processing(unsigned char ucData, unsigned int iDeviceId) {
    do_control_transfer(kCmdSetFrameAverage, ucData, iDeviceId);
    usleep(kFrameAveragePauseUs);
}

unsigned char get_frame_average_count_for_on_board_processing(unsigned int iDeviceId) {
    const unsigned char ucCount = do_control_transfer(kCmdGetFrameAverage, 0, iDeviceId);
    usleep(kFrameAveragePauseUs);
    return ucCount;
}

void set_dark_correction_mode_for_on_board_processing(bool, unsigned int) {}

unsigned char get_dark_correction_mode_for_on_board_processing(unsigned int) { return 0; }

void get_dark_frame_for_on_board_processing(unsigned int) {}

void get_roi_info_from_sensor(const std::vector<int>&, int) {}

void set_roi_info_to_sensor(const std::vector<int>&, int) {}

void get_roi_data_from_sensor(const std::vector<int>&, int, const std::vector<double>&, int) {}

double acquire_sub_frame_data(int*, int, unsigned int) { return 0.0; }

void write_roi_info_to_fw(int, int, unsigned int) {}

int read_roi_info_from_fw(int, int, unsigned int) { return kSuccess; }

std::vector<int> get_roi_info_from_sensor(int, int, unsigned int) { return {}; }

void set_roi_info_to_sensor(int, std::vector<int>, unsigned int) {}
