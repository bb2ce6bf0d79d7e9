// A fault on sensor 1 of 3 while all three stream, through the real libusb:
// what the native tier cannot show is libusb's own completion codes from
// usbfs and its udev hotplug path (remove and add uevents, a new device).
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <libusb.h>

#include "efm32com/oru_device_interface_sensor_state.h"
#include "isolation_cases.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "umock_bus.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

constexpr auto kPatience = std::chrono::seconds(10);

bool state_becomes(int index, int state) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (duGetSensorState(index) != state && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return duGetSensorState(index) == state;
}

class RealUsbFaultIsolation : public RealUsbTest, public testing::WithParamInterface<IsolationCase> {
protected:
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
    const IsolationCase& c = GetParam();
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
        // The tear-down does not wait on the sensor that is gone, and closes its files.
        EXPECT_EQ(quietly([this] { return disconnect(); }), 1);
        EXPECT_TRUE(files_closed(1));
        return;
    }
    ASSERT_EQ(back, 1);
    EXPECT_EQ(duGetSensorState(1), 1);
    ASSERT_EQ(start_stream(1), 1);
    EXPECT_TRUE(streams_without_gap(1, &next[1], 20));
}

INSTANTIATE_TEST_SUITE_P(OnSensorOneOfThree, RealUsbFaultIsolation, isolation_cases(), isolation_case_name);

// A sensor whose transfer already failed has none pending: only libusb's
// hotplug path, fed by the "remove" uevent, can tell that it was pulled out.
TEST_F(RealUsbTest, UnplugOfASensorWithNoTransferPendingIsSeenThroughHotplug) {
    ASSERT_TRUE(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG));
    plug_sensors(2);
    ASSERT_EQ(connect(), 2);
    testing::internal::CaptureStderr();
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    duActivateSensorWithIndex(0);
    EXPECT_EQ(quietly([] { return duStartFrameStream(); }), 1);
    const bool failed = state_becomes(0, 2);
    unplug(0);
    const bool removed = state_becomes(0, 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "bulk data transfer status 1?\n");
    ASSERT_TRUE(failed) << duGetSensorState(0);
    EXPECT_TRUE(removed) << "no hotplug removal: state " << duGetSensorState(0);
    EXPECT_EQ(duGetSensorState(1), 1);
}

}  // namespace
