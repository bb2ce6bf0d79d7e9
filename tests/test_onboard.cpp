// On-board frame averaging and the operations this firmware does not offer.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_onboard_processings.h"

using usbtest::Wire;

namespace {

class Onboard : public usbtest::UsbTest {};

}  // namespace

TEST_F(Onboard, FrameAverageCountIsWrittenAndReadWithPauses) {
    connect_sensors(1);
    set_frame_average_count_for_on_board_processing(0, 0);
    set_frame_average_count_for_on_board_processing(16, 0);
    EXPECT_EQ(get_frame_average_count_for_on_board_processing(0), 16);
    EXPECT_EQ(vsensor::transcript(),
              Wire().cmd_then_pause(54, 0, 20).cmd_then_pause(54, 16, 20).cmd_then_pause(53, 0, 20).str());
}

TEST_F(Onboard, FrameAverageCountWithoutHandleReadsOne) {
    EXPECT_EQ(get_frame_average_count_for_on_board_processing(0), 1);
    EXPECT_EQ(vsensor::transcript(), Wire().pause_ms(20).str());
}

TEST_F(Onboard, UnofferedOperationsSendNothingAndKeepTheirResults) {
    connect_sensors(1);
    int frameBuf[3] = {7, 8, 9};
    set_dark_correction_mode_for_on_board_processing(true, 0);
    EXPECT_EQ(get_dark_correction_mode_for_on_board_processing(0), 0);
    EXPECT_EQ(acquire_sub_frame_data(frameBuf, 1, 0), 0.0);
    EXPECT_EQ(frameBuf[0] + frameBuf[1] + frameBuf[2], 24);
    EXPECT_EQ(read_roi_info_from_fw(61, 1, 0), 1);
    EXPECT_TRUE(get_roi_info_from_sensor(62, 1, 0).empty());
    EXPECT_TRUE(vsensor::events().empty());
}
