// The LED-state request and its word, shared by the LED module (sent on a
// sensor's handle) and the external LED driver (sent on the driver's handle).
#ifndef ORU_DEVICE_INTERFACE_LED_REQUEST_H
#define ORU_DEVICE_INTERFACE_LED_REQUEST_H

struct libusb_device_handle;

// Class OUT, request 9, no data stage; only the low 16 bits of the word reach
// the wire. The result is not looked at: the LEDs give no answer.
void send_led_state_request(libusb_device_handle* pHandle, int wValue);
// LED state word: bit i for LED i (i < 32), intensity shifted left by 8.
int make_led_state_word(const bool* OnArray, int nNumOfLED, int intensity, int* pState = nullptr);

#endif
