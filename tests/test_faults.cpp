// Faults of the sensor and of the bus seen through the exported functions:
// every call comes back (a watchdog turns a hang into a failed run), with the
// documented result, and the library stays usable afterwards.
#include "api_test_support.h"
#include "isolation_cases.h"

#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"

#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

// Far above the library's own bound for a wait (a few seconds): only a hang
// reaches it.
constexpr std::chrono::seconds kWatchdog{30};

// Result of one exported call and what it printed on standard output.
struct Outcome {
    int result;
    std::string printed;
};

// Runs one call on a thread of its own, capturing its output. A call that
// does not come back in time cannot be joined, so the program ends at once.
template <typename Call>
Outcome call_in_time(const char* what, Call call) {
    StdoutCapture out;
    auto result = std::async(std::launch::async, call);
    if (result.wait_for(kWatchdog) != std::future_status::ready) {
        out.text();
        std::fprintf(stderr, "watchdog: %s did not return within %lld s\n", what,
                     static_cast<long long>(kWatchdog.count()));
        std::fflush(stderr);
        std::_Exit(3);
    }
    const int value = result.get();
    return {value, out.text()};
}

Outcome connect_() {
    return call_in_time("duConnect", [] { return duConnect(); });
}
Outcome disconnect_() {
    return call_in_time("duDisconnect", [] { return duDisconnect(); });
}
Outcome read_(std::vector<double>& output, int averages) {
    return call_in_time("duGetFilterData", [&] { return duGetFilterData(output.data(), averages); });
}
Outcome optimal_shutter_() {
    return call_in_time("duGetOptimalShutterSpeed", [] { return duGetOptimalShutterSpeed(nullptr, 0); });
}
std::string sensor_id_() {
    char id[26] = {};
    const Outcome got = call_in_time("duGetSensorID", [&] { return duGetSensorID(id); });
    return got.result == 1 ? std::string(id) : "result " + std::to_string(got.result);
}

// What the event thread reports on standard error for a failed bulk transfer.
std::string bulk_status_line(int status) { return "bulk data transfer status " + std::to_string(status) + "?\n"; }

const std::string kPermissionLines =
    "Device open failed due to a permission denied error.\n"
    "libusb requires write access to USB device nodes.\n"
    "could not open device, error -3\n";
const std::string kOpenedLines = "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n";

class Faults : public VirtualBusTest {
protected:
    void SetUp() override {
        VirtualBusTest::SetUp();
        // Waits for frames that never come end after this margin instead of
        // the default 2 s, to keep the suite short; one case keeps the default.
        set_frame_wait_margin_ms(300);
    }
    void TearDown() override {
        vsensor::set_realtime(false);
        VirtualBusTest::TearDown();
    }

    // Sensor at a bus position, its frames all at the position's own level.
    static void add_sensor(int bus_position, unsigned faults = vsensor::kFaultNone) {
        vsensor::SensorOptions options;
        options.faults = faults;
        ASSERT_EQ(vsensor::add_sensor(options), bus_position);
        vsensor::set_constant_frame(bus_position, level_of(bus_position));
    }
    // `count` sensors, the first with `faults_of_first`, then duConnect.
    static int connect_sensors(int count, unsigned faults_of_first = vsensor::kFaultNone) {
        for (int i = 0; i < count; ++i) add_sensor(i, i == 0 ? faults_of_first : vsensor::kFaultNone);
        return connect_().result;
    }
    static uint16_t level_of(int bus_position) { return static_cast<uint16_t>(1000 + 100 * bus_position); }

    // Activates a sensor and reads it: the read succeeds with the level of
    // the sensor at `bus_position` everywhere.
    static ::testing::AssertionResult reads_its_level(int sensor_index, int bus_position) {
        duActivateSensorWithIndex(sensor_index);
        std::vector<double> output(1024, -1.0);
        const Outcome got = read_(output, 3);
        if (got.result != 1) return ::testing::AssertionFailure() << "duGetFilterData gave " << got.result;
        for (double value : output)
            if (value != level_of(bus_position))
                return ::testing::AssertionFailure() << "read " << value << ", not " << level_of(bus_position);
        return ::testing::AssertionSuccess();
    }

