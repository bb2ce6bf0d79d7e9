// The external USB LED driver (same USB ids as the sensors).
#ifndef ORU_DEVICE_INTERFACE_LED_H
#define ORU_DEVICE_INTERFACE_LED_H

struct libusb_device_handle;

// Handle of the external LED driver (null when none is open).
extern libusb_device_handle* g_LedDriverHandle;

// Opens the LED driver into g_LedDriverHandle (once); 1 when it is open.
int connect_LED_device();
bool is_led_driver_open();
bool is_led_driver_close();
int set_state_to_led_device(bool* OnArray, int nNumOfLED, int intensity);
bool set_op_mode_to_led_device(int iOpMode, int iToggleIntervalTime);

// Closes the driver, if open (tests).
void reset_led_driver();

#endif
