// Frame streaming: the frame decoder, the streaming commands, the control-mode
// read, and the bulk transfers and their callback.
#ifndef ORU_DEVICE_INTERFACE_STM_FRAMES_H
#define ORU_DEVICE_INTERFACE_STM_FRAMES_H

#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_stm_request.h"

#include <libusb.h>
#include <cstdint>
#include <map>

#define ORU_FRAME_BYTES 2048
#define ORU_NUM_FILTERS 1024
#define ORU_BULK_ENDPOINT 0x81
#define ORU_CMD_START_STREAMING 70
#define ORU_CMD_STOP_STREAMING 71

extern bool stopFlag;
extern libusb_transfer* gTransfer_in;
extern unsigned char framebuf2048[ORU_FRAME_BYTES];
// stopFlag back to false (tests).
void reset_frame_streaming();

// The one frame decoder: 2048 raw bytes into 1024 samples. Sample i is 12
// bits, left-aligned, most significant byte first: (raw[2i] << 4) | (raw[2i+1] >> 4).
void decode_frame(const unsigned char* raw, uint16_t* samples);

// The time between two frames of a streaming sensor, in nanoseconds: the
// slower of its exposure ((shutter x 912 + 160) us) and what a full-speed bulk
// endpoint carries (2048 bytes are 32 packets of 64, at most 19 packets a
// millisecond: one frame every 1.684 ms, about 594 frames/s).
long long frame_period_ns(int iShutterSpeed);

int alloc_transfer_bulk_l(int num_iso_pack, int length, unsigned char* buffer, unsigned int iDeviceId);
int alloc_transfer_bulk(unsigned int iDeviceId);
// Cancels the sensor's bulk transfer, waits (bounded) for its completion and
// frees it and its buffer. Returns 1 if there was one.
int release_transfer_bulk(unsigned int iDeviceId);
// Sensor index -> a bulk transfer was made for it (see the bulk file).
extern std::map<int, bool> allocTransferBulkMap;
// Enters indices 0 .. nSensors-1 as having no transfer yet.
void open_bulk_transfer_table(int nSensors);
bool bulk_transfer_made(unsigned int iDeviceId);
// Empties that table (tests).
void reset_bulk_transfers();
int acquire_frame_data_bulk(int iCommand, unsigned int iDeviceId);
int acquire_frame_data_control(int iCommand, unsigned int iDeviceId);
int set_frame_data_acq_mode(unsigned int iAcqMode, unsigned int iDeviceId);
int get_sleep_time_for_shutter_speed(int iShutterSpeed);
int get_current_shutter_speed();
// Streaming on: 71, 20 ms, 70.
void start_frame_streaming(unsigned int iDeviceId);
// Streaming off: 71, 20 ms, 71, 20 ms, 71.
void stop_frame_streaming(unsigned int iDeviceId);
void convert_2048C_to_1024F(char* inputC, double* outputF);
double acquire_frame_data(double* frame, int num, unsigned int iDeviceId);
int acquire_frame_data_2048(char* frame, unsigned int iDeviceId);
void LIBUSB_CALL cb_bulkdata(struct libusb_transfer* transfer);

#endif
