// Exported functions that find, list and select sensors, and where their
// lines go.
#include "api_test_support.h"

#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "oru_device_api_state.h"
#include "oru_log.h"

#include <mutex>
#include <utility>
#include <vector>

#include <cstdlib>
#include <cstring>

namespace {

class ApiConnect : public VirtualBusTest {};

// The lines one sensor's bring-up prints while it is opened.
const std::string kBringUpLines = "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n";
std::string total_line(int n) { return "**** [oru_device_api] Total number of sensors: " + std::to_string(n) + "\n"; }

// 0, 1, 2 and 12 sensors on the bus: at most ten are opened and claimed,
// each printing its lines, then the total; none gives -1 silently.
TEST_F(ApiConnect, ConnectOpensUpToTenSensorsAndPrintsThem) {
    for (int n : {0, 1, 2, 12}) {
        SCOPED_TRACE(std::to_string(n) + " sensors");
        vsensor::reset();
        add_sensors(n);
        const int opened = std::min(n, 10);
        StdoutCapture out;
        EXPECT_EQ(duConnect(), n == 0 ? -1 : opened);
        std::string expected;
        for (int i = 0; i < opened; ++i) expected += kBringUpLines;
        EXPECT_EQ(out.text(), n == 0 ? "" : expected + total_line(opened));
        EXPECT_EQ(duGetTotalSensors(), opened);
        EXPECT_EQ(g_current_device_index, n == 0 ? -1 : 0);
        for (int dev = 0; dev < n; ++dev) EXPECT_EQ(vsensor::is_claimed(dev), dev < 10) << dev;
        StdoutCapture quiet;
        duDisconnect();
    }
}

struct Logged {
    std::mutex lock;
    std::vector<std::pair<int, std::string>> lines;
};

// The handler gets the same lines, in order, one by one without their
// newline, errors at level 1 (the event thread's too), and nothing is printed.
TEST_F(ApiConnect, LogHandlerTakesEveryLineInOrderAndNullRestoresStdout) {
    add_sensors(2);
    vsensor::set_faults(1, vsensor::kFaultBulkError);
    Logged logged;
    duSetLogHandler(
        [](int level, const char* line, void* user) {
            auto* logged = static_cast<Logged*>(user);
            std::lock_guard<std::mutex> lk(logged->lock);
            logged->lines.emplace_back(level, line);
        },
        &logged);
    testing::internal::CaptureStderr();
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 2);
    EXPECT_EQ(duGetFilterData(nullptr, 1), -lu_ec_filter_buffer_is_null);
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    std::vector<double> data(1024);
    EXPECT_EQ(duGetFilterData(data.data(), 1), -lu_ec_fw_recv_timeout);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    auto line = [](const std::string& text) { return text.substr(0, text.size() - 1); };
    const std::vector<std::pair<int, std::string>> expected = {
        {0, "[Info] Reading first configuration descriptor:"},
        {0, "[Info] nb interfaces: 1"},
        {0, "[Info] Reading first configuration descriptor:"},
        {0, "[Info] nb interfaces: 1"},
        {0, line(total_line(2))},
        {1, line(api_exception_line(lu_ec_filter_buffer_is_null))},
        {1, "bulk data transfer status 1?"},
        {1, line(api_exception_line(lu_ec_fw_recv_timeout))},
    };
    {
        std::lock_guard<std::mutex> lk(logged.lock);
        EXPECT_EQ(logged.lines, expected);
    }
    duSetLogHandler(nullptr, nullptr);
    StdoutCapture again;
    EXPECT_EQ(duDisconnect(), 1);
    EXPECT_EQ(again.text(), "Sensor is disconnected.\n");
}

// A handler sees whole lines: text is split at every newline, a line
// written in parts arrives once, and a text longer than the stack buffer
// splits the same way.
TEST_F(ApiConnect, LogHandlerGetsWholeLinesHoweverTheTextWasWritten) {
    const std::string long_part(300, 'x');
    struct Case {
        std::vector<std::string> writes;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {{"one\ntwo\n"}, {"one", "two"}},
        {{"par", "t", "ial\n"}, {"partial"}},
        {{"a\n\nb\nrest", "\n"}, {"a", "", "b", "rest"}},
        {{long_part + "\n" + long_part + "\ntail"}, {long_part, long_part}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> lines;
        duSetLogHandler([](int, const char* line, void* user) { static_cast<std::vector<std::string>*>(user)->push_back(line); },
                        &lines);
        for (const std::string& text : c.writes) oru_log(kLogError, "%s", text.c_str());
        EXPECT_EQ(lines, c.lines) << c.writes.front();
        reset_log_sink();
    }
}

// ORU_DEVICE_LOG=off prints nothing, =stderr sends every line there.
TEST_F(ApiConnect, LogOffPrintsNothingAndLogStderrMovesEveryLine) {
    add_sensors(1);
    for (const char* mode : {"off", "stderr"}) {
        reset_log_sink();
        setenv("ORU_DEVICE_LOG", mode, 1);
        testing::internal::CaptureStderr();
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 1);
        EXPECT_EQ(duGetFilterData(nullptr, 1), -lu_ec_filter_buffer_is_null);
        EXPECT_EQ(duDisconnect(), 1);
        unsetenv("ORU_DEVICE_LOG");
        EXPECT_EQ(out.text(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(mode) == "off"
                                                              ? ""
                                                              : kBringUpLines + total_line(1) +
                                                                    api_exception_line(lu_ec_filter_buffer_is_null) +
                                                                    "Sensor is disconnected.\n");
    }
    reset_log_sink();
}

// A second connect disconnects first, starts again from sensor 0, and the
// sensors read as before.
TEST_F(ApiConnect, ConnectWhileConnectedDisconnectsFirst) {
    connect(2);
    duActivateSensorWithIndex(1);
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 2);
        EXPECT_EQ(out.text(), "Sensor is disconnected.\n" + kBringUpLines + kBringUpLines + total_line(2));
    }
    EXPECT_EQ(g_current_device_index, 0);
    vsensor::set_constant_frame(1, 777);
    duActivateSensorWithIndex(1);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 3), 1);
    EXPECT_DOUBLE_EQ(output[0], 777.0);
}

