// Shared set-up of the streaming, acquisition, auto-exposure and bring-up
// tests: sensors brought up on the virtual bus with the event thread running,
// torn down again afterwards, and builders for the streaming wire traces.
#ifndef ORU_TESTS_STREAM_FIXTURE_H
#define ORU_TESTS_STREAM_FIXTURE_H

#include "usb_fixture.h"

#include "oru_base_exception.h"

#include <functional>
#include <string>
#include <vector>

namespace streamtest {

// Streaming command with the pause that follows it (30 ms at shutter speed 1).
usbtest::Wire stream_cmd(int iCommand, unsigned int iPauseMs = 30);
// Stop, 20 ms, start: how a request switches streaming on.
usbtest::Wire stream_start(unsigned int iPauseMs = 30);
// Stop, 20 ms, stop, 20 ms, stop: how streaming is switched off.
usbtest::Wire stream_stop(unsigned int iPauseMs = 30);

// Shutter speeds written to bus device `dev`, in order (from the 37/5 pairs).
std::vector<int> shutter_speeds_written(int dev = 0);

// Waits (bounded) until sensor `iDeviceId` has the health `iHealth`
// (kSensorFailed after a transfer error, kSensorRemoved after an unplug).
bool wait_for_health(unsigned int iDeviceId, int iHealth);

// True when all 1024 values equal `value`.
::testing::AssertionResult all_equal(const std::vector<double>& values, double value);

class StreamTest : public usbtest::UsbTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Puts n sensors on the bus and brings up indices 0 .. n-1 in order; the
    // bring-up's own traffic and output are cleared away.
    void bring_up(int nSensors, unsigned int faults = vsensor::kFaultNone);
    // Brings up one index of sensors already on the bus; returns the result.
    int bring_up_index(unsigned int iDeviceId);
    // Tears down one index now (TearDown skips it afterwards).
    int tear_down_index(unsigned int iDeviceId);

    // One averaged read; returns the error code reported by the request.
    ORU_ERROR_CODE read(std::vector<double>& out, int nAverages, int iMode, unsigned int iDeviceId = 0);

    std::vector<unsigned int> m_up;
};

// Brightness that follows the shutter speed last set: filter i of every frame
// reads value(i, shutter speed), clamped to 0 .. 4095.
vsensor::FrameSource shutter_dependent(std::function<int(int iFilter, int iShutterSpeed)> value);

}  // namespace streamtest

#endif
