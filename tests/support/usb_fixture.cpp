#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_usb.h"

#include <cstdio>

namespace usbtest {

Wire& Wire::cmd(int iCode, int iValue) {
    m_items.push_back("cmd " + std::to_string(iCode) + " value " + std::to_string(iValue));
    return *this;
}

Wire& Wire::out(int iRequest, int iValue, int iIndex) {
    m_items.push_back("out " + std::to_string(iRequest) + " value " + std::to_string(iValue) + " index " +
                      std::to_string(iIndex));
    return *this;
}

Wire& Wire::pause_ms(unsigned int iMs) {
    m_items.push_back("pause " + std::to_string(iMs) + " ms");
    return *this;
}

Wire& Wire::cmd_then_pause(int iCode, int iValue, unsigned int iMs) { return cmd(iCode, iValue).pause_ms(iMs); }

Wire& Wire::then(const Wire& other) {
    m_items.insert(m_items.end(), other.m_items.begin(), other.m_items.end());
    return *this;
}

std::string Wire::str() const {
    std::string text;
    for (const std::string& item : m_items) text += (text.empty() ? "" : ", ") + item;
    return text;
}

std::vector<vsensor::Event> control_events() {
    std::vector<vsensor::Event> controls;
    for (const vsensor::Event& e : vsensor::events())
        if (e.kind == vsensor::EventKind::Control) controls.push_back(e);
    return controls;
}

std::string setup(int iDev, int iType, int iRequest, int iValue, int iIndex, int iLength, unsigned int iTimeoutMs) {
    char text[128];
    std::snprintf(text, sizeof text, "dev%d type 0x%x request %d value %d index %d length %d timeout %u", iDev, iType,
                  iRequest, iValue, iIndex, iLength, iTimeoutMs);
    return text;
}

std::vector<std::string> setups() {
    std::vector<std::string> texts;
    for (const vsensor::Event& e : control_events())
        texts.push_back(setup(e.dev, e.bmRequestType, e.bRequest, e.wValue, e.wIndex, e.wLength, e.timeout));
    return texts;
}

std::vector<std::string> lifecycle_of(int iDev) {
    std::vector<std::string> steps;
    for (const vsensor::Event& e : vsensor::events())
        if (e.kind == vsensor::EventKind::Lifecycle && e.dev == iDev) steps.push_back(e.what);
    return steps;
}

void reset_usb_layer() {
    reset_usb_handles();
    reset_led_driver();
    reset_device_settings();
    vsensor::reset();
}

void UsbTest::SetUp() { reset_usb_layer(); }

void UsbTest::TearDown() { reset_usb_layer(); }

void UsbTest::connect_sensors(int nSensors, unsigned int faults) {
    vsensor::SensorOptions opts;
    opts.faults = faults;
    connect_sensors(std::vector<vsensor::SensorOptions>(static_cast<size_t>(nSensors), opts));
}

void UsbTest::connect_sensors(const std::vector<vsensor::SensorOptions>& sensors) {
    for (const vsensor::SensorOptions& opts : sensors) vsensor::add_sensor(opts);
    testing::internal::CaptureStdout();
    for (size_t i = 0; i < sensors.size(); ++i)
        EXPECT_EQ(connect_device(static_cast<unsigned int>(i)), 1) << "sensor " << i;
    testing::internal::GetCapturedStdout();
    vsensor::clear_events();
}

}  // namespace usbtest