TEST_F(ApiConnect, DisconnectEmptiesTheTableButKeepsTheActiveIndexAndAlwaysReports) {
    for (int n : {0, 2}) {
        if (n > 0) connect(n);
        duActivateSensorWithIndex(1);
        StdoutCapture out;
        EXPECT_EQ(duDisconnect(), 1);
        EXPECT_EQ(out.text(), "Sensor is disconnected.\n");
    }
    EXPECT_EQ(duGetTotalSensors(), 0);
    EXPECT_EQ(g_pDeviceInterface[0], nullptr);
    EXPECT_EQ(g_pDeviceInterface[1], nullptr);
    EXPECT_EQ(g_current_device_index, 1);
}

TEST_F(ApiConnect, SensorListHoldsPaddedIdsWithoutTerminator) {
    {
        StdoutCapture out;
        std::free(duGetSensorList());
        EXPECT_EQ(out.text(), "[oru_device_api] Total sensors in your system = 0).\n");
    }
    connect(2);
    StdoutCapture out;
    char** list = duGetSensorList();
    EXPECT_EQ(out.text(), "[oru_device_api] Total sensors in your system = 2).\n[oru_device_api] Sensor ID: " +
                              default_sensor_id(0) + "\n[oru_device_api] Sensor ID: " + default_sensor_id(1) + "\n");
    ASSERT_NE(list, nullptr);
    for (int i = 0; i < 2; ++i) {
        const std::string expected = default_sensor_id(i);
        EXPECT_EQ(std::string(list[i]), expected);
        for (std::size_t b = expected.size(); b < 26; ++b) EXPECT_EQ(list[i][b], '\0') << "byte " << b;
        std::free(list[i]);
    }
    std::free(list);
}

TEST_F(ApiConnect, ActivateByIndexClamps) {
    connect(2);
    for (const auto& [requested, active] : std::vector<std::pair<int, int>>{{7, 1}, {-5, 0}, {1, 1}, {2, 1}, {0, 0}}) {
        EXPECT_EQ(duActivateSensorWithIndex(requested), 1);
        EXPECT_EQ(g_current_device_index, active) << requested;
        EXPECT_EQ(active_sensor_id(), default_sensor_id(active)) << requested;
    }
}

// Exact match only, the first of equal IDs, its index returned; an unknown
// ID keeps the active sensor.
TEST_F(ApiConnect, ActivateByIdFindsTheFirstExactMatch) {
    vsensor::SensorOptions same;
    same.identity_set = true;
    same.identity.x_coord = 30;
    add_sensors(1);
    add_sensors(2, same);
    StdoutCapture out;
    ASSERT_EQ(duConnect(), 3);
    out.text();
    EXPECT_EQ(duActivateSensorWithID(default_sensor_id(0).c_str()), 0);
    EXPECT_EQ(duActivateSensorWithID("A4486-3-30-40-2"), 1);
    EXPECT_EQ(g_current_device_index, 1);
    std::string lower = "a4486-3-30-40-2";
    for (const std::string& unknown : {lower, default_sensor_id(0) + "0", std::string()})
        EXPECT_EQ(duActivateSensorWithID(unknown.c_str()), -1) << unknown;
    EXPECT_EQ(g_current_device_index, 1);
}

TEST_F(ApiConnect, SensorIdFollowsTheIdentityAndFillsExactly26Bytes) {
    vsensor::SensorOptions options;
    options.identity_set = true;
    options.identity = {'C', 1234, 7, 100, 5, 1};
    connect(1, options);
    char buffer[40];
    std::memset(buffer, 0x55, sizeof buffer);
    EXPECT_EQ(duGetSensorID(buffer), 1);
    EXPECT_EQ(std::string(buffer), "C1234-7-100-5-1");
    for (std::size_t b = 15; b < 26; ++b) EXPECT_EQ(buffer[b], '\0') << "byte " << b;
    for (std::size_t b = 26; b < sizeof buffer; ++b) EXPECT_EQ(buffer[b], 0x55) << "byte " << b;
    StdoutCapture out;
    EXPECT_EQ(duActivateSensorWithID(nullptr), -8);
    EXPECT_EQ(duGetSensorID(nullptr), -2);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_sensor_id_is_empty) + api_exception_line(lu_ec_memory_is_null));
}

}  // namespace