    // Activates a sensor and reads it: the read fails with the time-out code,
    // prints only the API's line and writes nothing to the output.
    static ::testing::AssertionResult read_times_out(int sensor_index) {
        duActivateSensorWithIndex(sensor_index);
        std::vector<double> output(1024, -1.0);
        const Outcome got = read_(output, 3);
        if (got.result != -lu_ec_fw_recv_timeout)
            return ::testing::AssertionFailure() << "duGetFilterData gave " << got.result;
        if (got.printed != api_exception_line(lu_ec_fw_recv_timeout))
            return ::testing::AssertionFailure() << "printed " << got.printed;
        for (double value : output)
            if (value != -1.0) return ::testing::AssertionFailure() << "output written: " << value;
        return ::testing::AssertionSuccess();
    }
};

// ---- a stream that stops -----------------------------------------------------

TEST_F(Faults, StalledStreamTimesOutWithTheDefaultMarginAndReadsAgainOnceFramesFlow) {
    set_frame_wait_margin_ms(2000);
    ASSERT_EQ(connect_sensors(2, vsensor::kFaultStreamStall), 2);
    EXPECT_TRUE(read_times_out(0));
    EXPECT_FALSE(vsensor::streaming(0));  // the abandoned request switched streaming off
    // The event loop goes on: the other sensor, and the first once it streams.
    EXPECT_TRUE(reads_its_level(1, 1));
    vsensor::set_faults(0, vsensor::kFaultNone);
    EXPECT_TRUE(reads_its_level(0, 0));
}

TEST_F(Faults, StalledStreamEndsTheShutterSearchWithTheTimeoutCode) {
    ASSERT_EQ(connect_sensors(1, vsensor::kFaultStreamStall), 1);
    const Outcome stalled = optimal_shutter_();
    EXPECT_EQ(stalled.result, -lu_ec_fw_recv_timeout);
    EXPECT_NE(stalled.printed.find(api_exception_line(lu_ec_fw_recv_timeout)), std::string::npos) << stalled.printed;
    vsensor::set_faults(0, vsensor::kFaultNone);
    vsensor::use_optical_model(0);
    EXPECT_GT(optimal_shutter_().result, 1);
}

// ---- a failed bulk completion ---------------------------------------------------

TEST_F(Faults, BulkErrorStopsThatSensorAloneUntilTheNextConnect) {
    ASSERT_EQ(connect_sensors(2, vsensor::kFaultBulkError), 2);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(read_times_out(0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), bulk_status_line(LIBUSB_TRANSFER_ERROR));
    EXPECT_EQ(duGetSensorState(0), 2);
    EXPECT_EQ(duGetSensorState(1), 1);
    EXPECT_TRUE(reads_its_level(1, 1)) << "the other sensor goes on";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(read_times_out(0));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250)) << "fails at once";
    // Control requests still reach it.
    EXPECT_EQ(call_in_time("duSetShutterSpeed", [] { return duSetShutterSpeed(20); }).result, 1);
    EXPECT_EQ(vsensor::shutter_speed(0), 20);
    EXPECT_EQ(disconnect_().result, 1);
    EXPECT_EQ(connect_().result, 2);
    EXPECT_EQ(duGetSensorState(0), 1);
    EXPECT_TRUE(reads_its_level(0, 0));
    EXPECT_TRUE(reads_its_level(1, 1));
}

TEST_F(Faults, SensorStateAndReconnectRejectBadInput) {
    ASSERT_EQ(connect_sensors(2), 2);
    const std::string id = default_sensor_id(1);
    for (int index : {-1, 10}) {
        EXPECT_EQ(duGetSensorState(index), -lu_ec_ill_defined_input);
        EXPECT_EQ(duReconnectSensor(index, id.c_str()), -lu_ec_ill_defined_input);
    }
    EXPECT_EQ(duGetSensorState(2), -lu_ec_device_object_is_null);
    EXPECT_EQ(duReconnectSensor(2, id.c_str()), -lu_ec_device_object_is_null);
    EXPECT_EQ(duReconnectSensor(1, nullptr), -lu_ec_sensor_id_is_empty);
    EXPECT_EQ(duReconnectSensor(1, ""), -lu_ec_sensor_id_is_empty);
    EXPECT_EQ(duGetSensorState(1), 1);
    EXPECT_TRUE(vsensor::is_claimed(1));  // nothing was dropped
}

