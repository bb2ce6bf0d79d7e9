// Device object: the LED module on the sensor board and the external LED
// driver. The driver operations report a caught oru_base_exception negated.
#include "oru_device_interface_base.h"

#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_led_module.h"

void oru_device_interface_base::set_led_module_op_mode(int op_mode, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(set_LED_module_op_mode(static_cast<unsigned int>(op_mode), iDeviceId));
}

int oru_device_interface_base::set_led_state(bool* on_array, int num_LED, int intensity, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(set_led_state_values(on_array, num_LED, intensity, iDeviceId));
    return 1;
}

int oru_device_interface_base::set_led_opmode(int iOpMode, int iToggleIntervalTime, unsigned int iDeviceId) {
    require_initialized();
    oru_throw_on_failure(set_led_op_mode_values(iOpMode, iToggleIntervalTime, iDeviceId));
    return 1;
}

int oru_device_interface_base::leddriver_isopen() {
    try {
        return is_led_driver_open() ? 1 : 0;
    } catch (const oru_base_exception&) {
        return -1;
    }
}

int oru_device_interface_base::leddriver_close() {
    try {
        is_led_driver_close();
    } catch (const oru_base_exception& e) {
        return -e.error_code;
    }
    return 1;
}

int oru_device_interface_base::leddriver_set_led_state(bool* on_array, int num_LED, int intensity) {
    if (!is_led_driver_open()) return 0;
    try {
        set_state_to_led_device(on_array, num_LED, intensity);
    } catch (const oru_base_exception& e) {
        return -e.error_code;
    }
    return 1;
}

int oru_device_interface_base::leddriver_turn_off_all() {
    if (!is_led_driver_open()) return -1;
    try {
        bool states[8] = {false, false, false, false, false, false, false, false};
        set_state_to_led_device(states, 8, 1);
    } catch (const oru_base_exception& e) {
        return -e.error_code;
    }
    return 1;
}
