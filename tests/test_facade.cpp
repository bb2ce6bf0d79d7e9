// The per-sensor facade: its own answers, guards and clamps, and the eight
// operations that return a caught error code as a positive number.
#include "api_test_support.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "oru_device_interface.h"
#include "oru_device_interface_base.h"

#include <vector>

namespace {

class Facade : public VirtualBusTest {
protected:
    // A facade whose initialize ran and failed: its device object exists but
    // is not initialised.
    static void fail_initialize(oru_device_interface& facade) {
        StdoutCapture quiet;
        ASSERT_EQ(facade.initialize(0), -1);
    }
    static void initialize(oru_device_interface& facade, unsigned int index) {
        StdoutCapture quiet;
        ASSERT_EQ(facade.initialize(index), 1);
    }
};

TEST_F(Facade, ConstantAnswersNeedNoDevice) {
    oru_device_interface facade;
    EXPECT_EQ(facade.get_min_shutter_speed(0), 1);
    EXPECT_EQ(facade.get_max_shutter_speed(0), 500000);
    EXPECT_EQ(facade.get_max_shutter_speed(3), 500000);
    EXPECT_DOUBLE_EQ(facade.get_start_lambda(), 340.0);
    EXPECT_DOUBLE_EQ(facade.get_end_lambda(), 1100.0);
    EXPECT_DOUBLE_EQ(facade.get_interval(), 5.0);
    EXPECT_EQ(facade.get_resolution(), 1);
}

TEST_F(Facade, SensorIdWithoutDeviceObjectPrintsAndLeavesOutputsAlone) {
    oru_device_interface facade;
    char lot_char = 'z';
    short lot_id = 11, wafer_id = 12, x_coord = 13, y_coord = 14, sensor_type = 15;
    StdoutCapture out;
    facade.get_sensor_id(&lot_char, &lot_id, &wafer_id, &x_coord, &y_coord, &sensor_type, 0);
    EXPECT_EQ(out.text(), "##### m_device_interface_base is NULL!!\n");
    EXPECT_EQ(lot_char, 'z');
    EXPECT_EQ(lot_id, 11);
    EXPECT_EQ(wafer_id, 12);
    EXPECT_EQ(x_coord, 13);
    EXPECT_EQ(y_coord, 14);
    EXPECT_EQ(sensor_type, 15);
}

TEST_F(Facade, InitializeReportsOneOrMinusOne) {
    oru_device_interface missing;
    fail_initialize(missing);
    EXPECT_FALSE(missing.is_initialized(0));

    add_sensors(1);
    oru_device_interface present;
    initialize(present, 0);
    EXPECT_TRUE(present.is_initialized(0));
    EXPECT_TRUE(vsensor::is_claimed(0));
}

TEST_F(Facade, SensorIdOfAnInitialisedSensor) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    char lot_char = 0;
    short lot_id = 0, wafer_id = 0, x_coord = 0, y_coord = 0, sensor_type = 0;
    StdoutCapture out;
    facade.get_sensor_id(&lot_char, &lot_id, &wafer_id, &x_coord, &y_coord, &sensor_type, 0);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(lot_char, 'A');
    EXPECT_EQ(lot_id, 4486);
    EXPECT_EQ(x_coord, 12);
    EXPECT_EQ(facade.get_sensor_id(0u), default_sensor_id(0));
}

TEST_F(Facade, OnboardOperationsReturnTheCaughtCodePositive) {
    oru_device_interface facade;
    fail_initialize(facade);
    std::vector<int> poi{1, 2};
    std::vector<double> background(2, 0.0);
    EXPECT_EQ(facade.set_onboard_frame_average(4, 0), lu_ec_initialization_required);
    EXPECT_EQ(facade.get_onboard_frame_average(0), lu_ec_initialization_required);
    EXPECT_EQ(facade.set_onboard_dark_correction(true, 0), lu_ec_initialization_required);
    EXPECT_EQ(facade.get_onboard_dark_frame(0), lu_ec_initialization_required);
    // These three and the stored dark-correction flag need no initialisation.
    EXPECT_EQ(facade.get_onboard_dark_correction(0), 0);
    EXPECT_EQ(facade.get_poi_info(poi, 0), 1);
    EXPECT_EQ(facade.set_poi_info(poi, 0), 1);
    EXPECT_EQ(facade.get_poi_filter_data(poi, 2, background, 0), 1);
}

TEST_F(Facade, OtherOperationsLetTheExceptionThrough) {
    oru_device_interface facade;
    fail_initialize(facade);
    try {
        facade.get_shutter_speed(0);
        ADD_FAILURE() << "no exception";
    } catch (const oru_base_exception& e) {
        EXPECT_EQ(e.error_code, lu_ec_initialization_required);
    }
    EXPECT_THROW(facade.set_shutter_speed(10, 0), oru_base_exception);
    EXPECT_THROW(facade.test_device(0), oru_base_exception);
    EXPECT_THROW(facade.get_abnormal_filters(0), oru_base_exception);
}

TEST_F(Facade, OnboardFrameAverageReachesTheSensor) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    EXPECT_EQ(facade.set_onboard_frame_average(4, 0), 1);
    EXPECT_EQ(vsensor::register_value(0, 54), 4);
    EXPECT_EQ(facade.get_onboard_frame_average(0), 4);
    EXPECT_EQ(facade.set_onboard_dark_correction(true, 0), 1);
    EXPECT_EQ(facade.get_onboard_dark_correction(0), 1);
    EXPECT_EQ(facade.get_onboard_dark_frame(0), 1);
}

