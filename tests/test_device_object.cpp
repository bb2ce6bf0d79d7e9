// The per-sensor device object: its initial state, guards, exposure
// handling, conversions and filter-data operations.
#include "api_test_support.h"
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "oru_device_interface_base.h"

#include <functional>
#include <memory>
#include <vector>

namespace {

using Base = oru_device_interface_base;

class DeviceObject : public VirtualBusTest {
protected:
    static void bring_up(Base& device, unsigned int index) {
        StdoutCapture quiet;
        ASSERT_EQ(device.initialize(index), 1);
    }
    // A device object brought up on sensor 0 of a one-sensor bus.
    Base& up() {
        add_sensors(1);
        m_device = std::make_unique<Base>(0);
        bring_up(*m_device, 0);
        return *m_device;
    }
    std::unique_ptr<Base> m_device;
};

void expect_code(int expected, const std::function<void()>& operation) {
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const oru_base_exception& e) {
        EXPECT_EQ(e.error_code, expected);
    }
}

TEST_F(DeviceObject, GuardedOperationsNeedInitialisation) {
    Base device(0);
    std::vector<double> buffer(1024);
    unsigned char a = 0, b = 0, c = 0;
    bool on[1] = {true};
    char raw[5] = {};
    constexpr int kCode = lu_ec_initialization_required;
    expect_code(kCode, [&] { device.finalize(0); });
    expect_code(kCode, [&] { device.get_shutter_speed(0); });
    expect_code(kCode, [&] { device.set_shutter_speed(10, 0); });
    expect_code(kCode, [&] { device.set_blank_time(10, 0); });
    expect_code(kCode, [&] { device.get_blank_time(0); });
    expect_code(kCode, [&] { device.get_filter_data(buffer.data(), 1, 0, 0, 0); });
    expect_code(kCode, [&] { device.get_background_filter_data(buffer.data(), 1, 0); });
    expect_code(kCode, [&] { device.get_abnormal_filters(0); });
    expect_code(kCode, [&] { device.set_led_module_op_mode(1, 0); });
    expect_code(kCode, [&] { device.set_onboard_frame_average(2, 0); });
    expect_code(kCode, [&] { device.get_onboard_frame_average(0); });
    expect_code(kCode, [&] { device.set_onboard_dark_correction(true, 0); });
    expect_code(kCode, [&] { device.get_onboard_dark_frame(0); });
    expect_code(kCode, [&] { device.set_acq_mode(1); });
    expect_code(kCode, [&] { device.get_acq_mode(nullptr); });
    expect_code(kCode, [&] { device.set_led_state(on, 1, 1, 0); });
    expect_code(kCode, [&] { device.set_led_opmode(1, 1, 0); });
    expect_code(kCode, [&] { device.set_adc_settings(1, 1); });
    expect_code(kCode, [&] { device.set_adc_settings(1, 1, 0, 0); });
    expect_code(kCode, [&] { device.get_adcsettings(&a, &b, &c, 0); });
    expect_code(kCode, [&] { device.get_sensor_id(raw, 0); });
    expect_code(kCode, [&] { device.decode_sensor_id(raw, 0); });
    EXPECT_FALSE(device.m_bEnableOBDC);  // the guard comes first
}

// The shutter speed starts at 1 and is then the last value set.
TEST_F(DeviceObject, InitializeSetsShutterSpeedOneThenTheLastValueSetIsKept) {
    Base& device = up();
    EXPECT_TRUE(device.is_initialized(0));
    // After the bring-up, blank time 33 and shutter speed 1 with read-back and settling.
    const std::string last_write = usbtest::Wire()
                                       .cmd_then_pause(34, 0, 5)
                                       .cmd_then_pause(33, 33, 5)
                                       .cmd_then_pause(37, 0, 5)
                                       .cmd_then_pause(5, 1, 5)
                                       .cmd_then_pause(36, 0, 5)
                                       .cmd_then_pause(4, 0, 5)
                                       .pause_ms(33)
                                       .str();
    const std::string wire = vsensor::transcript(0);
    ASSERT_GE(wire.size(), last_write.size());
    EXPECT_EQ(wire.substr(wire.size() - last_write.size()), last_write) << wire;
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
    bool sensor_ok = false, controller_ok = false;
    device.test_device(sensor_ok, controller_ok, 0);
    EXPECT_TRUE(sensor_ok);
    EXPECT_TRUE(controller_ok);
    device.set_shutter_speed(300, 0);
    EXPECT_EQ(vsensor::shutter_speed(0), 300);
    EXPECT_EQ(device.get_shutter_speed(0), 300);
    EXPECT_EQ(g_current_shutter_speed, 300);
    // Not read back from the device.
    vsensor::set_register_value(0, 5, 7);
    EXPECT_EQ(device.get_shutter_speed(0), 300);
}

