// Frame streams through the exported functions: every frame in order, with
// its sequence and arrival time, overflow counted, bounded reads.
#include "api_test_support.h"
#include "stream_fixture.h"

#include "oru_base_exception.h"
#include "oru_device_api.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace {

constexpr int kTimeoutMs = 5000;

class FrameStream : public VirtualBusTest {
protected:
    int read(int averages, duFrameStreamInfo* info, int timeout_ms = kTimeoutMs) {
        return duReadFrameStream(m_output.data(), averages, timeout_ms, info);
    }
    // Waits (bounded) until sensor `dev` has sent `frames` frames in all.
    static void wait_frames_sent(int dev, uint64_t frames) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (vsensor::frames_sent(dev) < frames && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_GE(vsensor::frames_sent(dev), frames);
    }
    std::vector<double> m_output = std::vector<double>(1024, -1.0);
};

TEST_F(FrameStream, StartAndStopSendTheStreamingCommandsWithTheirPauses) {
    connect(1);
    vsensor::clear_events();
    ASSERT_EQ(duStartFrameStream(), 1);
    EXPECT_EQ(vsensor::transcript(0), streamtest::stream_start().str());
    vsensor::clear_events();
    ASSERT_EQ(duStopFrameStream(), 1);
    EXPECT_EQ(vsensor::transcript(0), streamtest::stream_stop().str());
    EXPECT_FALSE(vsensor::streaming(0));
}

// Every filter of frame n reads n % 4096, and the firmware counts from 0 at
// the start command, so a frame's value is its sequence number.
TEST_F(FrameStream, ConsecutiveReadsTakeEveryFrameOnceInOrder) {
    connect(1);
    vsensor::use_frame_counter(0);
    vsensor::set_realtime(true);  // about 1000 frames/s at shutter speed 1
    ASSERT_EQ(duStartFrameStream(), 1);
    uint64_t next = 0;
    int64_t last_realtime = 0, last_monotonic = 0;
    for (int averages : {1, 10, 3, 7, 1, 25, 2}) {
        duFrameStreamInfo info{};
        ASSERT_EQ(read(averages, &info), 1);
        EXPECT_EQ(info.first_sequence, next);
        EXPECT_EQ(info.last_sequence, next + static_cast<uint64_t>(averages) - 1);
        EXPECT_EQ(info.dropped_frames, 0u);
        EXPECT_EQ(info.shutter_speed, 1);
        EXPECT_DOUBLE_EQ(m_output[0], (info.first_sequence + info.last_sequence) / 2.0);
        EXPECT_DOUBLE_EQ(m_output[1023], m_output[0]);
        EXPECT_LE(info.first_monotonic_ns, info.last_monotonic_ns);
        EXPECT_LE(last_monotonic, info.first_monotonic_ns);
        EXPECT_LE(last_realtime, info.last_realtime_ns);
        EXPECT_GT(info.first_realtime_ns, 1600000000LL * 1000000000LL);  // a wall-clock time, after 2020
        last_realtime = info.last_realtime_ns;
        last_monotonic = info.last_monotonic_ns;
        next = info.last_sequence + 1;
    }
    EXPECT_EQ(duStopFrameStream(), 1);
}

TEST_F(FrameStream, AFullRingDropsItsOldestFramesAndCountsThem) {
    connect(1);
    vsensor::use_frame_counter(0);  // unpaced: frames pour in faster than anyone reads
    ASSERT_EQ(duStartFrameStream(), 1);
    wait_frames_sent(0, 5000);
    duFrameStreamInfo info{};
    ASSERT_EQ(read(1, &info), 1);
    EXPECT_GT(info.dropped_frames, 0u);
    // The oldest frame kept is the first one not dropped.
    EXPECT_EQ(info.first_sequence, info.dropped_frames);
    EXPECT_DOUBLE_EQ(m_output[7], static_cast<double>(info.first_sequence % 4096));
    duFrameStreamInfo next{};
    ASSERT_EQ(read(1, &next), 1);
    EXPECT_EQ(next.first_sequence, info.first_sequence + 1 + (next.dropped_frames - info.dropped_frames));
}

