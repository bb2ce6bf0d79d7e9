// The LED module on the sensor board, switched through the sensor itself.
#ifndef ORU_DEVICE_INTERFACE_LED_MODULE_H
#define ORU_DEVICE_INTERFACE_LED_MODULE_H

#include "oru_base_exception.h"

ORU_ERROR_CODE set_LED_module_op_mode(unsigned int iOpMode, unsigned int iDeviceId);
ORU_ERROR_CODE set_led_state_values(bool* OnArray, int nNumOfLED, int intensity, unsigned int iDeviceId);
ORU_ERROR_CODE set_led_op_mode_values(int iOpMode, int iToggleIntervalTime, unsigned int iDeviceId);
void convert_number_to_binary(int n);

#endif