// A fault on sensor 1 of 3 while all three stream: sensors 0 and 2 go on
// without a gap (every frame carries its number), sensor 1 reports its state
// and its reads end. Once the fault is gone (or the sensor is back on the
// bus), sensor 1 is reopened under its index and streams again, while the
// other two still go on without a gap.
class FaultIsolation : public Faults, public testing::WithParamInterface<IsolationCase> {};

TEST_P(FaultIsolation, OtherSensorsKeepStreamingWithoutAGap) {
    const IsolationCase& c = GetParam();
    ASSERT_EQ(connect_sensors(3), 3);
    vsensor::set_realtime(true);
    uint64_t next[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        vsensor::use_frame_counter(i);
        duActivateSensorWithIndex(i);
        ASSERT_EQ(call_in_time("duStartFrameStream", [] { return duStartFrameStream(); }).result, 1);
    }
    ASSERT_TRUE(streams_without_gap(0, &next[0], 3));
    ASSERT_TRUE(streams_without_gap(2, &next[2], 3));
    testing::internal::CaptureStderr();
    vsensor::set_faults(1, c.faults);
    if (c.unplug) vsensor::unplug(1);
    duActivateSensorWithIndex(1);
    std::vector<double> output(1024);
    for (int i = 0; i < 2; ++i) {
        const Outcome got = call_in_time("duReadFrameStream",
                                         [&] { return duReadFrameStream(output.data(), 2000, c.timeout_ms, nullptr); });
        EXPECT_EQ(got.result, -lu_ec_fw_recv_timeout);
    }
    EXPECT_TRUE(streams_without_gap(0, &next[0], 20));
    EXPECT_TRUE(streams_without_gap(2, &next[2], 20));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(duGetSensorState(1), c.state);
    EXPECT_EQ(duGetSensorState(0), 1);
    EXPECT_EQ(duGetSensorState(2), 1);

    // Only a sensor with the same ID that no other index holds is taken.
    const std::string id = default_sensor_id(1);
    EXPECT_EQ(duReconnectSensor(1, default_sensor_id(0).c_str()), 0);
    if (c.unplug) {
        EXPECT_EQ(duReconnectSensor(1, id.c_str()), 0);
    }
    vsensor::set_faults(1, vsensor::kFaultNone);
    if (c.replug) vsensor::replug(1);
    vsensor::use_frame_counter(1);
    const bool back = !c.unplug || c.replug;
    EXPECT_EQ(call_in_time("duReconnectSensor", [&] { return duReconnectSensor(1, id.c_str()); }).result, back);
    EXPECT_EQ(duGetSensorState(1), back ? 1 : 3);
    if (back) {
        duActivateSensorWithIndex(1);
        EXPECT_EQ(sensor_id_(), id);
        EXPECT_EQ(duStartFrameStream(), 1);
        uint64_t again = 0;
        EXPECT_TRUE(streams_without_gap(1, &again, 5));
    }
    EXPECT_TRUE(streams_without_gap(0, &next[0], 5));
    EXPECT_TRUE(streams_without_gap(2, &next[2], 5));
    // The reconnect closed sensor 1's stream; a sensor that stayed away has none.
    for (int i = 0; i < 3; ++i) {
        duActivateSensorWithIndex(i);
        EXPECT_EQ(call_in_time("duStopFrameStream", [] { return duStopFrameStream(); }).result,
                  i == 1 && !back ? -lu_ec_initialization_required : 1);
    }
}

INSTANTIATE_TEST_SUITE_P(OnSensorOneOfThree, FaultIsolation, isolation_cases(), isolation_case_name);

