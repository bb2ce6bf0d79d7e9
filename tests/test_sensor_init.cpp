// Start-up settings of a sensor: ADC 132/0, shutter 1, blank time 2, each
// verified and written once more on a mismatch.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_init.h"

using usbtest::Wire;

namespace {

class SensorInit : public usbtest::UsbTest {};

// Two writes and two reads, each followed by the settle pause.
Wire verified_try(int iWrite1, int iValue1, int iWrite2, int iValue2, int iRead1, int iRead2, unsigned int iMs = 30) {
    return Wire()
        .cmd_then_pause(iWrite1, iValue1, iMs)
        .cmd_then_pause(iWrite2, iValue2, iMs)
        .cmd_then_pause(iRead1, 0, iMs)
        .cmd_then_pause(iRead2, 0, iMs);
}
const Wire kAdcTry = verified_try(19, 132, 20, 0, 35, 40);
const Wire kShutterTry = verified_try(37, 0, 5, 1, 36, 4);
const Wire kBlankTry = verified_try(34, 0, 33, 2, 39, 38);

}  // namespace

// The counters follow the shutter check alone: total = success + failure.
TEST_F(SensorInit, EchoingSensorGetsTwelveCommandsOtherEachSettingTwice) {
    connect_sensors(2);
    vsensor::set_faults(1, vsensor::kFaultNoEcho);
    initialize_sensor(0);
    EXPECT_EQ(vsensor::transcript(), Wire(kAdcTry).then(kShutterTry).then(kBlankTry).str());
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
    EXPECT_EQ(iCurBlankTime, 2);
    vsensor::clear_events();
    initialize_sensor(1);
    EXPECT_EQ(vsensor::transcript(),
              Wire(kAdcTry).then(kAdcTry).then(kShutterTry).then(kShutterTry).then(kBlankTry).then(kBlankTry).str());
    initialize_sensor(0);
    EXPECT_EQ((std::vector<int>{iTotalCount, iSuccessCount, iFailCount}), (std::vector<int>{3, 2, 1}));
}

TEST_F(SensorInit, PausesFollowSleepTime) {
    connect_sensors(1);
    g_iSleepTime = 4;
    initialize_sensor(0);
    EXPECT_EQ(vsensor::transcript(), verified_try(19, 132, 20, 0, 35, 40, 4)
                                         .then(verified_try(37, 0, 5, 1, 36, 4, 4))
                                         .then(verified_try(34, 0, 33, 2, 39, 38, 4))
                                         .str());
}

// Every reply reads 1: the ADC and blank-time checks retry, and so does the
// shutter check (upper byte 1 instead of 0), which counts a failure.
TEST_F(SensorInit, SensorWithoutHandleSendsNothingButRetriesEveryCheck) {
    initialize_sensor(0);
    EXPECT_TRUE(usbtest::control_events().empty());
    EXPECT_EQ(vsensor::total_pause_us(), 24 * 30000u);
    EXPECT_EQ(iFailCount, 1);
}
