// Puts a freshly connected sensor into its known initial state.
#ifndef ORU_DEVICE_INTERFACE_STM_INIT_H
#define ORU_DEVICE_INTERFACE_STM_INIT_H

void initialize_sensor(unsigned int iDeviceId);

#endif