// A filter is saturated when any frame of the reading clipped it, in a
// stream read and in a request alike. Frame k (counted from the start command)
// has filter 900 at 4095 always, filter 3 at 4095 in odd frames only, filter
// 901 at 4094 always. A request throws its first two frames away, so it
// averages frames 2 .. n + 1.
struct SaturationCase {
    const char* name;
    bool stream;
    int averages;
    std::vector<int> saturated;  // 0-based filters flagged
    int at_full_scale_on_average;  // duCountSaturatedFilters of the average
};

void PrintTo(const SaturationCase& c, std::ostream* os) { *os << c.name; }

class SaturationInSomeFrames : public FrameStream, public testing::WithParamInterface<SaturationCase> {};

TEST_P(SaturationInSomeFrames, FlagsEveryFilterAnyFrameClipped) {
    const SaturationCase& c = GetParam();
    connect(1);
    vsensor::set_frame_source(0, [](uint64_t k, uint16_t* out) {
        std::fill(out, out + 1024, uint16_t{100});
        out[3] = k % 2 == 1 ? 4095 : 100;
        out[900] = 4095;
        out[901] = 4094;
    });
    std::vector<unsigned char> flags(1024, 7);
    int count = -1;
    if (c.stream) {
        ASSERT_EQ(duStartFrameStream(), 1);
        duFrameStreamInfo info{};
        ASSERT_EQ(duReadFrameStreamMaskOf(0, m_output.data(), c.averages, kTimeoutMs, &info, flags.data()), 1);
        count = info.saturated_filters;
        ASSERT_EQ(duStopFrameStream(), 1);
    } else {
        ASSERT_EQ(duGetFilterData(m_output.data(), c.averages), 1);
        count = duGetLastRequestSaturation(0, flags.data());
    }
    std::vector<int> flagged;
    for (int i = 0; i < 1024; ++i) {
        ASSERT_LE(flags[static_cast<std::size_t>(i)], 1) << i;
        if (flags[static_cast<std::size_t>(i)] == 1) flagged.push_back(i);
    }
    // Which frame a single read gets depends on when the stream started:
    // filter 3 clips in odd frames only, so one frame flags it when it read 4095.
    std::vector<int> expected = c.saturated;
    int at_full_scale = c.at_full_scale_on_average;
    if (c.averages == 1 && m_output[3] == 4095.0) {
        expected.insert(expected.begin(), 3);
        ++at_full_scale;
    }
    EXPECT_EQ(flagged, expected);
    EXPECT_EQ(count, static_cast<int>(expected.size()));
    EXPECT_EQ(duCountSaturatedFilters(m_output.data(), 1024), at_full_scale);
    EXPECT_DOUBLE_EQ(m_output[901], 4094.0);
}

INSTANTIATE_TEST_SUITE_P(
    StreamAndRequest, SaturationInSomeFrames,
    testing::Values(SaturationCase{"stream_one_even_frame", true, 1, {900}, 1},
                    SaturationCase{"stream_four_frames", true, 4, {3, 900}, 1},
                    SaturationCase{"request_one_even_frame", false, 1, {900}, 1},
                    SaturationCase{"request_three_frames", false, 3, {3, 900}, 1}),
    [](const testing::TestParamInfo<SaturationCase>& info) { return std::string(info.param.name); });

// The flags of a request belong to the request that succeeded last on that
// sensor: none after a connect, none after a failed one.
TEST_F(FrameStream, RequestSaturationIsKnownOnlyAfterARequestSucceeded) {
    connect(2);
    std::vector<unsigned char> flags(1024, 0);
    EXPECT_EQ(duGetLastRequestSaturation(0, flags.data()), -lu_ec_initialization_required);
    vsensor::set_constant_frame(0, 4095);
    ASSERT_EQ(duGetFilterData(m_output.data(), 2), 1);
    EXPECT_EQ(duGetLastRequestSaturation(0, flags.data()), 1024);
    EXPECT_EQ(duGetLastRequestSaturation(1, flags.data()), -lu_ec_initialization_required) << "the other sensor's";
    EXPECT_EQ(duGetLastRequestSaturation(0, nullptr), -lu_ec_filter_buffer_is_null);
    EXPECT_EQ(duGetLastRequestSaturation(5, flags.data()), -lu_ec_device_object_is_null);
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    {
        StdoutCapture quiet;
        EXPECT_EQ(duGetFilterData(m_output.data(), 1), -lu_ec_fw_recv_timeout);
    }
    EXPECT_EQ(duGetLastRequestSaturation(0, flags.data()), -lu_ec_initialization_required) << "after a failure";
}

