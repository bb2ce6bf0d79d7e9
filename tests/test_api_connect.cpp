// Exported functions that find, list and select sensors.
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
std::string bring_up_lines() { return "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n"; }

std::string active_sensor_id() {
    char id[26];
    EXPECT_EQ(duGetSensorID(id), 1);
    return id;
}

TEST_F(ApiConnect, NoSensorGivesMinusOneSilentlyAndNoActiveSensor) {
    StdoutCapture out;
    EXPECT_EQ(duConnect(), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(g_current_device_index, -1);
    EXPECT_EQ(duGetTotalSensors(), 0);
}

TEST_F(ApiConnect, OneSensor) {
    add_sensors(1);
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 1);
    EXPECT_EQ(out.text(), bring_up_lines() + "**** [oru_device_api] Total number of sensors: 1\n");
    EXPECT_EQ(duGetTotalSensors(), 1);
    EXPECT_EQ(g_current_device_index, 0);
    EXPECT_TRUE(vsensor::is_claimed(0));
}

TEST_F(ApiConnect, TwoSensorsArePrintedAndCounted) {
    add_sensors(2);
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 2);
    EXPECT_EQ(out.text(), bring_up_lines() + bring_up_lines() + "**** [oru_device_api] Total number of sensors: 2\n");
    EXPECT_EQ(duGetTotalSensors(), 2);
    EXPECT_EQ(g_current_device_index, 0);
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_TRUE(vsensor::is_claimed(1));
}

// ---- where the lines go ----

struct Logged {
    std::mutex lock;
    std::vector<std::pair<int, std::string>> lines;
};

void collect(int level, const char* line, void* user) {
    auto* logged = static_cast<Logged*>(user);
    std::lock_guard<std::mutex> lk(logged->lock);
    logged->lines.emplace_back(level, line);
}

// The handler gets the same lines, in order, one by one without their
// newline, errors at level 1 (the event thread's too), and nothing is printed.
TEST_F(ApiConnect, LogHandlerTakesEveryLineInOrderAndNullRestoresStdout) {
    add_sensors(2);
    vsensor::set_faults(1, vsensor::kFaultBulkError);
    Logged logged;
    duSetLogHandler(collect, &logged);
    testing::internal::CaptureStderr();
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 2);
    EXPECT_EQ(duGetFilterData(nullptr, 1), -lu_ec_filter_buffer_is_null);
    ASSERT_EQ(duActivateSensorWithIndex(1), 1);
    std::vector<double> data(1024);
    EXPECT_EQ(duGetFilterData(data.data(), 1), -lu_ec_fw_recv_timeout);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    using Line = std::pair<int, std::string>;
    const std::vector<Line> expected = {
        {0, "[Info] Reading first configuration descriptor:"},
        {0, "[Info] nb interfaces: 1"},
        {0, "[Info] Reading first configuration descriptor:"},
        {0, "[Info] nb interfaces: 1"},
        {0, "**** [oru_device_api] Total number of sensors: 2"},
        {1, api_exception_line(lu_ec_filter_buffer_is_null)
                .substr(0, api_exception_line(lu_ec_filter_buffer_is_null).size() - 1)},
        {1, "bulk data transfer status 1?"},
        {1, api_exception_line(lu_ec_fw_recv_timeout).substr(0, api_exception_line(lu_ec_fw_recv_timeout).size() - 1)},
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

TEST_F(ApiConnect, LogOffPrintsNothing) {
    reset_log_sink();
    setenv("ORU_DEVICE_LOG", "off", 1);
    add_sensors(1);
    testing::internal::CaptureStderr();
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 1);
    EXPECT_EQ(duGetFilterData(nullptr, 1), -lu_ec_filter_buffer_is_null);
    EXPECT_EQ(duDisconnect(), 1);
    unsetenv("ORU_DEVICE_LOG");
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    reset_log_sink();
}

TEST_F(ApiConnect, TwelveSensorsOpenOnlyTheFirstTen) {
    add_sensors(12);
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 10);
    }
    EXPECT_EQ(duGetTotalSensors(), 10);
    for (int dev = 0; dev < 10; ++dev) EXPECT_TRUE(vsensor::is_claimed(dev)) << dev;
    EXPECT_FALSE(vsensor::is_claimed(10));
    EXPECT_FALSE(vsensor::is_claimed(11));
    for (int dev = 0; dev < 10; ++dev) EXPECT_NE(g_pDeviceInterface[dev], nullptr);
}

TEST_F(ApiConnect, ConnectWhileConnectedDisconnectsFirst) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    duActivateSensorWithIndex(1);
    StdoutCapture out;
    EXPECT_EQ(duConnect(), 2);
    EXPECT_EQ(out.text(), "Sensor is disconnected.\n" + bring_up_lines() + bring_up_lines() +
                              "**** [oru_device_api] Total number of sensors: 2\n");
    EXPECT_EQ(g_current_device_index, 0);
}

TEST_F(ApiConnect, DisconnectWithoutSensorsStillReports) {
    StdoutCapture out;
    EXPECT_EQ(duDisconnect(), 1);
    EXPECT_EQ(out.text(), "Sensor is disconnected.\n");
}

