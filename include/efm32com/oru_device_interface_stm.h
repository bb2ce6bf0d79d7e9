// The command dispatcher: every one-byte vendor request to a sensor, the
// register tables on top of it, start/stop, and sensor-index bookkeeping.
#ifndef ORU_DEVICE_INTERFACE_STM_H
#define ORU_DEVICE_INTERFACE_STM_H

// bmRequestType of every command: IN, class, interface (0xA1). Even "write"
// commands carry their value in wValue and are answered with a reply.
#define ORU_REQUEST_TYPE_CLASS_IN 0xA1

unsigned char do_control_transfer(int iCommand, int wValue, unsigned int iDeviceId);
int start_sensor(unsigned int iDeviceId);  // always 1
int stop_sensor(unsigned int iDeviceId);  // always 1
unsigned char read_register_data(unsigned char reg, unsigned int iDeviceId);
void write_register_data(unsigned char reg, unsigned char value, unsigned int iDeviceId);
void send_command_to_device(int iCommand, int wValue, unsigned int iDeviceId);
bool read_from_device(int iCommand, int wValue, unsigned int iDeviceId);

int set_device_index(unsigned int idx);
unsigned int get_connected_total_devices();

#endif
