#include "umock_fixture.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "oru_device_api.h"
#include "umock_bus.h"

namespace umockbus {

void RealUsbTest::SetUp() {
    const std::string reason = unavailable_reason();
    if (!reason.empty()) GTEST_SKIP() << "umockdev tier skipped: " << reason;
    // libusb's default context, the library's process-wide state and the
    // testbed's devices all outlive a case.
    static int cases_run = 0;
    if (++cases_run > 1)
        GTEST_SKIP() << "each case of this tier needs a process of its own: ctest runs them so, "
                        "or choose one with --gtest_filter";
}

void RealUsbTest::TearDown() {
    if (m_connected) {
        testing::internal::CaptureStdout();
        disconnect();
        testing::internal::GetCapturedStdout();
    }
}

void RealUsbTest::plug_sensors(int count, const vsensor::SensorOptions& options) {
    for (int i = 0; i < count; ++i) vsensor::add_sensor(options);
    const std::string error = plug_bus_devices();
    ASSERT_EQ(error, "") << "the testbed could not take the sensors";
}

int RealUsbTest::connect() {
    testing::internal::CaptureStdout();
    const int result = duConnect();
    m_connect_output = testing::internal::GetCapturedStdout();
    m_connected = result > 0;
    return result;
}

int RealUsbTest::disconnect() {
    m_connected = false;
    return duDisconnect();
}

bool files_closed(int dev) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (vsensor::is_open(dev)) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string default_sensor_id(int pos) {
    const vsensor::Identity id;
    return std::string(1, id.lot_char) + std::to_string(id.lot_id) + "-" + std::to_string(id.wafer_id) + "-" +
           std::to_string(id.x_coord + pos) + "-" + std::to_string(id.y_coord) + "-" + std::to_string(id.sensor_type);
}

std::vector<std::string> transcript_items(int dev, bool with_lifecycle) {
    std::vector<std::string> items;
    const std::string text = vsensor::transcript(dev, with_lifecycle);
    size_t from = 0;
    while (from < text.size()) {
        size_t comma = text.find(", ", from);
        if (comma == std::string::npos) comma = text.size();
        items.push_back(text.substr(from, comma - from));
        from = comma + 2;
    }
    return items;
}

int position(const std::vector<std::string>& items, const std::string& item, int from) {
    if (from < 0 || from > static_cast<int>(items.size())) return -1;
    auto it = std::find(items.begin() + from, items.end(), item);
    return it == items.end() ? -1 : static_cast<int>(it - items.begin());
}

}  // namespace umockbus
