// Exposure and ADC settings: wire sequences, pauses, retries and counters.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"

using usbtest::Wire;

namespace {

class Settings : public usbtest::UsbTest {
protected:
    // Runs `write` on a fresh sensor with these faults and returns its wire.
    template <typename Write>
    std::string wire_of(unsigned int faults, Write write) {
        usbtest::reset_usb_layer();
        connect_sensors(1, faults);
        EXPECT_EQ(write(), lu_ec_success);
        return vsensor::transcript();
    }
};

Wire blank_time_write(int iUpper, int iLower, unsigned int iPauseMs) {
    return Wire().cmd_then_pause(34, iUpper, iPauseMs).cmd_then_pause(33, iLower, iPauseMs);
}

Wire verified(int iWrite1, int iValue1, int iWrite2, int iValue2, int iRead1, int iRead2, unsigned int iPauseMs) {
    return Wire()
        .cmd_then_pause(iWrite1, iValue1, iPauseMs)
        .cmd_then_pause(iWrite2, iValue2, iPauseMs)
        .cmd_then_pause(iRead1, 0, iPauseMs)
        .cmd_then_pause(iRead2, 0, iPauseMs);
}

Wire shutter_try(int iUpper, int iLower) { return verified(37, iUpper, 5, iLower, 36, 4, 5); }
Wire adc_try(int iRange, int iGainRes) { return verified(19, iRange, 20, iGainRes, 35, 40, 30); }

std::vector<int> counts() { return {iTotalCount, iSuccessCount, iFailCount}; }

}  // namespace

// Blank time (shutter + 32) first, then the shutter bytes with read-back,
// once more on a mismatch, then the settling pause. Beyond 16 bits the bytes
// match but the value never comes back (a failure); a negative shutter
// shifts arithmetically and a negative settling time becomes no pause.
TEST_F(Settings, ShutterWrites) {
    struct Case {
        unsigned int faults;
        int iShutter;
        Wire wire;
        std::vector<int> counts;
    };
    const Case kCases[] = {
        {vsensor::kFaultNone, 1000, blank_time_write(4, 8, 5).then(shutter_try(3, 232)).pause_ms(732), {1, 1, 0}},
        {vsensor::kFaultNoEcho,
         1000,
         blank_time_write(4, 8, 5).then(shutter_try(3, 232)).then(shutter_try(3, 232)).pause_ms(732),
         {1, 0, 1}},
        {vsensor::kFaultNone, 65836, blank_time_write(1, 76, 5).then(shutter_try(1, 44)).pause_ms(46117), {1, 0, 1}},
        {vsensor::kFaultNone, -1, blank_time_write(0, 31, 5).then(shutter_try(255, 255)).pause_ms(31), {1, 0, 1}},
        {vsensor::kFaultNone, -100, blank_time_write(255, 188, 5).then(shutter_try(255, 156)), {1, 0, 1}},
    };
    for (const Case& c : kCases) {
        EXPECT_EQ(wire_of(c.faults, [&] { return set_shutter_speed_to_sensor(c.iShutter, 0); }), c.wire.str())
            << c.iShutter;
        EXPECT_EQ(counts(), c.counts) << c.iShutter;
        EXPECT_EQ(iCurBlankTime, c.iShutter + 32);
    }
}

TEST_F(Settings, ShutterWriteWithoutHandleOnlyPausesAndCountsFailure) {
    EXPECT_EQ(set_shutter_speed_to_sensor(10, 3), lu_ec_success);
    EXPECT_TRUE(usbtest::control_events().empty());
    // 6 commands, one retry of 4, then (10 + 32) * 0.7 + 10 = 39 ms.
    EXPECT_EQ(vsensor::total_pause_us(), (10 * 5 + 39) * 1000u);
    EXPECT_EQ(counts(), (std::vector<int>{1, 0, 1}));
}

TEST_F(Settings, ShutterReadPausesBetweenBytesAndSettlesOnTheValueRead) {
    connect_sensors(1);
    set_shutter_speed_to_sensor(1000, 0);
    vsensor::clear_events();
    int iValue = 0;
    EXPECT_EQ(get_shutter_speed_from_sensor(&iValue, 0), lu_ec_success);
    EXPECT_EQ(iValue, 1000);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(36, 0, 10).cmd(4).pause_ms(710).str());
    usbtest::reset_usb_layer();
    EXPECT_EQ(get_current_shutter_speed(&iValue, 0), lu_ec_success);
    EXPECT_EQ(iValue, 257) << "without a handle every byte reads 1";
    EXPECT_EQ(vsensor::transcript(), Wire().pause_ms(10).pause_ms(189).str());
}

TEST_F(Settings, BlankTimeWriteFollowsSleepTimeSettlesAndReadsBack) {
    EXPECT_EQ(wire_of(vsensor::kFaultNone, [] { return set_blank_time_to_sensor(300, 0); }),
              blank_time_write(1, 44, 30).pause_ms(220).str());
    EXPECT_EQ(counts(), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(wire_of(vsensor::kFaultNone,
                      [] {
                          g_iSleepTime = 7;
                          return set_blank_time_to_sensor(0x0234, 0);
                      }),
              blank_time_write(2, 0x34, 7).pause_ms(404).str());
    g_iSleepTime = 30;
    iCurBlankTime = 0;
    vsensor::clear_events();
    int iBlank = 0;
    EXPECT_EQ(get_blank_time_from_sensor(&iBlank, 0), lu_ec_success);
    EXPECT_EQ(iBlank, 0x0234);
    EXPECT_EQ(iCurBlankTime, 0x0234);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(39, 0, 30).cmd_then_pause(38, 0, 30).str());
}

// Gain at bit 1, resolution ORed in unmasked; verified, once more on a mismatch.
TEST_F(Settings, AdcWrites) {
    EXPECT_EQ(wire_of(vsensor::kFaultNone, [] { return set_adc_setting_values(132, 1, 0, 0); }), adc_try(132, 2).str());
    EXPECT_EQ(counts(), (std::vector<int>{1, 1, 0}));
    EXPECT_EQ(wire_of(vsensor::kFaultNone, [] { return set_adc_setting_values(65, 1, 4, 0); }), adc_try(65, 6).str());
    EXPECT_EQ(wire_of(vsensor::kFaultNoEcho, [] { return set_adc_setting_values(132, 1, 0, 0); }),
              adc_try(132, 2).then(adc_try(132, 2)).str());
    EXPECT_EQ(counts(), (std::vector<int>{1, 0, 1}));
}

TEST_F(Settings, AdcReadSplitsGainAndResolutionAndPrintsThem) {
    connect_sensors(1);
    set_adc_setting_values(132, 1, 0, 0);
    vsensor::clear_events();
    unsigned char ucRange = 0, ucGain = 0, ucRes = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(get_adc_setting_values(&ucRange, &ucGain, &ucRes, 0), lu_ec_success);
    get_adc_setting_values(&ucRange, &ucGain, &ucRes, 5);  // no handle: every byte reads 1
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "[STM] ADC range: 132, Gain: 1, Res: 0, Device Id: 0\n[STM] ADC range: 1, Gain: 0, Res: 1, Device Id: 5\n");
    EXPECT_EQ(vsensor::transcript(),
              Wire().cmd_then_pause(35, 0, 30).cmd_then_pause(40, 0, 30).pause_ms(30).pause_ms(30).str());
}
