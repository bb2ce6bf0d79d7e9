// duGetFilterData: averaged filter data of the active sensor. Stalls, faults
// and calls without a sensor are in test_faults and test_api_lifecycle.
#include "api_test_support.h"

#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"

#include <vector>

namespace {

class ApiFilterData : public VirtualBusTest {};

TEST_F(ApiFilterData, PatternArrivesFilterByFilterSilently) {
    connect(1);
    std::vector<uint16_t> pattern(1024);
    for (int i = 0; i < 1024; ++i) pattern[static_cast<std::size_t>(i)] = static_cast<uint16_t>((i * 37) % 4096);
    pattern[0] = 4095;
    pattern[1023] = 0;
    vsensor::set_pattern(0, pattern);
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 3), 1);
    EXPECT_EQ(out.text(), "");
    for (int i = 0; i < 1024; ++i)
        ASSERT_DOUBLE_EQ(output[static_cast<std::size_t>(i)], pattern[static_cast<std::size_t>(i)]) << i;
}

// Every filter reads the frame number, and a single shot drops frames 0 and
// 1. Only a per-filter sum is kept: the mean is exactly that of every frame,
// for any count, and the next request starts afresh.
TEST_F(ApiFilterData, AveragesExactlyTheRequestedFrames) {
    connect(1);
    vsensor::use_frame_counter(0);
    std::vector<double> output(1024, -1.0);
    const int n = 5000;
    ASSERT_EQ(duGetFilterData(output.data(), n), 1);
    double sum = 0.0;
    for (int k = 2; k < n + 2; ++k) sum += k % 4096;
    EXPECT_EQ(output[0], sum / n);
    EXPECT_EQ(output[1023], sum / n);
    ASSERT_EQ(duGetFilterData(output.data(), 4), 1);
    EXPECT_EQ(output[512], (2 + 3 + 4 + 5) / 4.0);
    ASSERT_EQ(duGetFilterData(output.data(), 1), 1);
    EXPECT_EQ(output[512], 2.0);
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

TEST_F(ApiFilterData, ReadsStartAndStopStreamingOnTheActiveSensorOnly) {
    connect(2);
    vsensor::set_constant_frame(0, 100);
    vsensor::set_constant_frame(1, 2000);
    std::vector<double> output(1024, -1.0);
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    vsensor::clear_events();
    EXPECT_EQ(duGetFilterData(output.data(), 2), 1);
    EXPECT_DOUBLE_EQ(output[7], 2000.0);
    const std::vector<std::string> on_one = transcript_items(1);
    EXPECT_NE(find_item(on_one, "out 70 value 0 index 1"), -1) << vsensor::transcript(1);
    EXPECT_NE(find_item(on_one, "out 71 value 0 index 1"), -1);
    EXPECT_EQ(find_item(transcript_items(0), "out 70"), -1) << vsensor::transcript(0);
    EXPECT_FALSE(vsensor::streaming(1));
    ASSERT_EQ(duActivateSensorWithIndex(0), 1);
    EXPECT_EQ(duGetFilterData(output.data(), 2), 1);
    EXPECT_DOUBLE_EQ(output[7], 100.0);
}

}  // namespace
