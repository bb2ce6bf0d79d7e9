// Shared set-up of the device-layer tests: a fresh virtual bus and fresh
// process-wide USB state per test, and builders for expected wire traces.
#ifndef ORU_TESTS_USB_FIXTURE_H
#define ORU_TESTS_USB_FIXTURE_H

#include <gtest/gtest.h>
#include <vsensor/vsensor.h>

#include <string>
#include <vector>

namespace usbtest {

// Expected transcript in vsensor::transcript() form, built step by step:
//   Wire().cmd(34, 4).pause_ms(5).str() == "cmd 34 value 4, pause 5 ms"
class Wire {
public:
    Wire& cmd(int iCode, int iValue = 0);
    Wire& out(int iRequest, int iValue, int iIndex);
    Wire& pause_ms(unsigned int iMs);
    // A command followed by its pause, the common shape of the protocol.
    Wire& cmd_then_pause(int iCode, int iValue, unsigned int iMs);
    Wire& then(const Wire& other);
    std::string str() const;

private:
    std::vector<std::string> m_items;
};

// The control requests seen on the bus, in order.
std::vector<vsensor::Event> control_events();
// Their full setups, e.g. "dev0 type 0xa1 request 2 value 132 index 1 length 2048 timeout 2000".
std::vector<std::string> setups();
std::string setup(int iDev, int iType, int iRequest, int iValue, int iIndex, int iLength, unsigned int iTimeoutMs);
// Lifecycle events ("open", "claim 0", ...) of one bus device, in order.
std::vector<std::string> lifecycle_of(int iDev);

// Puts the device layer's process-wide state (handle maps, LED driver,
// settings globals and counters) back to its start values and empties the
// virtual bus, so cases are independent even when one process runs them all.
void reset_usb_layer();

class UsbTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Puts n sensors on the bus and connects sensor i under index i; the
    // connection's own traffic and output are cleared away.
    void connect_sensors(int nSensors, unsigned int faults = vsensor::kFaultNone);
    void connect_sensors(const std::vector<vsensor::SensorOptions>& sensors);
};

}  // namespace usbtest

#endif
