// Exposure and ADC settings: wire sequences, pauses, retries and counters.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"

using usbtest::Wire;

namespace {

class Settings : public usbtest::UsbTest {};

Wire blank_time_write(int iUpper, int iLower, unsigned int iPauseMs) {
    return Wire().cmd_then_pause(34, iUpper, iPauseMs).cmd_then_pause(33, iLower, iPauseMs);
}

Wire shutter_try(int iUpper, int iLower) {
    return Wire()
        .cmd_then_pause(37, iUpper, 5)
        .cmd_then_pause(5, iLower, 5)
        .cmd_then_pause(36, 0, 5)
        .cmd_then_pause(4, 0, 5);
}

Wire adc_try(int iRange, int iGainRes, unsigned int iPauseMs = 30) {
    return Wire()
        .cmd_then_pause(19, iRange, iPauseMs)
        .cmd_then_pause(20, iGainRes, iPauseMs)
        .cmd_then_pause(35, 0, iPauseMs)
        .cmd_then_pause(40, 0, iPauseMs);
}

struct SCounts {
    int iTotal, iSuccess, iFail;
    bool operator==(const SCounts& o) const { return iTotal == o.iTotal && iSuccess == o.iSuccess && iFail == o.iFail; }
};
std::ostream& operator<<(std::ostream& os, const SCounts& c) {
    return os << "{total " << c.iTotal << ", success " << c.iSuccess << ", fail " << c.iFail << "}";
}
SCounts counts() { return {iTotalCount, iSuccessCount, iFailCount}; }

}  // namespace

// ---- shutter speed, write ----

TEST_F(Settings, ShutterWriteSetsBlankTimeFirstThenVerifiesAndSettles) {
    connect_sensors(1);
    EXPECT_EQ(set_shutter_speed_to_sensor(1000, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(),
              "cmd 34 value 4, pause 5 ms, cmd 33 value 8, pause 5 ms, cmd 37 value 3, pause 5 ms, "
              "cmd 5 value 232, pause 5 ms, cmd 36 value 0, pause 5 ms, cmd 4 value 0, pause 5 ms, pause 732 ms");
    EXPECT_EQ(vsensor::shutter_speed(0), 1000);
    EXPECT_EQ(g_iCurShutterSpeed.load(), 1000);
    EXPECT_EQ(iCurBlankTime, 1032);
    EXPECT_EQ(counts(), (SCounts{1, 1, 0}));
}

TEST_F(Settings, ShutterWriteRetriesTheShutterBytesExactlyOnce) {
    connect_sensors(1, vsensor::kFaultNoEcho);
    EXPECT_EQ(set_shutter_speed_to_sensor(1000, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(),
              blank_time_write(4, 8, 5).then(shutter_try(3, 232)).then(shutter_try(3, 232)).pause_ms(732).str());
    EXPECT_EQ(counts(), (SCounts{1, 0, 1}));
}

TEST_F(Settings, ShutterBeyondSixteenBitsGoesOutTruncatedAndCountsAsFailure) {
    connect_sensors(1);
    // 65536 + 300: bytes 1 and 44 on the wire, blank time 65868 -> 1 and 76.
    EXPECT_EQ(set_shutter_speed_to_sensor(65836, 0), lu_ec_success);
    // The bytes read back match what was sent, so there is no retry, but the
    // whole value never comes back.
    EXPECT_EQ(vsensor::transcript(), blank_time_write(1, 76, 5).then(shutter_try(1, 44)).pause_ms(46117).str());
    EXPECT_EQ(counts(), (SCounts{1, 0, 1}));
}

TEST_F(Settings, NegativeShutterUsesArithmeticShiftAndNoNegativePause) {
    connect_sensors(1);
    set_shutter_speed_to_sensor(-1, 0);  // blank time 31
    EXPECT_EQ(vsensor::transcript(), blank_time_write(0, 31, 5).then(shutter_try(255, 255)).pause_ms(31).str());
    EXPECT_EQ(counts(), (SCounts{1, 0, 1}));

    vsensor::clear_events();
    set_shutter_speed_to_sensor(-100, 0);  // blank time -68: the settling time is below zero and becomes 0
    EXPECT_EQ(vsensor::transcript(), blank_time_write(255, 188, 5).then(shutter_try(255, 156)).str());
}

TEST_F(Settings, ShutterWriteWithoutHandleOnlyPausesAndCountsFailure) {
    EXPECT_EQ(set_shutter_speed_to_sensor(10, 3), lu_ec_success);
    EXPECT_TRUE(usbtest::control_events().empty());
    // 6 commands, one retry of 4, then (10 + 32) * 0.7 + 10 = 39 ms.
    EXPECT_EQ(vsensor::total_pause_us(), (10 * 5 + 39) * 1000u);
    EXPECT_EQ(counts(), (SCounts{1, 0, 1}));
}

// ---- shutter speed, read ----

TEST_F(Settings, ShutterReadPausesBetweenBytesAndSettlesOnTheValueRead) {
    connect_sensors(1);
    set_shutter_speed_to_sensor(1000, 0);
    vsensor::clear_events();
    int iValue = 0;
    EXPECT_EQ(get_shutter_speed_from_sensor(&iValue, 0), lu_ec_success);
    EXPECT_EQ(iValue, 1000);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(36, 0, 10).cmd(4).pause_ms(710).str());
}

TEST_F(Settings, ShutterReadWithoutHandleYields257) {
    int iValue = 0;
    EXPECT_EQ(get_current_shutter_speed(&iValue, 0), lu_ec_success);
    EXPECT_EQ(iValue, 257);
    EXPECT_EQ(vsensor::transcript(), Wire().pause_ms(10).pause_ms(189).str());
}

// ---- blank time ----

TEST_F(Settings, BlankTimeWriteUsesSleepTimeAndSettles) {
    connect_sensors(1);
    EXPECT_EQ(set_blank_time_to_sensor(300, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), blank_time_write(1, 44, 30).pause_ms(220).str());
    EXPECT_EQ(iCurBlankTime, 300);
    EXPECT_EQ(counts(), (SCounts{0, 0, 0}));
}

TEST_F(Settings, BlankTimePausesFollowSleepTime) {
    connect_sensors(1);
    g_iSleepTime = 7;
    set_blank_time_to_sensor(2, 0);
    EXPECT_EQ(vsensor::transcript(), blank_time_write(0, 2, 7).pause_ms(11).str());
}

TEST_F(Settings, BlankTimeReadJoinsBytesAndRemembersIt) {
    connect_sensors(1);
    set_blank_time_to_sensor(0x0234, 0);
    iCurBlankTime = 0;
    vsensor::clear_events();
    int iBlank = 0;
    EXPECT_EQ(get_blank_time_from_sensor(&iBlank, 0), lu_ec_success);
    EXPECT_EQ(iBlank, 0x0234);
    EXPECT_EQ(iCurBlankTime, 0x0234);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(39, 0, 30).cmd_then_pause(38, 0, 30).str());
}

