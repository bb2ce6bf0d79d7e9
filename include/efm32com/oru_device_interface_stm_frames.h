// Frame streaming: the streaming commands, the bulk transfer and its callback,
// the libusb event thread and the frame queue they share with the consumer.
#ifndef ORU_DEVICE_INTERFACE_STM_FRAMES_H
#define ORU_DEVICE_INTERFACE_STM_FRAMES_H

#include <libusb.h>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#define ORU_FRAME_BYTES 2048
#define ORU_NUM_FILTERS 1024
#define ORU_BULK_ENDPOINT 0x81
#define ORU_CMD_START_STREAMING 70
#define ORU_CMD_STOP_STREAMING 71

// Frames of a request kept whole; the rest are only summed. The moving
// average ring (at most 100 slots) fills from the whole ones.
#define ORU_STORED_FRAMES 100

// Shared between the event thread and the consumer; guarded by exit_cond_lock.
extern std::vector<std::vector<int>> frameDataQueue;
extern int g_count;
extern std::mutex exit_cond_lock;
extern std::condition_variable exit_cond;
// Written by the consumer before streaming starts, read by the callback.
extern std::atomic<int> iCurrAvgNum;
extern std::atomic<int> iCurrAcqMode;
extern std::atomic<int> do_exit;
extern bool stopFlag;
extern libusb_transfer* gTransfer_in;
extern unsigned char framebuf2048[ORU_FRAME_BYTES];

// The frames of the current request. Call with exit_cond_lock held.
// Frames queued: the whole ones in frameDataQueue and the summed ones.
int queued_frame_count();
// Adds one decoded frame: kept whole while fewer than ORU_STORED_FRAMES are,
// else added to the per-filter sum. Never throws.
void queue_frame(const int* samples);
// True when a frame could not be kept (memory ran out on the event thread).
bool queued_frame_lost();
// Adds the values of the first nFrames queued frames into sums[0..1023];
// nFrames beyond the whole ones means all of them.
void add_queued_frames(double* sums, int nFrames);
// Empties the queue and the sum.
void clear_queued_frames();

// Sample i of a raw frame: 12 bits, left-aligned, most significant byte first.
inline int decode_raw_sample(const unsigned char* raw, int i) {
    return (raw[2 * i] << 4) | (raw[2 * i + 1] >> 4);
}

int alloc_transfer_bulk_l(int num_iso_pack, int length, unsigned char* buffer, unsigned int iDeviceId);
int alloc_transfer_bulk(unsigned int iDeviceId);
// Cancels the sensor's bulk transfer, waits (bounded) for its completion and
// frees it and its buffer. Returns 1 if there was one.
int release_transfer_bulk(unsigned int iDeviceId);
int acquire_frame_data_bulk(int iCommand, unsigned int iDeviceId);
int acquire_frame_data_control(int iCommand, unsigned int iDeviceId);
int set_frame_data_acq_mode(unsigned int iAcqMode, unsigned int iDeviceId);
int get_sleep_time_for_shutter_speed(int iShutterSpeed);
int get_current_shutter_speed();
void* usbEventLoop_thread_main(void* arg);
// Starts the event thread into `thread`, with do_exit reset to 0 first.
void start_usb_event_loop(std::thread& thread);
// Whether the event thread's loop runs now (started and not yet ended).
bool usb_event_loop_running();
// Streaming on: 71, 20 ms, 70.
void start_frame_streaming(unsigned int iDeviceId);
// Streaming off: 71, 20 ms, 71, 20 ms, 71.
void stop_frame_streaming(unsigned int iDeviceId);
void request_exit(int code);
void convert_2048C_to_1024F(char* inputC, double* outputF);
double acquire_frame_data(double* frame, int num, unsigned int iDeviceId);
int acquire_frame_data_2048(char* frame, unsigned int iDeviceId);
void LIBUSB_CALL cb_bulkdata(struct libusb_transfer* transfer);

#endif