TEST_F(DeviceObject, AdcSettingsNeedEveryOutput) {
    Base& device = up();
    unsigned char value = 0;
    for (int missing = 0; missing < 3; ++missing) {
        unsigned char* out[3] = {&value, &value, &value};
        out[missing] = nullptr;
        expect_code(lu_ec_memory_is_null, [&] { device.get_adcsettings(out[0], out[1], out[2], 0); });
    }
}

TEST_F(DeviceObject, AcquisitionConditionsAreStoredAndApplied) {
    add_sensors(2);
    Base device(0);
    bring_up(device, 0);
    // Sensor 1 is brought up by an object that is never destroyed (its
    // destructor would close sensor 0).
    Base* second = new Base(0);
    bring_up(*second, 1);
    SDataAcqCondition conditions;
    conditions.ss = 250;
    conditions.datasize = 100;
    device.set_frame_acquisition_conditions(conditions, 1);
    EXPECT_EQ(vsensor::shutter_speed(1), 250);
    ASSERT_EQ(device.m_AcqCond.count(1), 1u);
    EXPECT_EQ(device.m_AcqCond[1].datasize, 100);
    conditions.ss = 40;
    conditions.datasize = 200;
    device.set_frame_acquisition_conditions(conditions, 1);
    EXPECT_EQ(vsensor::shutter_speed(1), 40);
    EXPECT_EQ(device.m_AcqCond.size(), 1u);
    EXPECT_EQ(device.m_AcqCond[1].datasize, 200);
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
}

// The forward formula is taken in 32-bit signed integers: above about 2.35
// million steps the counts wrap negative, and a clock of 2^29 makes the
// divisor 0. The reverse is taken in double and truncated toward zero.
TEST_F(DeviceObject, ExposureConversionsKeepTheirIntegerQuirks) {
    Base device(0);
    struct Forward {
        int clock, shutter;
        double ms;
    };
    for (const Forward& c :
         {Forward{1, 1000, 912.0}, Forward{1, 1, 1.0}, Forward{2, 1, 0.0}, Forward{1, 999, 911.0},
          Forward{1, 2400000, -2106167.0}, Forward{-1, 2400000, 2106167.0}, Forward{4294968, 1000, 1295.0}}) {
        double ms = -1.0;
        EXPECT_EQ(device.shutter_to_exposure_time_ms(c.clock, c.shutter, &ms), 1);
        EXPECT_EQ(ms, c.ms) << c.clock << " x " << c.shutter;
    }
    for (int clock : {0, 1 << 29}) {
        double ms = -1.0;
        EXPECT_THROW(device.shutter_to_exposure_time_ms(clock, 1, &ms), oru_base_exception) << clock;
    }
    for (const auto& [ms, shutter] : std::vector<std::pair<double, int>>{{912.0, 1726}, {1.0, 0}, {1.5, 1}}) {
        int ss = -1;
        EXPECT_EQ(device.exposure_tim_ms_to_shutter(1, ms, &ss), 1);
        EXPECT_EQ(ss, shutter) << ms;  // (1000 ms - 544) / 528
    }
}

TEST_F(DeviceObject, VectorFilterDataFollowsTheStoredDataSizeAndModeOneKeepsACopy) {
    Base& device = up();
    vsensor::set_constant_frame(0, 1500);
    std::vector<double> values{1.0, 2.0};
    EXPECT_EQ(device.get_filter_data(values, 2, 0, false, 0, 0), 0);
    ASSERT_EQ(values.size(), 1024u);
    for (double v : values) ASSERT_EQ(v, 1500.0);

    SDataAcqCondition conditions;
    conditions.datasize = 512;
    device.set_frame_acquisition_conditions(conditions, 0);
    EXPECT_EQ(device.get_filter_data(values, 2, 0, false, 0, 0), 0);
    ASSERT_EQ(values.size(), 1024u);
    EXPECT_EQ(values[511], 1500.0);
    for (std::size_t i = 512; i < 1024; ++i) ASSERT_EQ(values[i], 0.0) << i;
    // Dark-correction mode 1 keeps a copy of the frame.
    std::vector<uint16_t> pattern(1024);
    for (int i = 0; i < 1024; ++i) pattern[static_cast<std::size_t>(i)] = static_cast<uint16_t>(4 * i);
    vsensor::set_pattern(0, pattern);
    std::vector<double> buffer(1024, -1.0);
    EXPECT_EQ(device.get_filter_data(buffer.data(), 2, 1, 0, 0), 1.0);
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(buffer[static_cast<std::size_t>(i)], 4.0 * i);
        ASSERT_EQ(device.m_current_filter_data[i], 4.0 * i);
    }
}

