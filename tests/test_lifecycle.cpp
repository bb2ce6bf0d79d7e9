// Repeated bring-up and tear-down: every round gets a fresh event thread and
// bulk transfer and reads frames again, also after the stream failed.
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_frames.h"

#include <chrono>

using streamtest::all_equal;

namespace {

class Lifecycle : public streamtest::StreamTest {};

}  // namespace

TEST_F(Lifecycle, BringUpReadAndTearDownThreeTimesOver) {
    vsensor::add_sensor();
    vsensor::use_frame_counter(0);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_EQ(bring_up_index(0), lu_ec_success);
        EXPECT_TRUE(usb_event_loop_running());
        std::vector<double> out;
        ASSERT_EQ(read(out, 4, 3), lu_ec_success);
        EXPECT_TRUE(all_equal(out, 3.5));
        EXPECT_EQ(tear_down_index(0), 1);
        EXPECT_FALSE(vsensor::is_open(0));
        EXPECT_FALSE(usbEventLoop_thread.joinable());
        EXPECT_FALSE(allocTransferBulkMap.at(0));
    }
}

TEST_F(Lifecycle, StreamThatFailedWorksAgainAfterTearDownAndBringUp) {
    bring_up(1);
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    testing::internal::CaptureStderr();
    acquire_frame_data_bulk(70, 0);
    ASSERT_TRUE(streamtest::wait_for_health(0, kSensorFailed));
    acquire_frame_data_bulk(71, 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(tear_down_index(0), 1);

    vsensor::set_faults(0, vsensor::kFaultNone);
    vsensor::set_constant_frame(0, 777);
    ASSERT_EQ(bring_up_index(0), lu_ec_success);
    EXPECT_EQ(sensor_health(0), kSensorUsable) << "a bring-up makes it usable again";
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 777.0));
}

TEST_F(Lifecycle, SensorTornDownAfterTheEventThreadEndedIsStillReleased) {
    bring_up(2);
    EXPECT_EQ(tear_down_index(1), 1);  // ends the one event thread
    EXPECT_FALSE(usb_event_loop_running());
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_FALSE(vsensor::is_claimed(0));

    vsensor::set_constant_frame(0, 100);
    vsensor::set_constant_frame(1, 200);
    ASSERT_EQ(bring_up_index(0), lu_ec_success);
    ASSERT_EQ(bring_up_index(1), lu_ec_success);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 3, 1), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 200.0));
    EXPECT_EQ(read(out, 2, 3, 0), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 100.0));
}

TEST_F(Lifecycle, SecondSensorLeftWithoutTheEventThreadTimesOutInsteadOfHanging) {
    bring_up(2);
    EXPECT_EQ(tear_down_index(0), 1);  // the thread ends with sensor 0's tear-down
    set_frame_wait_margin_ms(100);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 3, 1), lu_ec_fw_recv_timeout);
}
