// The LED module on the sensor and the external LED driver.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_led_module.h"
#include "efm32com/oru_device_interface_led_request.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

using usbtest::setup;
using usbtest::setups;
using usbtest::Wire;

namespace {

class Led : public usbtest::UsbTest {
protected:
    // The driver shares the sensors' ids; here it is alone on the bus.
    void open_driver() {
        vsensor::add_led_driver();
        ASSERT_EQ(connect_LED_device(), 1);
        vsensor::clear_events();
    }
};

using Steps = std::vector<std::string>;

}  // namespace

// ---- LED module ----

TEST_F(Led, ModuleOpModesZeroAndOneAreSentWithPauseOthersNot) {
    connect_sensors(1);
    for (int iMode : {0, 1, 2, 3}) EXPECT_EQ(set_LED_module_op_mode(iMode, 0), lu_ec_success);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(3, 0, 30).cmd_then_pause(3, 1, 30).str());
}

TEST_F(Led, ModuleStateGoesToTheSensorAndIsPrintedWithBinaryDigits) {
    connect_sensors(2);
    bool on[] = {true, false, true};
    testing::internal::CaptureStdout();
    EXPECT_EQ(set_led_state_values(on, 3, 5, 1), lu_ec_success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[LED] set LED status(5), intensity: 5, value: 1285\n10100000101");
    EXPECT_EQ(setups(), Steps{setup(1, 0x21, 9, 1285, 0, 0, 1000)});
    EXPECT_EQ(vsensor::led_state_word(1), 1285);
}

TEST_F(Led, ModuleStateWithoutHandleIsPrintedOnlyAndLeavesNoEntry) {
    bool on[] = {false, true};
    testing::internal::CaptureStdout();
    set_led_state_values(on, 2, 0, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[LED] set LED status(2), intensity: 0, value: 2\n10");
    EXPECT_TRUE(vsensor::events().empty());
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

// LEDs beyond 32 are ignored; the intensity is ORed in at bit 8 unmasked.
TEST(LedStateWord, BitsAndIntensity) {
    bool on[40];
    std::fill(on, on + 40, true);
    int iState = 0;
    EXPECT_EQ(make_led_state_word(on, 40, 0, &iState), -1);
    EXPECT_EQ(iState, -1);
    on[31] = false;
    EXPECT_EQ(make_led_state_word(on, 40, 0), 0x7FFFFFFF);
    bool tenth[10] = {false, false, false, false, false, false, false, false, false, true};
    EXPECT_EQ(make_led_state_word(tenth, 10, 0x101, &iState), 0x10300);
    EXPECT_EQ(iState, 0x200);
}

TEST(ConvertNumberToBinary, PrintsDigitsOrTheNumberItself) {
    for (const auto& [n, text] :
         std::vector<std::pair<int, std::string>>{{0, "0"}, {1, "1"}, {5, "101"}, {256, "100000000"}, {-3, "-3"}}) {
        testing::internal::CaptureStdout();
        convert_number_to_binary(n);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
    }
}

// ---- external LED driver ----

TEST_F(Led, DriverDoesNothingBeforeItIsOpen) {
    vsensor::add_led_driver();
    bool on[8] = {};
    EXPECT_FALSE(is_led_driver_open());
    EXPECT_EQ(set_state_to_led_device(on, 8, 1), 0);
    EXPECT_FALSE(set_op_mode_to_led_device(0, 0));
    EXPECT_FALSE(is_led_driver_close());
    EXPECT_TRUE(vsensor::events().empty());
}

TEST_F(Led, DriverAllOffSendsIntensityOnlyAndCloseGoesInOrder) {
    open_driver();
    bool on[8] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(set_state_to_led_device(on, 8, 1), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(set_op_mode_to_led_device(1, 100));
    EXPECT_EQ(vsensor::led_state_word(0), 0x0100);
    EXPECT_EQ(setups(), Steps{setup(0, 0x21, 9, 0x0100, 0, 0, 1000)});
    vsensor::clear_events();
    EXPECT_TRUE(is_led_driver_close());
    Steps steps;
    for (const vsensor::Event& e : vsensor::events()) steps.push_back(e.what);
    EXPECT_EQ(steps, (Steps{"set_configuration -1", "release 0", "close", "exit"}));
    EXPECT_FALSE(is_led_driver_open());
    EXPECT_FALSE(is_led_driver_close());
}
