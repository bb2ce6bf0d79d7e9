// Complete start and stop sequences of one sensor.
#ifndef ORU_DEVICE_INTERFACE_STM_BRINGUP_H
#define ORU_DEVICE_INTERFACE_STM_BRINGUP_H

#include "efm32com/oru_device_interface_stm_event_loop.h"

extern int maxNumOfDevice;

// The settings a freshly opened sensor gets: the initial state, streaming
// stopped, ADC 132/1/0, no on-board averaging.
void apply_startup_settings(unsigned int iDeviceId);
int initialize_device_interface(unsigned int iDeviceId);  // lu_ec_success or lu_ec_fail_to_initialize_device
int close_device_interface(unsigned int iDeviceId);  // always 1

#endif
