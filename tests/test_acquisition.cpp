// Averaged acquisition: the streaming commands of each mode, which frames are
// averaged, the frame moving average, the bounded wait and the short-queue reports.
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "oru_device_interface_base.h"
#include "sensors/oru_sensor_record.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <thread>

using streamtest::all_equal;
using streamtest::stream_start;
using streamtest::stream_stop;
using usbtest::Wire;

namespace {

class Acquisition : public streamtest::StreamTest {
protected:
    void SetUp() override {
        StreamTest::SetUp();
        bring_up(1);
        vsensor::use_frame_counter(0);
    }

    // Frames taken and left for the next request, which only an injection
    // like this one can do; the first is kept whole.
    static void leave_frames(const std::vector<int>& values) {
        begin_frame_request(0, static_cast<int>(values.size()), 1);
        for (int value : values) {
            const std::vector<uint16_t> frame(1024, static_cast<uint16_t>(value));
            take_control_frame(frame.data());
        }
    }

    static size_t frames_taken() { return queued_frames(); }
};

const std::string kSeparator(57, '@');

std::string separator_twice() { return kSeparator + "\n" + kSeparator + "\n"; }

// n requests, each switching streaming on and off again.
std::string cycles(int n, unsigned int iPauseMs = 30) {
    Wire wire;
    for (int i = 0; i < n; ++i) wire.then(stream_start(iPauseMs)).then(stream_stop(iPauseMs));
    return wire.str();
}

}  // namespace

// ---- modes ----

class SingleShot : public Acquisition, public testing::WithParamInterface<int> {};

TEST_P(SingleShot, RestartsStreamingAveragesFramesThreeToSixAndStopsThreeTimes) {
    std::vector<double> out;
    EXPECT_EQ(read(out, 4, GetParam()), lu_ec_success);
    EXPECT_TRUE(all_equal(out, (2 + 3 + 4 + 5) / 4.0));
    EXPECT_EQ(vsensor::transcript(), cycles(1));
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_FALSE(bulkModeStarted);
    EXPECT_EQ(iCurrAvgNum, 0);
    EXPECT_EQ(frames_taken(), 0u);
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
    EXPECT_EQ(vsensor::transcript(), cycles(1));
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
    EXPECT_EQ(vsensor::transcript(), cycles(1, 548));
}

// ---- bounded wait ----

// The API-level stall is in test_faults; here what the request leaves behind.
TEST_F(Acquisition, StalledContinuousSeriesIsStoppedSoTheNextRequestRestartsIt) {
    set_frame_wait_margin_ms(100);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 1), lu_ec_fw_recv_timeout);
    EXPECT_TRUE(all_equal(out, -1.0)) << "nothing is written on a timeout";
    EXPECT_FALSE(bulkModeStarted);
    EXPECT_EQ(iCurrAvgNum, 0);
    EXPECT_EQ(frames_taken(), 0u);
    EXPECT_EQ(read(out, 2, 1), lu_ec_fw_recv_timeout);
    EXPECT_EQ(vsensor::transcript(), cycles(2));
}