TEST_F(Facade, SwitchesNeedAnInitialisedSensor) {
    oru_device_interface missing;
    fail_initialize(missing);
    missing.enable_frame_moving_average(true, 0);
    missing.enable_spatial_filtering(true, 3, 0);
    EXPECT_FALSE(g_enable_FMA);
    EXPECT_FALSE(g_bEnableSpatialFiltering);

    add_sensors(1);
    oru_device_interface present;
    initialize(present, 0);
    present.enable_frame_moving_average(true, 0);
    present.enable_spatial_filtering(true, 3, 0);
    EXPECT_TRUE(g_enable_FMA);
    EXPECT_TRUE(g_bEnableSpatialFiltering);
    EXPECT_EQ(g_iSpatialFilterSize, 3);
    present.enable_frame_moving_average(false, 0);
    EXPECT_FALSE(g_enable_FMA);
}

TEST_F(Facade, SearchSaturationIsClampedTo4000) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    vsensor::set_constant_frame(0, 4095);  // saturated: the search ends at once
    std::vector<int> filters;
    std::vector<double> background(1024, 0.0);
    EXPECT_EQ(facade.find_optimal_shutter_speed(filters, background, 4500, 10, 0), -1);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 4000);
    EXPECT_EQ(m_gAEParams.lower_dn_value, 3400);
    EXPECT_EQ(facade.find_optimal_shutter_speed(filters, background, 3500, 10, 0), -1);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3500);
    EXPECT_EQ(m_gAEParams.lower_dn_value, 2900);
    // -1 keeps the parameters as they are.
    EXPECT_EQ(facade.find_optimal_shutter_speed(filters, background, -1, 10, 0), -1);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3500);
}

TEST_F(Facade, ReconnectAnswersOneAndTouchesNothingWithoutDetach) {
    oru_device_interface never_initialised;  // no device object: touching it would crash
    EXPECT_EQ(never_initialised.reconnect_device(0, "dark.bin", nullptr, nullptr, false), 1);

    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    EXPECT_EQ(facade.reconnect_device(0, "dark.bin", nullptr, nullptr, true), 1);
}

TEST_F(Facade, LedDriverIntensityZeroTurnsEveryLedOff) {
    add_sensors(1);  // the first matching device doubles as the LED driver
    oru_device_interface facade;
    initialize(facade, 0);
    ASSERT_EQ(facade.leddriver_isopen(), 1);
    bool on[4] = {true, false, true, false};
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 5), 1);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0505);
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 0), 1);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0100);
    EXPECT_EQ(facade.leddriver_close(), 1);
    EXPECT_EQ(facade.leddriver_isopen(), 0);
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 5), 0);
    EXPECT_EQ(facade.leddriver_turn_off_all(), -1);
}

TEST_F(Facade, LedModuleResultsBecomeOneOrZero) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    bool on[3] = {true, false, true};
    StdoutCapture out;
    EXPECT_EQ(facade.set_led_state(on, 3, 5, 0), 1);
    EXPECT_EQ(facade.set_led_opmode(1, 100, 0), 1);
    EXPECT_EQ(out.text(), "[LED] set LED status(5), intensity: 5, value: 1285\n10100000101");
}

TEST_F(Facade, TestDeviceOfAnInitialisedSensor) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    EXPECT_TRUE(facade.test_device(0));
}

TEST_F(Facade, TwoArgumentAdcSettingsAlwaysGoToDeviceZero) {
    add_sensors(2);
    oru_device_interface first, second;
    initialize(first, 0);
    initialize(second, 1);
    second.set_adc_settings(200, 1);
    EXPECT_EQ(vsensor::register_value(0, 19), 200);
    EXPECT_EQ(vsensor::register_value(0, 20), 2);
    EXPECT_EQ(vsensor::register_value(1, 19), 132);
    second.set_adc_settings(100, 0, 1, 1);
    EXPECT_EQ(vsensor::register_value(1, 19), 100);
    EXPECT_EQ(vsensor::register_value(1, 20), 1);
}

TEST_F(Facade, ForwardsFilterDataInBothForms) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    vsensor::set_constant_frame(0, 2222);
    std::vector<double> buffer(1024, -1.0);
    EXPECT_DOUBLE_EQ(facade.get_filter_data(buffer.data(), 2, 0, 0, 0), 1.0);
    EXPECT_DOUBLE_EQ(buffer[1000], 2222.0);
    std::vector<double> values;
    EXPECT_DOUBLE_EQ(facade.get_filter_data(values, 2, 0, false, 0, 0), 0.0);
    ASSERT_EQ(values.size(), 1024u);
    EXPECT_DOUBLE_EQ(values[0], 2222.0);
    EXPECT_TRUE(facade.get_abnormal_filters(0).empty());
    EXPECT_EQ(facade.get_num_filters(0), 1024);
    EXPECT_DOUBLE_EQ(facade.get_max_filter_out(0), 4095.0);
}

TEST_F(Facade, FinalizeClosesTheSensorButKeepsTheDeviceObject) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    vsensor::clear_events();
    {
        StdoutCapture quiet;
        facade.finalize(0);
    }
    EXPECT_NE(vsensor::transcript(0).find("cmd 3 value 1"), std::string::npos) << vsensor::transcript(0);
    EXPECT_TRUE(facade.is_initialized(0));
}

}  // namespace