// ---- ADC ----

TEST_F(Settings, AdcWritePacksGainAndResolutionAndVerifies) {
    connect_sensors(1);
    EXPECT_EQ(set_adc_setting_values(132, 1, 0, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), adc_try(132, 2).str());
    EXPECT_EQ(counts(), (SCounts{1, 1, 0}));
}

TEST_F(Settings, AdcResolutionIsNotMaskedToOneBit) {
    connect_sensors(1);
    set_adc_setting_values(65, 1, 4, 0);
    EXPECT_EQ(vsensor::transcript(), adc_try(65, 6).str());
}

TEST_F(Settings, AdcWriteRetriesOnceOnMismatch) {
    connect_sensors(1, vsensor::kFaultNoEcho);
    EXPECT_EQ(set_adc_setting_values(132, 1, 0, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), adc_try(132, 2).then(adc_try(132, 2)).str());
    EXPECT_EQ(counts(), (SCounts{1, 0, 1}));
}

TEST_F(Settings, AdcReadSplitsGainAndResolutionAndPrintsThem) {
    connect_sensors(1);
    set_adc_setting_values(132, 1, 0, 0);
    vsensor::clear_events();
    unsigned char ucRange = 0, ucGain = 0, ucRes = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(get_adc_setting_values(&ucRange, &ucGain, &ucRes, 0), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[STM] ADC range: 132, Gain: 1, Res: 0, Device Id: 0\n");
    EXPECT_EQ(ucRange, 132);
    EXPECT_EQ(ucGain, 1);
    EXPECT_EQ(ucRes, 0);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(35, 0, 30).cmd_then_pause(40, 0, 30).str());
}

TEST_F(Settings, AdcReadWithoutHandleYieldsOnesDecoded) {
    unsigned char ucRange = 0, ucGain = 9, ucRes = 9;
    testing::internal::CaptureStdout();
    get_adc_setting_values(&ucRange, &ucGain, &ucRes, 5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[STM] ADC range: 1, Gain: 0, Res: 1, Device Id: 5\n");
}