TEST_F(Acquisition, RequestForZeroFramesEndsWithTheTimeoutCode) {
    set_frame_wait_margin_ms(100);
    std::vector<double> out;
    EXPECT_EQ(read(out, 0, 3), lu_ec_fw_recv_timeout);
    EXPECT_EQ(vsensor::transcript(), cycles(1));
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

TEST_F(Acquisition, ProducerThatCannotTakeAFrameFailsTheRequestAtOnce) {
    // A wait for the bound would outlast the test's time limit.
    set_frame_wait_margin_ms(600000);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    std::atomic<bool> bDone{false};
    std::thread producer([&bDone] {
        while (!bDone) {
            fail_frame_request();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    std::vector<double> out;
    EXPECT_EQ(read(out, 4, 3), lu_ec_fw_recv_timeout);
    bDone = true;
    producer.join();
    EXPECT_FALSE(bulkModeStarted);
    vsensor::set_faults(0, vsensor::kFaultNone);
    EXPECT_EQ(read(out, 1, 3), lu_ec_success) << "the next request is served";
}

// A frame comes every exposure, but never faster than full-speed bulk carries
// 2048 bytes (32 packets of 64 at 19 a millisecond: 1,684,211 ns).
TEST(FrameWaitBound, AllowsTwiceTheFramePeriodsOfTheFramesAndTheTwoDroppedOnTopOfTheMargin) {
    EXPECT_EQ(frame_period_ns(0), 1684211) << "the bus, not the exposure";
    EXPECT_EQ(frame_period_ns(1), 1684211) << "1.072 ms of exposure is faster than the bus";
    EXPECT_EQ(frame_period_ns(2), 1984000) << "the exposure, slower than the bus";
    set_frame_wait_margin_ms(2000);
    EXPECT_EQ(frame_wait_bound_ms(1, 10), 2000 + 41) << "12 x 1.684 ms x 2, rounded up";
    EXPECT_EQ(frame_wait_bound_ms(0, 0), 2000 + 7);
    EXPECT_EQ(frame_wait_bound_ms(1, 4000), 2000 + 13481) << "4002 x 1.684 ms x 2: no false -9 at shutter speed 1";
    EXPECT_EQ(frame_wait_bound_ms(1000, 4), 2000 + 6 * 912160 * 2 / 1000 + 1);
    EXPECT_EQ(frame_wait_bound_ms(65535, 100), 2000L + 12192689);
    set_frame_wait_margin_ms(50);
    EXPECT_EQ(frame_wait_bound_ms(1, 10), 50 + 41);
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
    EXPECT_EQ(vsensor::transcript(), cycles(3));

    // Switching it on again starts a new ring.
    set_frame_moving_average(true);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 1100.0));

    // A clipped frame saturates every reading whose ring still holds it,
    // though the average stays far below full scale.
    std::vector<unsigned char> flags(1024, 0);
    oru_sensor::SSensorRecord& record = *oru_sensor::sensor_record(0);
    ASSERT_TRUE(oru_sensor::request_saturation(record, flags.data()));
    EXPECT_EQ(std::count(flags.begin(), flags.end(), 1), 0);
    vsensor::set_constant_frame(0, 4095);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    vsensor::set_constant_frame(0, 1100);
    EXPECT_EQ(read(out, 10, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, (9 * 1100 + 4095) / 10.0));
    ASSERT_TRUE(oru_sensor::request_saturation(record, flags.data()));
    EXPECT_EQ(std::count(flags.begin(), flags.end(), 1), 1024);
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

// A new device object zeroes the slots: a buffered ring then averages its
// one new frame with empty slots, not with the frames of the last one.
TEST_F(Acquisition, NewDeviceObjectEmptiesTheMovingAverageRing) {
    set_frame_moving_average(true);
    vsensor::set_constant_frame(0, 100);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);
    oru_device_interface_base fresh(0);  // its destructor closes sensor 0 at the end
    vsensor::set_constant_frame(0, 300);
    EXPECT_EQ(read(out, 2, 3), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 150.0));
}

// ---- running sums ----

TEST(FrameSum, EqualsTheFrameByFrameDoubleSumUpToTheLimitOfExactDoubles) {
    // A request takes at most INT_MAX frames of at most 4095: far below 2^53.
    static_assert(static_cast<long double>(INT_MAX) * 4095 < 9007199254740992.0L, "sums stay exact");
    const int64_t kLimit = int64_t{1} << 53;
    SFrameSum running;
    running.clear();
    std::vector<double> straightforward(1024);
    const int kFrames = 500;
    for (int j = 0; j < 1024; ++j) {
        // Sums that end exactly at 2^53, or a little below it.
        running.llSum[j] = kLimit - int64_t{4095} * kFrames - j;
        straightforward[j] = static_cast<double>(running.llSum[j]);
    }
    uint16_t frame[1024];
    for (int f = 0; f < kFrames; ++f) {
        for (int j = 0; j < 1024; ++j) frame[j] = static_cast<uint16_t>(j == 0 ? 4095 : (f * 37 + j * 11) % 4096);
        running.add(frame);
        for (int j = 0; j < 1024; ++j) straightforward[j] += frame[j];
    }
    std::vector<double> sum(1024, 0.0);
    running.add_to(sum.data());
    EXPECT_EQ(sum[0], 9007199254740992.0);
    for (int j = 0; j < 1024; ++j) ASSERT_EQ(sum[j], straightforward[j]) << "filter " << j;
    EXPECT_EQ(running.nFrames, kFrames);
}

TEST_F(Acquisition, MovingAverageRingEqualsTheSumOfItsSlotsOverManyRequests) {
    vsensor::set_frame_source(0, [](uint64_t n, uint16_t* frame) {
        for (int i = 0; i < 1024; ++i)
            frame[i] = static_cast<uint16_t>((n * 37 + static_cast<uint64_t>(i) * 11) % 4096);
    });
    set_frame_moving_average(true);
    std::vector<double> out;
    for (int r = 0; r < 300; ++r) {
        // The ring size changes now and then; the sum follows it.
        const int iSlots = (r / 70) % 2 == 0 ? 100 : 60;
        ASSERT_EQ(read(out, iSlots, 1), lu_ec_success) << "request " << r;
        for (int j = 0; j < 1024; ++j) {
            double straightforward = 0.0;
            for (int s = 0; s < iSlots; ++s) straightforward += static_cast<int>(g_FMA_Buffer[s * 1024 + j]);
            ASSERT_EQ(out[static_cast<size_t>(j)], straightforward / iSlots) << "request " << r << ", filter " << j;
        }
    }
    EXPECT_EQ(read(out, 60, 2), lu_ec_success);
}

// ---- short queue reports ----

TEST_F(Acquisition, MoreFramesThanRequestedAreReportedAndAllAveraged) {
    leave_frames({10, 20, 30});
    std::vector<double> out;
    testing::internal::CaptureStdout();
    EXPECT_EQ(read(out, 2, 2), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              separator_twice() + "-----------> ERROR: frameDataQueue.size() != iAvgNum\n" + separator_twice());
    EXPECT_TRUE(all_equal(out, 60 / 2.0)) << "a running sum cannot leave frames out";
    EXPECT_EQ(vsensor::transcript(), "") << "mode 2 does not start, and the report skips the stop";
    EXPECT_EQ(frames_taken(), 0u);
}

TEST_F(Acquisition, BufferedRequestFindingTwoFramesReportsTheSizeAndStillStops) {
    set_frame_moving_average(true);
    std::vector<double> out;
    vsensor::set_constant_frame(0, 100);
    EXPECT_EQ(read(out, 2, 1), lu_ec_success);  // ring filled, streaming stays on
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    // A frame already on its way still lands: wait until the stall holds.
    for (uint64_t sent = ~0ull; sent != vsensor::frames_sent(0);) {
        sent = vsensor::frames_sent(0);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    leave_frames({1000, 2000});
    vsensor::clear_events();
    testing::internal::CaptureStdout();
    EXPECT_EQ(read(out, 2, 2), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              separator_twice() + "===========> ERROR: frameDataQueue.size() = 2\n" + separator_twice());
    EXPECT_TRUE(all_equal(out, (1000 + 100) / 2.0));
    EXPECT_EQ(vsensor::transcript(), stream_stop().str());
    EXPECT_FALSE(bulkModeStarted);
}
