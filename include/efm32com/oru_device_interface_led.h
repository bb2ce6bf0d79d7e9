// The external USB LED driver (same USB ids as the sensors).
#ifndef ORU_DEVICE_INTERFACE_LED_H
#define ORU_DEVICE_INTERFACE_LED_H

struct libusb_device_handle;

// The LED-state request (class OUT, request 9, no data stage) on a sensor's or
// the LED driver's handle; only the low 16 bits of the word reach the wire.
void send_led_state_request(libusb_device_handle* pHandle, int wValue);

bool is_led_driver_open();
bool is_led_driver_close();
int set_state_to_led_device(bool* OnArray, int nNumOfLED, int intensity);
bool set_op_mode_to_led_device(int iOpMode, int iToggleIntervalTime);

#endif
