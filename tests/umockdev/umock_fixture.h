// Fixture of the umockdev tier: sensors of the firmware model on the
// testbed, the library on the real libusb.
#ifndef UMOCKBUS_UMOCK_FIXTURE_H
#define UMOCKBUS_UMOCK_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vsensor/vsensor.h"
#include "vsensor_text.h"

namespace umockbus {

class RealUsbTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Adds `count` sensors to the bus and plugs them into the testbed.
    void plug_sensors(int count, const vsensor::SensorOptions& options = {});
    // duConnect with its standard output kept in connect_output().
    int connect();
    // duDisconnect; a test that leaves sensors connected gets this at its end.
    int disconnect();
    const std::string& connect_output() const { return m_connect_output; }

private:
    bool m_connected = false;
    std::string m_connect_output;
};

// Runs `call` with its standard output captured and dropped. (Failures
// must not be reported inside a capture: gtest prints them to stdout.)
template <typename Call>
auto quietly(Call call) {
    testing::internal::CaptureStdout();
    auto result = call();
    testing::internal::GetCapturedStdout();
    return result;
}
// Waits (up to 2 s) until no file of bus device `dev` is open. umockdev
// notices a close a little after it happened; usbfs itself at once.
bool files_closed(int dev);

}  // namespace umockbus

#endif
