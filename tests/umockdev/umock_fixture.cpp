#include "umock_fixture.h"

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

}  // namespace umockbus
