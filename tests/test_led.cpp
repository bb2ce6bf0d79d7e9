// The LED module on the sensor and the external LED driver.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_led_module.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

using usbtest::control_events;
using usbtest::Wire;

namespace {

class LedModule : public usbtest::UsbTest {};

class LedDriver : public usbtest::UsbTest {
protected:
    // The driver shares the sensors' ids; here it is alone on the bus.
    void open_driver() {
        vsensor::add_led_driver();
        ASSERT_EQ(connect_LED_device(), 1);
        vsensor::clear_events();
    }
};

std::string printed_binary(int n) {
    testing::internal::CaptureStdout();
    convert_number_to_binary(n);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

// ---- LED module ----

TEST_F(LedModule, OpModesZeroAndOneAreSentWithPause) {
    connect_sensors(1);
    EXPECT_EQ(set_LED_module_op_mode(0, 0), lu_ec_success);
    EXPECT_EQ(set_LED_module_op_mode(1, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(3, 0, 30).cmd_then_pause(3, 1, 30).str());
}

TEST_F(LedModule, OtherOpModesSendNothing) {
    connect_sensors(1);
    EXPECT_EQ(set_LED_module_op_mode(2, 0), lu_ec_success);
    EXPECT_EQ(set_LED_module_op_mode(3, 0), lu_ec_success);
    EXPECT_TRUE(vsensor::events().empty());
}

TEST_F(LedModule, StateGoesToTheSensorAndIsPrintedWithBinaryDigits) {
    connect_sensors(2);
    bool on[] = {true, false, true};
    testing::internal::CaptureStdout();
    EXPECT_EQ(set_led_state_values(on, 3, 5, 1), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[LED] set LED status(5), intensity: 5, value: 1285\n10100000101");
    const auto controls = control_events();
    ASSERT_EQ(controls.size(), 1u);
    EXPECT_EQ(controls[0].dev, 1);
    EXPECT_EQ(controls[0].bmRequestType, 0x21);
    EXPECT_EQ(controls[0].bRequest, 9);
    EXPECT_EQ(controls[0].wValue, 1285);
    EXPECT_EQ(controls[0].wIndex, 0);
    EXPECT_EQ(controls[0].wLength, 0);
    EXPECT_EQ(controls[0].timeout, 1000u);
    EXPECT_EQ(vsensor::led_state_word(1), 1285);
}

TEST_F(LedModule, StateWithoutHandleIsPrintedOnlyAndLeavesNoEntry) {
    bool on[] = {false, true};
    testing::internal::CaptureStdout();
    set_led_state_values(on, 2, 0, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[LED] set LED status(2), intensity: 0, value: 2\n10");
    EXPECT_TRUE(vsensor::events().empty());
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(LedModule, StateForNullHandleSendsNothing) {
    vsensor::SensorOptions opts;
    opts.faults = vsensor::kFaultClaim;
    connect_sensors({opts});
    bool on[] = {true};
    testing::internal::CaptureStdout();
    set_led_state_values(on, 1, 0, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(control_events().empty());
}

TEST(LedStateWord, LedsBeyondThirtyTwoAreIgnored) {
    bool on[40];
    std::fill(on, on + 40, true);
    int iState = 0;
    EXPECT_EQ(make_led_state_word(on, 40, 0, &iState), -1);
    EXPECT_EQ(iState, -1);
    on[31] = false;
    EXPECT_EQ(make_led_state_word(on, 40, 0), 0x7FFFFFFF);
}

TEST(LedStateWord, IntensityIsOredUnmasked) {
    bool on[] = {false, false, false, false, false, false, false, false, false, true};
    int iState = 0;
    EXPECT_EQ(make_led_state_word(on, 10, 0x101, &iState), 0x10300);
    EXPECT_EQ(iState, 0x200);
}

TEST(ConvertNumberToBinary, PrintsDigitsOrTheNumberItself) {
    EXPECT_EQ(printed_binary(0), "0");
    EXPECT_EQ(printed_binary(1), "1");
    EXPECT_EQ(printed_binary(5), "101");
    EXPECT_EQ(printed_binary(256), "100000000");
    EXPECT_EQ(printed_binary(-3), "-3");
}

// ---- external LED driver ----

TEST_F(LedDriver, NothingWorksBeforeTheDriverIsOpen) {
    vsensor::add_led_driver();
    bool on[8] = {};
    EXPECT_FALSE(is_led_driver_open());
    EXPECT_EQ(set_state_to_led_device(on, 8, 1), 0);
    EXPECT_FALSE(set_op_mode_to_led_device(0, 0));
    EXPECT_FALSE(is_led_driver_close());
    EXPECT_TRUE(vsensor::events().empty());
}

TEST_F(LedDriver, TurningAllOffSendsIntensityOnly) {
    open_driver();
    bool on[8] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(set_state_to_led_device(on, 8, 1), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(set_op_mode_to_led_device(1, 100));
    EXPECT_EQ(vsensor::led_state_word(0), 0x0100);
    const auto controls = control_events();
    ASSERT_EQ(controls.size(), 1u);
    EXPECT_EQ(controls[0].bmRequestType, 0x21);
    EXPECT_EQ(controls[0].bRequest, 9);
    EXPECT_EQ(controls[0].wLength, 0);
    EXPECT_EQ(controls[0].timeout, 1000u);
}

TEST_F(LedDriver, CloseUnconfiguresReleasesClosesAndExitsInOrder) {
    open_driver();
    EXPECT_TRUE(is_led_driver_close());
    std::vector<std::string> steps;
    for (const vsensor::Event& e : vsensor::events()) steps.push_back(e.what);
    EXPECT_EQ(steps, (std::vector<std::string>{"set_configuration -1", "release 0", "close", "exit"}));
    EXPECT_FALSE(is_led_driver_open());
    EXPECT_FALSE(is_led_driver_close());
}
