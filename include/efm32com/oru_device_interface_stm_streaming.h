// The streaming commands (70 on, 71 off) with the pauses after them, and the
// control-mode read of frames.
#ifndef ORU_DEVICE_INTERFACE_STM_STREAMING_H
#define ORU_DEVICE_INTERFACE_STM_STREAMING_H

#define ORU_CMD_START_STREAMING 70
#define ORU_CMD_STOP_STREAMING 71

extern bool stopFlag;
// stopFlag back to false (tests).
void reset_frame_streaming();

int acquire_frame_data_bulk(int iCommand, unsigned int iDeviceId);
int acquire_frame_data_control(int iCommand, unsigned int iDeviceId);
int set_frame_data_acq_mode(unsigned int iAcqMode, unsigned int iDeviceId);
int get_sleep_time_for_shutter_speed(int iShutterSpeed);
int get_current_shutter_speed();
// Streaming on: 71, 20 ms, 70.
void start_frame_streaming(unsigned int iDeviceId);
// Streaming off: 71, 20 ms, 71, 20 ms, 71.
void stop_frame_streaming(unsigned int iDeviceId);
double acquire_frame_data(double* frame, int num, unsigned int iDeviceId);
int acquire_frame_data_2048(char* frame, unsigned int iDeviceId);

#endif
