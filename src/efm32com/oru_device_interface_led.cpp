// The external USB LED driver, opened by the discovery code into
// g_LedDriverHandle.
#include "efm32com/oru_device_interface_led.h"

#include "efm32com/oru_device_interface_led_module.h"
#include "efm32com/oru_device_interface_usb.h"
#include "lusb_compat/lusb_compat.h"

namespace {

constexpr int kRequestTypeClassOut = LIBUSB_ENDPOINT_OUT | LIBUSB_REQUEST_TYPE_CLASS | LIBUSB_RECIPIENT_INTERFACE;
constexpr int kRequestLedState = 9;
constexpr int kTimeoutMs = 1000;
constexpr int kUnconfigured = -1;
constexpr int kInterface = 0;

}  // namespace

void send_led_state_request(libusb_device_handle* pHandle, int wValue) {
    // The result is not looked at: the LEDs give no answer.
    usb_control_msg(pHandle, kRequestTypeClassOut, kRequestLedState, wValue, 0, nullptr, 0, kTimeoutMs);
}

bool is_led_driver_open() { return g_LedDriverHandle != nullptr; }

bool is_led_driver_close() {
    if (g_LedDriverHandle == nullptr) return false;
    libusb_set_configuration(g_LedDriverHandle, kUnconfigured);
    libusb_release_interface(g_LedDriverHandle, kInterface);
    libusb_close(g_LedDriverHandle);
    libusb_exit(NULL);
    g_LedDriverHandle = nullptr;
    return true;
}

int set_state_to_led_device(bool* OnArray, int nNumOfLED, int intensity) {
    if (g_LedDriverHandle == nullptr) return 0;
    send_led_state_request(g_LedDriverHandle, make_led_state_word(OnArray, nNumOfLED, intensity));
    return 1;
}

bool set_op_mode_to_led_device(int, int) { return g_LedDriverHandle != nullptr; }