// A long call on sensor 1 while sensors 0 and 2 stream, each read (and its
// state asked) by a thread of its own: the call holds only sensor 1, so no
// frame of the others is dropped or skipped and none of their calls waits
// for it. A read of 5 frames
// takes 8.4 ms of frames; one held up by the call would take about the whole
// call (2 s for the request), so a bound of a quarter of the call (at least
// 100 ms) leaves room for any scheduling.
struct BusyCase {
    const char* what;
    int (*call)();
    int result;
};
void PrintTo(const BusyCase& c, std::ostream* os) { *os << c.what; }

class BusySensorIsolation : public Faults, public testing::WithParamInterface<BusyCase> {};

TEST_P(BusySensorIsolation, OtherSensorsStreamOnWithoutWaitingForIt) {
    ASSERT_EQ(connect_sensors(3), 3);
    vsensor::set_realtime(true);
    for (int i : {0, 2}) {
        vsensor::use_frame_counter(i);
        duActivateSensorWithIndex(i);
        ASSERT_EQ(duStartFrameStream(), 1);
    }
    std::atomic<bool> done{false};
    auto reader = [&done](int index) {
        uint64_t next = 0;
        double longest_ms = 0.0;
        testing::AssertionResult gapless = testing::AssertionSuccess();
        while (gapless && !done) {
            const auto start = std::chrono::steady_clock::now();
            gapless = streams_without_gap(index, &next, 1);
            if (gapless && duGetSensorState(index) != 1) gapless = testing::AssertionFailure() << "state of " << index;
            longest_ms = std::max(
                longest_ms, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        }
        return std::make_pair(gapless, longest_ms);
    };
    auto reads0 = std::async(std::launch::async, reader, 0);
    auto reads2 = std::async(std::launch::async, reader, 2);
    duActivateSensorWithIndex(1);
    const auto start = std::chrono::steady_clock::now();
    const Outcome got = call_in_time(GetParam().what, GetParam().call);
    const double call_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    done = true;
    EXPECT_EQ(got.result, GetParam().result);
    for (auto* reads : {&reads0, &reads2}) {
        const auto [gapless, longest_ms] = reads->get();
        EXPECT_TRUE(gapless);
        EXPECT_LT(longest_ms, std::max(call_ms / 4, 100.0)) << "a read waited for sensor 1's call of " << call_ms << " ms";
        RecordProperty(std::string("longest_read_ms_") + (reads == &reads0 ? "0" : "2"), std::to_string(longest_ms));
    }
    RecordProperty("call_ms", std::to_string(call_ms));
}

INSTANTIATE_TEST_SUITE_P(
    OnSensorOneOfThree, BusySensorIsolation,
    testing::Values(BusyCase{"request_of_1200_frames",
                             [] {
                                 std::vector<double> output(1024);
                                 return duGetFilterData(output.data(), 1200);
                             },
                             1},
                    BusyCase{"reconnect", [] { return duReconnectSensor(1, default_sensor_id(1).c_str()); }, 1}),
    [](const testing::TestParamInfo<BusyCase>& info) { return std::string(info.param.what); });

// ---- a sensor unplugged ----------------------------------------------------------

TEST_F(Faults, UnplugWhileStreamingFailsTheReadAndTheRestConnectAgain) {
    ASSERT_EQ(connect_sensors(2), 2);
    vsensor::set_realtime(true);  // about 1000 frames a second: the read would last 2 s
    duActivateSensorWithIndex(0);
    std::vector<double> output(1024, -1.0);
    testing::internal::CaptureStderr();
    auto unplugger = std::async(std::launch::async, [] {
        // Pull the plug once frames are flowing.
        for (int i = 0; i < 20000 && vsensor::frames_sent(0) < 10; ++i)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        const uint64_t sent = vsensor::frames_sent(0);
        vsensor::unplug(0);
        return sent;
    });
    const Outcome got = read_(output, 2000);
    const uint64_t sent_before_unplug = unplugger.get();
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_GE(sent_before_unplug, 10u);
    EXPECT_EQ(got.result, -lu_ec_fw_recv_timeout);
    // The plug is pulled either while the transfer waits for a frame (it
    // completes with "no device") or while its callback runs (resubmitting
    // it fails).
    if (errors.empty())
        EXPECT_EQ(got.printed, "===>>>> libusb_submit_transfer fail!!!\n" + api_exception_line(lu_ec_fw_recv_timeout));
    else
        EXPECT_EQ(got.printed, api_exception_line(lu_ec_fw_recv_timeout));
    EXPECT_TRUE(errors.empty() || errors == bulk_status_line(LIBUSB_TRANSFER_NO_DEVICE)) << errors;
    EXPECT_EQ(output[0], -1.0);
}

TEST_F(Faults, SensorThatUnplugsAtStartOfStreamingCanBeDisconnected) {
    ASSERT_EQ(connect_sensors(1, vsensor::kFaultUnplugOnStream), 1);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(read_times_out(0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), bulk_status_line(LIBUSB_TRANSFER_NO_DEVICE));
    // Requests to a vanished sensor fail quietly; the ID reads as zeros.
    EXPECT_EQ(sensor_id_(), "A0-0-0-0-0");
    EXPECT_EQ(call_in_time("duSetShutterSpeed", [] { return duSetShutterSpeed(20); }).result, 1);
    EXPECT_EQ(disconnect_().result, 1);
    EXPECT_FALSE(vsensor::is_open(0));
    const Outcome again = connect_();
    EXPECT_EQ(again.result, -1);
    EXPECT_EQ(again.printed, "");
}

TEST_F(Faults, SecondConnectAfterASensorVanishedOpensTheOthers) {
    ASSERT_EQ(connect_sensors(3), 3);
    testing::internal::CaptureStderr();
    vsensor::unplug(1);
    // Its pending transfer ends with "no device": that sensor alone is gone.
    EXPECT_TRUE(read_times_out(1));
    EXPECT_TRUE(reads_its_level(0, 0));
    EXPECT_TRUE(reads_its_level(2, 2));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), bulk_status_line(LIBUSB_TRANSFER_NO_DEVICE));
    EXPECT_EQ(duGetSensorState(1), 3);
    const Outcome again = connect_();
    EXPECT_EQ(again.result, 2);
    EXPECT_EQ(again.printed, "Sensor is disconnected.\n" + kOpenedLines + kOpenedLines +
                                 "**** [oru_device_api] Total number of sensors: 2\n");
    EXPECT_EQ(duActivateSensorWithID(default_sensor_id(1).c_str()), -1);
    EXPECT_EQ(duActivateSensorWithID(default_sensor_id(2).c_str()), 1);
    EXPECT_TRUE(reads_its_level(0, 0));
    EXPECT_TRUE(reads_its_level(1, 2));
}

