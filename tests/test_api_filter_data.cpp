// duGetFilterData: averaged filter data of the active sensor.
#include "api_test_support.h"

#include "oru_base_exception.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_device_api.h"

#include <vector>

namespace {

class ApiFilterData : public VirtualBusTest {
protected:
    void connect(int sensors) {
        add_sensors(sensors);
        StdoutCapture out;
        ASSERT_EQ(duConnect(), sensors);
    }
};

TEST_F(ApiFilterData, ConstantFrameGivesThatValueEverywhere) {
    connect(1);
    vsensor::set_constant_frame(0, 1234);
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 5), 1);
    EXPECT_EQ(out.text(), "");
    for (int i = 0; i < 1024; ++i) ASSERT_DOUBLE_EQ(output[static_cast<std::size_t>(i)], 1234.0) << i;
}

TEST_F(ApiFilterData, PatternArrivesFilterByFilter) {
    connect(1);
    std::vector<uint16_t> pattern(1024);
    for (int i = 0; i < 1024; ++i) pattern[static_cast<std::size_t>(i)] = static_cast<uint16_t>((i * 37) % 4096);
    pattern[0] = 4095;
    pattern[1023] = 0;
    vsensor::set_pattern(0, pattern);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 3), 1);
    for (int i = 0; i < 1024; ++i)
        ASSERT_DOUBLE_EQ(output[static_cast<std::size_t>(i)], pattern[static_cast<std::size_t>(i)]) << i;
}

TEST_F(ApiFilterData, AveragesTheRequestedNumberOfFrames) {
    connect(1);
    // Every filter reads the frame number; a single shot drops frames 0 and 1.
    vsensor::use_frame_counter(0);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 4), 1);
    EXPECT_DOUBLE_EQ(output[0], (2 + 3 + 4 + 5) / 4.0);
    EXPECT_DOUBLE_EQ(output[1023], (2 + 3 + 4 + 5) / 4.0);
    EXPECT_EQ(duGetFilterData(output.data(), 1), 1);
    EXPECT_DOUBLE_EQ(output[512], 2.0);
}

// Only a per-filter sum is kept: memory stays small for any count, and the
// mean is exactly that of every frame.
TEST_F(ApiFilterData, LargeAveragesTakeConstantMemoryAndAverageEveryFrame) {
    connect(1);
    vsensor::use_frame_counter(0);
    std::vector<double> output(1024, -1.0);
    const int n = 5000;
    ASSERT_EQ(duGetFilterData(output.data(), n), 1);
    // Frames 2 .. n+1 (a single shot drops two), each value its number % 4096.
    double sum = 0.0;
    for (int k = 2; k < n + 2; ++k) sum += k % 4096;
    EXPECT_EQ(output[0], sum / n);
    EXPECT_EQ(output[1023], sum / n);
    ASSERT_EQ(duGetFilterData(output.data(), 3), 1) << "and the next request starts afresh";
    EXPECT_EQ(output[0], 3.0);
}

// The bound of the wait follows the active sensor's own shutter speed, not
// the one set last on any sensor.
TEST_F(ApiFilterData, WaitBoundFollowsTheActiveSensorsShutterSpeed) {
    connect(2);
    set_frame_wait_margin_ms(0);  // the bound is then the frames' own time, doubled
    vsensor::set_realtime(true);
    ASSERT_EQ(duSetShutterSpeed(20), 1);  // 18.4 ms a frame on sensor 0
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    ASSERT_EQ(duSetShutterSpeed(1), 1);  // set last, on the other sensor
    ASSERT_EQ(duActivateSensorWithIndex(0), 1);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 10), 1);
    vsensor::set_realtime(false);
}

TEST_F(ApiFilterData, ReadsTheActiveSensor) {
    connect(2);
    vsensor::set_constant_frame(0, 100);
    vsensor::set_constant_frame(1, 2000);
    std::vector<double> output(1024, -1.0);
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    EXPECT_EQ(duGetFilterData(output.data(), 2), 1);
    EXPECT_DOUBLE_EQ(output[7], 2000.0);
    ASSERT_EQ(duActivateSensorWithIndex(0), 1);
    EXPECT_EQ(duGetFilterData(output.data(), 2), 1);
    EXPECT_DOUBLE_EQ(output[7], 100.0);
}

TEST_F(ApiFilterData, StartsAndStopsStreamingOnTheActiveSensor) {
    connect(2);
    duActivateSensorWithIndex(1);
    vsensor::clear_events();
    std::vector<double> output(1024);
    ASSERT_EQ(duGetFilterData(output.data(), 2), 1);
    const std::vector<std::string> on_one = transcript_items(1);
    EXPECT_NE(find_item(on_one, "out 70 value 0 index 1"), -1) << vsensor::transcript(1);
    EXPECT_NE(find_item(on_one, "out 71 value 0 index 1"), -1);
    EXPECT_EQ(find_item(transcript_items(0), "out 70"), -1) << vsensor::transcript(0);
    EXPECT_FALSE(vsensor::streaming(1));
}

TEST_F(ApiFilterData, StalledSensorGivesTimeout) {
    connect(1);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 3), -9);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_fw_recv_timeout));
}

TEST_F(ApiFilterData, StalledSecondSensorDoesNotAffectTheFirst) {
    connect(2);
    vsensor::set_constant_frame(0, 321);
    vsensor::set_faults(1, vsensor::kFaultStreamStall);
    std::vector<double> output(1024, -1.0);
    duActivateSensorWithIndex(1);
    {
        StdoutCapture out;
        EXPECT_EQ(duGetFilterData(output.data(), 1), -9);
    }
    duActivateSensorWithIndex(0);
    EXPECT_EQ(duGetFilterData(output.data(), 1), 1);
    EXPECT_DOUBLE_EQ(output[100], 321.0);
}

TEST_F(ApiFilterData, NullOutputIsReportedNotWritten) {
    connect(1);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(nullptr, 1), -19);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_filter_buffer_is_null));
}

TEST_F(ApiFilterData, WithoutSensorReportsAMissingDevice) {
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 1), -7);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_device_object_is_null));
    EXPECT_DOUBLE_EQ(output[0], -1.0);
}

}  // namespace
