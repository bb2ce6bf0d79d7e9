// The LED module on the sensor board, switched through the sensor's own
// microcontroller.
#include "efm32com/oru_device_interface_led_module.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_led_request.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kCmdLedModuleMode = 3;
constexpr unsigned int kLedModulePauseUs = 30000;

}  // namespace

ORU_ERROR_CODE set_LED_module_op_mode(unsigned int iOpMode, unsigned int iDeviceId) {
    // Only modes 0 and 1 exist on the module; others are ignored.
    if (iOpMode == 0 || iOpMode == 1) {
        do_control_transfer(kCmdLedModuleMode, static_cast<int>(iOpMode), iDeviceId);
        usleep(kLedModulePauseUs);
    }
    return lu_ec_success;
}

ORU_ERROR_CODE set_led_state_values(bool* OnArray, int nNumOfLED, int intensity, unsigned int iDeviceId) {
    int iState = 0;
    const int wValue = make_led_state_word(OnArray, nNumOfLED, intensity, &iState);
    oru_log(kLogNormal, "[LED] set LED status(%d), intensity: %d, value: %d\n", iState, intensity, wValue);
    convert_number_to_binary(wValue);
    libusb_device_handle* pHandle = find_device_handle(iDeviceId);
    if (pHandle != nullptr) send_led_state_request(pHandle, wValue);
    return lu_ec_success;
}

ORU_ERROR_CODE set_led_op_mode_values(int, int, unsigned int) { return lu_ec_success; }

void convert_number_to_binary(int n) {
    if (n > 1) {
        convert_number_to_binary(n >> 1);
        oru_log(kLogNormal, "%d", n % 2);
    } else {
        oru_log(kLogNormal, "%d", n);
    }
}
