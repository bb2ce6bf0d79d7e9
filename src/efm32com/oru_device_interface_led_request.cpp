// The LED-state request and its word.
#include "efm32com/oru_device_interface_led_request.h"

#include "lusb_compat/lusb_compat.h"

#include <libusb.h>

namespace {

constexpr int kRequestTypeClassOut = LIBUSB_ENDPOINT_OUT | LIBUSB_REQUEST_TYPE_CLASS | LIBUSB_RECIPIENT_INTERFACE;
constexpr int kRequestLedState = 9;
constexpr int kTimeoutMs = 1000;
constexpr int kStateBits = 32;

}  // namespace

void send_led_state_request(libusb_device_handle* pHandle, int wValue) {
    usb_control_msg(pHandle, kRequestTypeClassOut, kRequestLedState, wValue, 0, nullptr, 0, kTimeoutMs);
}

int make_led_state_word(const bool* OnArray, int nNumOfLED, int intensity, int* pState) {
    unsigned int uState = 0;
    for (int i = 0; i < nNumOfLED && i < kStateBits; ++i)
        if (OnArray[i]) uState |= 1u << i;
    // The intensity is not masked: it is OR-ed over LED bits 8 and up.
    const unsigned int uWord = uState | (static_cast<unsigned int>(intensity) << 8);
    if (pState) *pState = static_cast<int>(uState);
    return static_cast<int>(uWord);
}