TEST_F(FrameStream, BadCallsGiveClearCodesAndLeaveTheStreamUsable) {
    connect(1);
    duFrameStreamInfo info{};
    EXPECT_EQ(read(1, &info), -lu_ec_initialization_required) << "read with no stream";
    EXPECT_EQ(duStopFrameStream(), -lu_ec_initialization_required) << "stop with no stream";
    ASSERT_EQ(duStartFrameStream(), 1);
    EXPECT_EQ(duStartFrameStream(), -lu_ec_ill_defined_input) << "started twice";
    EXPECT_EQ(duReadFrameStream(nullptr, 1, 100, &info), -lu_ec_filter_buffer_is_null);
    EXPECT_EQ(read(0, &info), -lu_ec_ill_defined_input);
    EXPECT_EQ(read(-3, &info), -lu_ec_ill_defined_input);
    EXPECT_EQ(read(1, &info, -1), -lu_ec_ill_defined_input);
    EXPECT_EQ(read(2, nullptr), 1) << "info is optional";
    // Only a slot holding a sensor is read, however far outside the table.
    for (int index : {-1, 10, 1000})
        EXPECT_EQ(duReadFrameStreamOf(index, m_output.data(), 1, 100, &info), -lu_ec_device_object_is_null) << index;
    // Calls that would mix exposures or take the frames are refused meanwhile.
    EXPECT_EQ(duGetFilterData(m_output.data(), 1), -lu_ec_ill_defined_input);
    EXPECT_EQ(duSetShutterSpeed(50), -lu_ec_ill_defined_input);
    EXPECT_EQ(duSetSensorParameters(1, 100), -lu_ec_ill_defined_input);
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), -lu_ec_ill_defined_input);
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
    ASSERT_EQ(read(1, &info), 1);
    ASSERT_EQ(duStopFrameStream(), 1);
    EXPECT_EQ(duGetFilterData(m_output.data(), 1), 1);
    EXPECT_EQ(read(1, &info), -lu_ec_initialization_required);
}

// Faults of a streaming sensor are in test_faults (FaultIsolation); here a
// stalled read lasts its time-out, and a stop from another thread ends it.
TEST_F(FrameStream, StopFromAnotherThreadEndsAWaitingRead) {
    connect(1);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    ASSERT_EQ(duStartFrameStream(), 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(read(3, nullptr, 100), -lu_ec_fw_recv_timeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    auto reading = std::async(std::launch::async, [this] { return read(5, nullptr, 60000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // let it wait
    ASSERT_EQ(duStopFrameStream(), 1);
    ASSERT_EQ(reading.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(reading.get(), -lu_ec_fw_recv_timeout);
}

// A streaming sensor's frames go to its stream only: a request on another
// sensor meanwhile averages that sensor's frames alone.
TEST_F(FrameStream, ARequestOnAnotherSensorSeesOnlyItsOwnFrames) {
    connect(2);
    vsensor::set_constant_frame(0, 4000);
    vsensor::set_constant_frame(1, 10);
    ASSERT_EQ(duStartFrameStream(), 1);
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(duGetFilterData(m_output.data(), 20), 1);
        ASSERT_DOUBLE_EQ(m_output[100], 10.0);
    }
    ASSERT_EQ(duActivateSensorWithIndex(0), 1);
    duFrameStreamInfo info{};
    ASSERT_EQ(read(50, &info), 1);
    EXPECT_DOUBLE_EQ(m_output[100], 4000.0);
}

}  // namespace