TEST_F(DeviceObject, BackgroundIsReadAtShutterSpeedOneAndTheSpeedRestored) {
    Base& device = up();
    device.set_shutter_speed(700, 0);
    vsensor::set_constant_frame(0, 64);
    vsensor::clear_events();
    std::vector<double> background(1024, -1.0);
    device.get_background_filter_data(background.data(), 3, 0);
    EXPECT_EQ(background[3], 64.0);
    EXPECT_EQ(device.get_shutter_speed(0), 700);
    EXPECT_EQ(vsensor::shutter_speed(0), 700);
    // Shutter 1 is written before streaming starts, 700 after it stopped.
    const std::vector<std::string> items = transcript_items(0);
    const int to_one = find_item(items, "cmd 5 value 1");
    const int start = find_item(items, "out 70", to_one);
    const int back = find_item(items, "cmd 5 value 188", start);  // 700 & 0xFF
    EXPECT_NE(to_one, -1) << vsensor::transcript(0);
    EXPECT_NE(start, -1);
    EXPECT_NE(back, -1);
    // The abnormal-filter check too reads at its own speed and restores 700.
    std::vector<uint16_t> pattern(1024, 100);
    pattern[5] = 4095;  // the largest valid output is not abnormal
    vsensor::set_pattern(0, pattern);
    EXPECT_TRUE(device.get_abnormal_filters(0).empty());
    EXPECT_EQ(device.get_shutter_speed(0), 700);
    EXPECT_EQ(vsensor::shutter_speed(0), 700);
}

TEST_F(DeviceObject, SearchEntryShiftsTheListAndDefaultsToAllFilters) {
    Base& device = up();
    std::vector<double> background;
    // Only the last filter is in the window: found only when all 1024 are searched.
    std::vector<uint16_t> pattern(1024, 100);
    pattern[1023] = 3000;
    vsensor::set_pattern(0, pattern);
    EXPECT_EQ(device.find_optimal_shutter_speed({}, background, 3500, 1, 0), 5);

    // {1, 2, 3} means filters 0, 1 and 2; filter 3 is saturated.
    std::vector<uint16_t> first_three(1024, 4095);
    first_three[0] = first_three[1] = first_three[2] = 3000;
    vsensor::set_pattern(0, first_three);
    EXPECT_EQ(device.find_optimal_shutter_speed({1, 2, 3}, background, 3500, 1, 0), 5);
}

TEST_F(DeviceObject, SearchSaturationMinusOneKeepsTheParameters) {
    Base& device = up();
    vsensor::set_constant_frame(0, 4095);
    std::vector<double> background;
    device.set_auto_exposure_parameters(3300, 0);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3300);
    EXPECT_EQ(device.find_optimal_shutter_speed({}, background, -1, 1, 0), -1);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3300);
    EXPECT_EQ(device.find_optimal_shutter_speed({}, background, 3800, 1, 0), -1);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3800);
    device.set_auto_exposure_parameters(3000, 3900, 2500, 3100, 800, 0);
    EXPECT_EQ(m_gAEParams.target_dn_value, 3000);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3900);
    EXPECT_EQ(m_gAEParams.lower_dn_value, 2500);
    EXPECT_EQ(m_gAEParams.mean_upper_dn_value, 3100);
    EXPECT_EQ(m_gAEParams.max_ss, 800);
}

TEST_F(DeviceObject, DestructorClosesSensorZero) {
    add_sensors(2);
    Base* first = new Base(0);
    bring_up(*first, 0);
    {
        Base second(0);
        bring_up(second, 1);
        vsensor::clear_events();
        StdoutCapture quiet;
    }  // destroying the object of sensor 1 closes sensor 0
    EXPECT_NE(vsensor::transcript(0).find("cmd 3 value 1"), std::string::npos) << vsensor::transcript(0);
    EXPECT_EQ(vsensor::transcript(1).find("cmd 3 value 1"), std::string::npos) << vsensor::transcript(1);
    (void)first;  // never destroyed: it would close sensor 0 again
}

}  // namespace
