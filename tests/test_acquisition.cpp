// Averaged acquisition: the streaming commands of each mode, which frames are
// averaged, the frame moving average, the bounded wait and the short-queue reports.
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"

#include <cmath>

using streamtest::all_equal;
using streamtest::stream_start;
using streamtest::stream_stop;
using streamtest::StreamTest;
using usbtest::Wire;

namespace {

class Acquisition : public streamtest::StreamTest {
protected:
    void SetUp() override {
        StreamTest::SetUp();
        bring_up(1);
        vsensor::use_frame_counter(0);
    }

    static void push_frame(int value) {
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        frameDataQueue.push_back(std::vector<int>(1024, value));
    }
};

const std::string kSeparator(57, '@');

std::string separator_twice() {
    return kSeparator + "\n" + kSeparator + "\n";
}

}  // namespace

// ---- modes ----

class SingleShot : public Acquisition, public testing::WithParamInterface<int> {};

TEST_P(SingleShot, RestartsStreamingAveragesFramesThreeToSixAndStopsThreeTimes) {
    std::vector<double> out;
    EXPECT_EQ(read(out, 4, GetParam()), lu_ec_success);
    EXPECT_TRUE(all_equal(out, (2 + 3 + 4 + 5) / 4.0));
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_start()).then(stream_stop()).str());
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_FALSE(bulkModeStarted);
    EXPECT_EQ(iCurrAvgNum, 0);
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    EXPECT_TRUE(frameDataQueue.empty());
}

INSTANTIATE_TEST_SUITE_P(Modes0And3, SingleShot, testing::Values(0, 3));

TEST_F(Acquisition, ContinuousSeriesStartsStreamingOnceAndStopsItOnce) {
    std::vector<double> first, second, last;
    EXPECT_EQ(read(first, 2, 1), lu_ec_success);
    EXPECT_TRUE(all_equal(first, 0.5)) << "continuous mode keeps the first two frames";
    EXPECT_TRUE(vsensor::streaming(0));
    EXPECT_TRUE(bulkModeStarted);
    EXPECT_EQ(read(second, 2, 1), lu_ec_success);
    EXPECT_TRUE(vsensor::streaming(0));
    EXPECT_EQ(read(last, 2, 2), lu_ec_success);
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_FALSE(bulkModeStarted);
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_start()).then(stream_stop()).str());
    // The counter wraps at 4096, and between requests the free-running
    // stream can pass thousands of frames: compare modulo 4096.
    auto newer = [](double later, double earlier) { return std::fmod(later - earlier + 4096.0, 4096.0) > 0.0; };
    EXPECT_TRUE(newer(second[0], first[0])) << "each request averages newer frames";
    EXPECT_TRUE(newer(last[0], second[0]));
}

TEST_F(Acquisition, ScaledShutterSpeedLengthensEveryStreamingPause) {
    g_iCurShutterSpeed = 1000;
    std::vector<double> out;
    EXPECT_EQ(read(out, 1, 3), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_start(548)).then(stream_stop(548)).str());
}

// ---- bounded wait ----

TEST_F(Acquisition, StalledStreamEndsWithTheTimeoutCodeAndStreamingOff) {
    set_frame_wait_margin_ms(100);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    std::vector<double> out;
    EXPECT_EQ(read(out, 4, 3), lu_ec_fw_recv_timeout);
    EXPECT_TRUE(all_equal(out, -1.0)) << "nothing is written on a timeout";
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_start()).then(stream_stop()).str());
    EXPECT_FALSE(bulkModeStarted);
    EXPECT_EQ(iCurrAvgNum, 0);
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    EXPECT_TRUE(frameDataQueue.empty());
}

TEST_F(Acquisition, StalledContinuousSeriesIsStoppedSoTheNextRequestRestartsIt) {
    set_frame_wait_margin_ms(100);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 1), lu_ec_fw_recv_timeout);
    EXPECT_EQ(read(out, 2, 1), lu_ec_fw_recv_timeout);
    EXPECT_EQ(vsensor::transcript(),
              Wire().then(stream_start()).then(stream_stop()).then(stream_start()).then(stream_stop()).str());
}

TEST_F(Acquisition, RequestForZeroFramesEndsWithTheTimeoutCode) {
    set_frame_wait_margin_ms(100);
    std::vector<double> out;
    EXPECT_EQ(read(out, 0, 3), lu_ec_fw_recv_timeout);
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_start()).then(stream_stop()).str());
    EXPECT_EQ(iCurrAvgNum, 0);
    // The next request is served normally.
    EXPECT_EQ(read(out, 1, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 2.0));
}

TEST_F(Acquisition, EndedEventLoopFailsTheRequestWithoutWaiting) {
    // A wait for the bound would outlast the test's time limit.
    set_frame_wait_margin_ms(600000);
    request_exit(1);
    std::vector<double> out;
    EXPECT_EQ(read(out, 4, 3), lu_ec_fw_recv_timeout);
    EXPECT_FALSE(bulkModeStarted);
}