TEST_F(ApiConnect, DisconnectEmptiesTheTableButKeepsTheActiveIndex) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    duActivateSensorWithIndex(1);
    StdoutCapture out;
    EXPECT_EQ(duDisconnect(), 1);
    EXPECT_EQ(out.text(), "Sensor is disconnected.\n");
    EXPECT_EQ(duGetTotalSensors(), 0);
    EXPECT_EQ(g_pDeviceInterface[0], nullptr);
    EXPECT_EQ(g_pDeviceInterface[1], nullptr);
    EXPECT_EQ(g_current_device_index, 1);
}

TEST_F(ApiConnect, SensorListHoldsPaddedIdsWithoutTerminator) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    StdoutCapture out;
    char** list = duGetSensorList();
    EXPECT_EQ(out.text(),
              "[oru_device_api] Total sensors in your system = 2).\n"
              "[oru_device_api] Sensor ID: " +
                  default_sensor_id(0) +
                  "\n"
                  "[oru_device_api] Sensor ID: " +
                  default_sensor_id(1) + "\n");
    ASSERT_NE(list, nullptr);
    for (int i = 0; i < 2; ++i) {
        const std::string expected = default_sensor_id(i);
        EXPECT_EQ(std::string(list[i]), expected);
        for (std::size_t b = expected.size(); b < 26; ++b) EXPECT_EQ(list[i][b], '\0') << "byte " << b;
        std::free(list[i]);
    }
    std::free(list);
}

TEST_F(ApiConnect, SensorListWithoutSensorsPrintsCountZero) {
    StdoutCapture out;
    char** list = duGetSensorList();
    EXPECT_EQ(out.text(), "[oru_device_api] Total sensors in your system = 0).\n");
    std::free(list);
}

TEST_F(ApiConnect, ActivateByIndexClamps) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    EXPECT_EQ(duActivateSensorWithIndex(7), 1);
    EXPECT_EQ(g_current_device_index, 1);
    EXPECT_EQ(active_sensor_id(), default_sensor_id(1));
    EXPECT_EQ(duActivateSensorWithIndex(-5), 1);
    EXPECT_EQ(g_current_device_index, 0);
    EXPECT_EQ(active_sensor_id(), default_sensor_id(0));
    EXPECT_EQ(duActivateSensorWithIndex(1), 1);
    EXPECT_EQ(active_sensor_id(), default_sensor_id(1));
    EXPECT_EQ(duActivateSensorWithIndex(2), 1);
    EXPECT_EQ(g_current_device_index, 1);
}

TEST_F(ApiConnect, ActivateByIdFindsTheSensor) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    StdoutCapture out;
    EXPECT_EQ(duActivateSensorWithID(default_sensor_id(1).c_str()), 1);
    EXPECT_EQ(g_current_device_index, 1);
    EXPECT_EQ(duActivateSensorWithID(default_sensor_id(0).c_str()), 0);
    EXPECT_EQ(g_current_device_index, 0);
    EXPECT_EQ(out.text(), "");
}

TEST_F(ApiConnect, ActivateByIdIsExactAndKeepsTheActiveSensorWhenUnknown) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    duActivateSensorWithIndex(1);
    std::string lower = default_sensor_id(0);
    lower[0] = 'a';
    EXPECT_EQ(duActivateSensorWithID(lower.c_str()), -1);
    EXPECT_EQ(duActivateSensorWithID((default_sensor_id(0) + "0").c_str()), -1);
    EXPECT_EQ(duActivateSensorWithID(""), -1);
    EXPECT_EQ(g_current_device_index, 1);
}

TEST_F(ApiConnect, ActivateByIdTakesTheFirstOfTwoEqualIds) {
    vsensor::SensorOptions same;
    same.identity_set = true;
    same.identity.x_coord = 30;
    add_sensors(2, same);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    duActivateSensorWithIndex(1);
    EXPECT_EQ(duActivateSensorWithID("A4486-3-30-40-2"), 0);
    EXPECT_EQ(g_current_device_index, 0);
}

TEST_F(ApiConnect, NullArguments) {
    add_sensors(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
    }
    StdoutCapture out;
    EXPECT_EQ(duActivateSensorWithID(nullptr), -8);
    EXPECT_EQ(duGetSensorID(nullptr), -2);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_sensor_id_is_empty) + api_exception_line(lu_ec_memory_is_null));
    EXPECT_EQ(g_current_device_index, 0);
}

TEST_F(ApiConnect, SensorIdFillsExactly26Bytes) {
    add_sensors(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
    }
    char buffer[40];
    std::memset(buffer, 0x55, sizeof buffer);
    EXPECT_EQ(duGetSensorID(buffer), 1);
    const std::string expected = default_sensor_id(0);
    EXPECT_EQ(std::string(buffer), expected);
    for (std::size_t b = expected.size(); b < 26; ++b) EXPECT_EQ(buffer[b], '\0') << "byte " << b;
    for (std::size_t b = 26; b < sizeof buffer; ++b) EXPECT_EQ(buffer[b], 0x55) << "byte " << b;
}

TEST_F(ApiConnect, IdsFollowTheSensorIdentity) {
    vsensor::SensorOptions options;
    options.identity_set = true;
    options.identity.lot_char = 'C';
    options.identity.lot_id = 1234;
    options.identity.wafer_id = 7;
    options.identity.x_coord = 100;
    options.identity.y_coord = 5;
    options.identity.sensor_type = 1;
    add_sensors(1, options);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
    }
    EXPECT_EQ(active_sensor_id(), "C1234-7-100-5-1");
    EXPECT_EQ(duActivateSensorWithID("C1234-7-100-5-1"), 0);
}

}  // namespace
