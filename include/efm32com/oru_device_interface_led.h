// The external USB LED driver (same USB ids as the sensors).
#ifndef ORU_DEVICE_INTERFACE_LED_H
#define ORU_DEVICE_INTERFACE_LED_H

bool is_led_driver_open();
bool is_led_driver_close();
int set_state_to_led_device(bool* OnArray, int nNumOfLED, int intensity);
bool set_op_mode_to_led_device(int iOpMode, int iToggleIntervalTime);

#endif
