// A fault on sensor 1 of 3 while all three stream, through the real libusb:
// what the native tier cannot show is libusb's own completion codes from
// usbfs and its udev hotplug path (remove and add uevents, a new device).
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "umock_bus.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

constexpr auto kPatience = std::chrono::seconds(10);

struct FaultCase {
    const char* what;
    unsigned faults;
    bool unplug;
    bool replug;
    int state;  // of sensor 1 once its reads failed
    int timeout_ms;  // of those reads
};
void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.what; }

class RealUsbFaultIsolation : public RealUsbTest, public testing::WithParamInterface<FaultCase> {
protected:
    // Reads `readings` readings of 5 frames from sensor `index`'s stream:
    // consecutive, none dropped, each frame's value its own number.
    static testing::AssertionResult streams_without_gap(int index, uint64_t* next, int readings) {
        std::vector<double> output(1024);
        for (int i = 0; i < readings; ++i) {
            duFrameStreamInfo info{};
            const int result = duReadFrameStreamOf(index, output.data(), 5, 5000, &info);
            if (result != 1) return testing::AssertionFailure() << "sensor " << index << " read gave " << result;
            if (info.first_sequence != *next || info.dropped_frames != 0)
                return testing::AssertionFailure() << "sensor " << index << " gap: expected " << *next << ", got "
                                                   << info.first_sequence << ", dropped " << info.dropped_frames;
            if (output[0] != (info.first_sequence + info.last_sequence) / 2.0)
                return testing::AssertionFailure() << "sensor " << index << " frames out of order";
            *next = info.last_sequence + 1;
        }
        return testing::AssertionSuccess();
    }
    static int start_stream(int index) {
        duActivateSensorWithIndex(index);
        return quietly([] { return duStartFrameStream(); });
    }
    // duReconnectSensor until it is back; 0 when it is not within the patience.
    static int reconnect(int index) {
        const std::string id = default_sensor_id(index);
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        int result = 0;
        while ((result = duReconnectSensor(index, id.c_str())) == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return result;
    }
};

TEST_P(RealUsbFaultIsolation, OtherSensorsKeepStreamingWithoutAGapAndTheSensorComesBack) {
    const FaultCase& c = GetParam();
    plug_sensors(3);
    ASSERT_EQ(connect(), 3);
    set_realtime(true);  // one frame a period: the rings hold 2 s of them
    uint64_t next[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        vsensor::use_frame_counter(i);
        ASSERT_EQ(start_stream(i), 1);
    }
    ASSERT_TRUE(streams_without_gap(0, &next[0], 3));
    ASSERT_TRUE(streams_without_gap(2, &next[2], 3));

    // The library's lines about the fault, from the event thread too.
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const uint64_t arrivals = sensor_arrivals();
    vsensor::set_faults(1, c.faults);
    if (c.unplug) unplug(1);
    std::vector<double> output(1024);
    int reads[2];
    for (int& read : reads) read = duReadFrameStreamOf(1, output.data(), 2000, c.timeout_ms, nullptr);
    const int state = duGetSensorState(1);
    const int while_unplugged = c.unplug ? duReconnectSensor(1, default_sensor_id(1).c_str()) : 0;
    vsensor::set_faults(1, vsensor::kFaultNone);
    const std::string replugged = c.replug ? replug(1) : "";
    const int back = c.unplug && !c.replug ? 0 : reconnect(1);
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(reads[0], -lu_ec_fw_recv_timeout);
    EXPECT_EQ(reads[1], -lu_ec_fw_recv_timeout);
    EXPECT_EQ(state, c.state);
    EXPECT_EQ(while_unplugged, 0) << "nothing to reopen while it is out";
    ASSERT_EQ(replugged, "");
    // libusb saw the new device arrive through its udev monitor.
    EXPECT_EQ(sensor_arrivals() > arrivals, c.replug);

    // Sensors 0 and 2 streamed on through the fault and the recovery.
    EXPECT_TRUE(streams_without_gap(0, &next[0], 20));
    EXPECT_TRUE(streams_without_gap(2, &next[2], 20));
    EXPECT_EQ(duGetSensorState(0), 1);
    EXPECT_EQ(duGetSensorState(2), 1);
    if (c.unplug && !c.replug) {
        EXPECT_EQ(duGetSensorState(1), 3);
        return;
    }
    ASSERT_EQ(back, 1);
    EXPECT_EQ(duGetSensorState(1), 1);
    ASSERT_EQ(start_stream(1), 1);
    EXPECT_TRUE(streams_without_gap(1, &next[1], 20));
}

INSTANTIATE_TEST_SUITE_P(OnSensorOneOfThree, RealUsbFaultIsolation,
                         testing::Values(FaultCase{"stall", vsensor::kFaultStreamStall, false, false, 1, 100},
                                         FaultCase{"bulk_error", vsensor::kFaultBulkError, false, false, 2, 60000},
                                         FaultCase{"unplug", vsensor::kFaultNone, true, false, 3, 60000},
                                         FaultCase{"unplug_and_replug", vsensor::kFaultNone, true, true, 3, 60000}),
                         [](const testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.what); });

}  // namespace
