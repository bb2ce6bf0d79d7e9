// Helpers for the tests of the exported functions, the facade, the device
// object and the registry: a fixture on an empty virtual bus and stdout capture.
#ifndef ORU_TESTS_API_TEST_SUPPORT_H
#define ORU_TESTS_API_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vsensor/vsensor.h"
#include "vsensor_text.h"

// Captures what is printed on standard output while it is alive.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    // Ends the capture and returns the text (empty on a second call).
    std::string text();

private:
    bool m_active;
};

// Starts every test with an empty virtual bus and leaves no sensor open and
// no event thread running behind it.
class VirtualBusTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Adds `count` sensors with their distinct default identities.
    static void add_sensors(int count, const vsensor::SensorOptions& options = {});
    // Adds `count` sensors and connects them quietly.
    static void connect(int count, const vsensor::SensorOptions& options = {});
    // The ID of the active sensor, from duGetSensorID.
    static std::string active_sensor_id();
};

// The line the API prints for an oru_base_exception with this code.
std::string api_exception_line(int code);
// The line the API prints for any other exception.
std::string api_unknown_exception_line();


#endif