TEST_F(Faults, ConnectAfterEverySensorVanishedFindsNoneAndALaterSensorIsFound) {
    ASSERT_EQ(connect_sensors(1), 1);
    testing::internal::CaptureStderr();
    vsensor::unplug(0);
    const Outcome none = connect_();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(none.result, -1);
    EXPECT_EQ(none.printed, "Sensor is disconnected.\n");
    EXPECT_EQ(duGetTotalSensors(), 0);
    add_sensor(1);
    EXPECT_EQ(connect_().result, 1);
    EXPECT_TRUE(reads_its_level(0, 1));
}

// ---- control requests that fail ---------------------------------------------------

TEST_F(Faults, SensorThatDoesNotEchoReadsZeroSettingsButStillStreams) {
    ASSERT_EQ(connect_sensors(1, vsensor::kFaultNoEcho), 1);
    EXPECT_EQ(sensor_id_(), "A0-0-0-0-0");
    int gain = -1, range = -1;
    const Outcome parameters =
        call_in_time("duGetSensorParameters", [&] { return duGetSensorParameters(&gain, &range); });
    EXPECT_EQ(parameters.result, 1);
    EXPECT_EQ(gain, 0);
    EXPECT_EQ(range, 0);
    // A write whose read-back differs is sent once more, then accepted.
    vsensor::clear_events();
    EXPECT_EQ(call_in_time("duSetShutterSpeed", [] { return duSetShutterSpeed(100); }).result, 1);
    int writes = 0;
    for (const std::string& item : transcript_items(0)) writes += item == "cmd 5 value 100";
    EXPECT_EQ(writes, 2) << vsensor::transcript(0);
    EXPECT_EQ(vsensor::shutter_speed(0), 100);  // the sensor took it all the same
    EXPECT_EQ(duGetShutterSpeed(), 100);  // the value last set, not asked of the sensor
    EXPECT_TRUE(reads_its_level(0, 0));
    EXPECT_EQ(disconnect_().result, 1);
}

