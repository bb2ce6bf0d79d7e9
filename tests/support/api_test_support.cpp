#include "api_test_support.h"

#include "efm32com/oru_device_interface_stm_bringup.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"

StdoutCapture::StdoutCapture() : m_active(true) { testing::internal::CaptureStdout(); }

StdoutCapture::~StdoutCapture() { text(); }

std::string StdoutCapture::text() {
    if (!m_active) return std::string();
    m_active = false;
    return testing::internal::GetCapturedStdout();
}

void VirtualBusTest::SetUp() { vsensor::reset(); }

void VirtualBusTest::TearDown() {
    if (duGetTotalSensors() > 0) {
        StdoutCapture quiet;
        duDisconnect();
    }
    // A bring-up of sensor 0 starts the event thread even when no sensor
    // came up; end it so that the process can exit cleanly.
    if (usbEventLoop_thread.joinable()) {
        StdoutCapture quiet;
        close_device_interface(0);
    }
}

void VirtualBusTest::add_sensors(int count, const vsensor::SensorOptions& options) {
    for (int i = 0; i < count; ++i) vsensor::add_sensor(options);
}

void VirtualBusTest::connect(int count, const vsensor::SensorOptions& options) {
    add_sensors(count, options);
    StdoutCapture quiet;
    ASSERT_EQ(duConnect(), count);
}

std::string VirtualBusTest::active_sensor_id() {
    char id[26] = {};
    EXPECT_EQ(duGetSensorID(id), 1);
    return id;
}

std::string api_exception_line(int code) {
    return std::string("[oru_device_api] ORU_BASE_EXCEPTION happened: ") +
           oru_base_exception(static_cast<ORU_ERROR_CODE>(code)).what() + "\n";
}

std::string api_unknown_exception_line() { return "[oru_device_api] std::exception happed !!\n"; }