TEST_F(StreamTest, WaitIsBoundedByTheReadSensorsOwnShutterSpeedNotTheOneSetLast) {
    bring_up(2);
    set_shutter_speed_to_sensor(300, 0);
    set_shutter_speed_to_sensor(1, 1);
    // 12 frames of 274 ms in real time: longer than a bound computed from
    // shutter speed 1 (2 s and 24 ms).
    vsensor::set_realtime(true);
    std::vector<double> out;
    EXPECT_EQ(read(out, 10, 3, 0), lu_ec_success);
}

TEST(FrameWaitBound, AllowsTwiceTheExposuresOfTheFramesAndTheTwoDroppedOnTopOfTheMargin) {
    set_frame_wait_margin_ms(2000);
    EXPECT_EQ(frame_wait_bound_ms(1, 10), 2000 + 12 * 1 * 2);
    EXPECT_EQ(frame_wait_bound_ms(0, 0), 2000 + 2 * 1 * 2) << "at least 1 ms per frame";
    EXPECT_EQ(frame_wait_bound_ms(1000, 4), 2000 + 6 * 912 * 2);
    EXPECT_EQ(frame_wait_bound_ms(65535, 100), 2000L + 102L * 59768 * 2);
    set_frame_wait_margin_ms(50);
    EXPECT_EQ(frame_wait_bound_ms(1, 10), 50 + 12 * 1 * 2);
}

// ---- frame moving average ----

TEST_F(Acquisition, MovingAverageOverOneHundredFiftyFramesKeepsTheFirstHundred) {
    set_frame_moving_average(true);
    std::vector<double> out;
    EXPECT_EQ(read(out, 150, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, (2 + 101) / 2.0)) << "frames 2 .. 101";
    EXPECT_TRUE(g_FMA_Buffered);
    EXPECT_EQ(g_FMA_FrameCount, 0);
    EXPECT_EQ(iCurrAvgNum, 1);
}

TEST_F(Acquisition, BufferedMovingAverageTakesOneNewFramePerRequestInPlaceOfTheOldest) {
    set_frame_moving_average(true);
    std::vector<double> out;
    vsensor::set_constant_frame(0, 100);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 100.0));
    vsensor::set_constant_frame(0, 1100);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 200.0));
    EXPECT_EQ(g_FMA_FrameCount, 1);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 300.0));
    EXPECT_EQ(vsensor::transcript(),
              Wire().then(stream_start()).then(stream_stop()).then(stream_start()).then(stream_stop())
                  .then(stream_start()).then(stream_stop()).str());

    // Switching it on again starts a new ring.
    set_frame_moving_average(true);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 1100.0));
}

TEST_F(Acquisition, MovingAverageRingWrapsAfterItsLastSlot) {
    set_frame_moving_average(true);
    std::vector<double> out;
    vsensor::set_constant_frame(0, 100);
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);
    vsensor::set_constant_frame(0, 300);
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);  // slots: 300, 100
    EXPECT_EQ(g_FMA_FrameCount, 1);
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);  // slots: 300, 300
    EXPECT_EQ(g_FMA_FrameCount, 0);
    EXPECT_TRUE(all_equal(out, 300.0));
    vsensor::set_constant_frame(0, 500);
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);  // slots: 500, 300
    EXPECT_TRUE(all_equal(out, 400.0));
}

TEST_F(Acquisition, StalledStreamRestartsTheMovingAverageRing) {
    set_frame_moving_average(true);
    std::vector<double> out;
    vsensor::set_constant_frame(0, 100);
    EXPECT_EQ(read(out, 4, 3), lu_ec_success);
    set_frame_wait_margin_ms(100);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    EXPECT_EQ(read(out, 4, 3), lu_ec_fw_recv_timeout);
    EXPECT_FALSE(g_FMA_Buffered);
}

// ---- short queue reports ----

TEST_F(Acquisition, QueueLongerThanRequestedIsReportedAndAveragedFromItsFront) {
    push_frame(10);
    push_frame(20);
    push_frame(30);
    std::vector<double> out;
    testing::internal::CaptureStdout();
    EXPECT_EQ(read(out, 2, 2), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              separator_twice() + "-----------> ERROR: frameDataQueue.size() != iAvgNum\n" + separator_twice());
    EXPECT_TRUE(all_equal(out, 15.0));
    EXPECT_EQ(vsensor::transcript(), "") << "mode 2 does not start, and the report skips the stop";
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    EXPECT_TRUE(frameDataQueue.empty());
}

TEST_F(Acquisition, BufferedRequestFindingTwoFramesReportsTheSizeAndStillStops) {
    set_frame_moving_average(true);
    std::vector<double> out;
    vsensor::set_constant_frame(0, 100);
    EXPECT_EQ(read(out, 2, 1), lu_ec_success);  // ring filled, streaming stays on
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    {
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        frameDataQueue.clear();
    }
    push_frame(1000);
    push_frame(2000);
    vsensor::clear_events();
    testing::internal::CaptureStdout();
    EXPECT_EQ(read(out, 2, 2), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              separator_twice() + "===========> ERROR: frameDataQueue.size() = 2\n" + separator_twice());
    EXPECT_TRUE(all_equal(out, (1000 + 100) / 2.0));
    EXPECT_EQ(vsensor::transcript(), stream_stop().str());
    EXPECT_FALSE(bulkModeStarted);
}
