// The per-sensor facade: its own answers, guards and clamps, and the eight
// operations that return a caught error code as a positive number.
#include "api_test_support.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "oru_device_interface.h"
#include "oru_device_interface_base.h"

#include <functional>
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

TEST_F(Facade, SensorIdWithoutDeviceObjectPrintsAndLeavesOutputsAlone) {
    oru_device_interface facade;
    char lot_char = 'z';
    short n[5] = {11, 12, 13, 14, 15};
    StdoutCapture out;
    facade.get_sensor_id(&lot_char, &n[0], &n[1], &n[2], &n[3], &n[4], 0);
    EXPECT_EQ(out.text(), "##### m_device_interface_base is NULL!!\n");
    EXPECT_EQ(lot_char, 'z');
    EXPECT_EQ(std::vector<short>(n, n + 5), (std::vector<short>{11, 12, 13, 14, 15}));
}

// A facade whose initialize never ran has no device object: its operations
// report that, instead of dereferencing null.
TEST_F(Facade, OperationsBeforeInitializeThrowInitializationRequired) {
    oru_device_interface facade;
    std::vector<double> data(1024, 0.0);
    unsigned char range = 0, gain = 0, res = 0;
    const std::vector<std::function<void()>> operations = {
        [&] { facade.get_shutter_speed(0); },
        [&] { facade.set_shutter_speed(10, 0); },
        [&] { facade.get_filter_data(data.data(), 1, 0, 0, 0); },
        [&] { facade.get_adcsettings(&range, &gain, &res, 0); },
        [&] { facade.finalize(0); },
        [&] { facade.get_total_devices(); },
    };
    for (size_t i = 0; i < operations.size(); ++i) {
        try {
            operations[i]();
            ADD_FAILURE() << "operation " << i << " did not throw";
        } catch (const oru_base_exception& e) {
            EXPECT_EQ(e.error_code, lu_ec_initialization_required) << "operation " << i;
        }
    }
    // Those that report a caught code report this one.
    EXPECT_EQ(facade.get_onboard_frame_average(0), lu_ec_initialization_required);
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

TEST_F(Facade, BlankTimeIsWrittenAndReadBackFromTheSensor) {
    add_sensors(1);
    oru_device_interface facade;
    initialize(facade, 0);
    facade.set_blank_time(300, 0);
    EXPECT_EQ(vsensor::register_value(0, 34) * 256 + vsensor::register_value(0, 33), 300);
    vsensor::set_register_value(0, 33, 45);  // the value comes from the sensor
    EXPECT_EQ(facade.get_blank_time(0), 301);
}

// The LED operations answer 1 for a success (the device object's true), on
// the sensor's LED module and on the driver; intensity 0 on the driver turns
// every LED off.
TEST_F(Facade, LedOperationsAnswerOneAndDriverIntensityZeroTurnsEveryLedOff) {
    add_sensors(1);  // the first matching device doubles as the LED driver
    oru_device_interface facade;
    initialize(facade, 0);
    bool on[4] = {true, false, true, false};
    {
        StdoutCapture quiet;
        EXPECT_EQ(facade.set_led_state(on, 4, 3, 0), 1);
    }
    EXPECT_EQ(vsensor::led_state_word(0), 0x0305);
    EXPECT_EQ(facade.set_led_opmode(1, 100, 0), 1);
    ASSERT_EQ(facade.leddriver_isopen(), 1);
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 5), 1);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0505);
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 0), 1);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0100);
    EXPECT_EQ(facade.leddriver_close(), 1);
    EXPECT_EQ(facade.leddriver_isopen(), 0);
    EXPECT_EQ(facade.leddriver_set_led_state(on, 4, 5), 0);
    EXPECT_EQ(facade.leddriver_turn_off_all(), -1);
}

}  // namespace