TEST_F(Faults, SensorWhoseControlRequestsTimeOutConnectsButGivesNoFrames) {
    ASSERT_EQ(connect_sensors(2, vsensor::kFaultControlTimeout), 2);
    EXPECT_EQ(sensor_id_(), "A0-0-0-0-0");
    EXPECT_EQ(call_in_time("duSetShutterSpeed", [] { return duSetShutterSpeed(50); }).result, 1);
    // The start-streaming request fails too, so the read times out.
    EXPECT_TRUE(read_times_out(0));
    EXPECT_TRUE(reads_its_level(1, 1));
    EXPECT_EQ(disconnect_().result, 1);
    vsensor::set_faults(0, vsensor::kFaultNone);
    EXPECT_EQ(connect_().result, 2);
    EXPECT_EQ(sensor_id_(), default_sensor_id(0));
    EXPECT_TRUE(reads_its_level(0, 0));
}

// ---- opening and claiming -----------------------------------------------------------

TEST_F(Faults, SensorWhoseInterfaceIsBusyConnectsButCannotStream) {
    ASSERT_EQ(connect_sensors(2, vsensor::kFaultClaim), 2);
    EXPECT_FALSE(vsensor::is_claimed(0));
    // Sensor 0 is counted, with no handle: nothing reaches it, its reads time
    // out; sensor 1 works.
    EXPECT_EQ(sensor_id_(), "A0-0-0-0-0");
    EXPECT_TRUE(read_times_out(0));
    EXPECT_TRUE(reads_its_level(1, 1));
    EXPECT_EQ(disconnect_().result, 1);
    vsensor::set_faults(0, vsensor::kFaultNone);
    EXPECT_EQ(connect_().result, 2);
    EXPECT_TRUE(reads_its_level(0, 0));
    EXPECT_TRUE(reads_its_level(1, 1));
}

// A sensor that cannot be opened or described ends the search there, with
// its lines; once the fault is gone the next connect finds every sensor.
struct OpenCase {
    const char* what;
    int sensors;
    int faulty;  // bus position of the sensor with the fault
    unsigned faults;
    int result;
    std::string printed;
};
void PrintTo(const OpenCase& c, std::ostream* os) { *os << c.what; }

class OpenFaults : public Faults, public testing::WithParamInterface<OpenCase> {};

TEST_P(OpenFaults, EndTheSearchAtTheSensorUntilTheFaultIsGone) {
    const OpenCase& c = GetParam();
    for (int i = 0; i < c.sensors; ++i) add_sensor(i, i == c.faulty ? c.faults : vsensor::kFaultNone);
    const Outcome got = connect_();
    EXPECT_EQ(got.result, c.result);
    EXPECT_EQ(got.printed, c.printed);
    for (int i = c.faulty; i < c.sensors; ++i) EXPECT_FALSE(vsensor::is_open(i)) << i;
    vsensor::set_faults(c.faulty, vsensor::kFaultNone);
    EXPECT_EQ(connect_().result, c.sensors);
    EXPECT_TRUE(reads_its_level(c.faulty, c.faulty));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, OpenFaults,
    testing::Values(
        // Once for the sensor, once for the LED driver search on the same device.
        OpenCase{"permission_denied", 1, 0, vsensor::kFaultOpenAccess, -1, kPermissionLines + kPermissionLines},
        OpenCase{"permission_denied_on_the_second", 3, 1, vsensor::kFaultOpenAccess, 1,
                 kOpenedLines + kPermissionLines + "**** [oru_device_api] Total number of sensors: 1\n"},
        OpenCase{"unreadable_descriptor", 1, 0, vsensor::kFaultDescriptor, -1, "failed to get device descriptor\n"}),
    [](const testing::TestParamInfo<OpenCase>& info) { return std::string(info.param.what); });

}  // namespace
