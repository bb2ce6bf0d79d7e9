// The state of the one pending request for frames, shared by the consumer
// (caller thread) and the frame producers (bulk callback on the event thread,
// control-mode read). This file is its only writer.
#ifndef ORU_DEVICE_INTERFACE_STM_REQUEST_H
#define ORU_DEVICE_INTERFACE_STM_REQUEST_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

// Guarded by exit_cond_lock; written only by the functions below.
//   frameDataQueue, g_count: appended/counted by the producers, cleared and
//     reset by the consumer.
//   iCurrAvgNum, iCurrAcqMode: set by the consumer; read by the producers
//     (atomic so that a reader outside the lock sees a whole value).
extern std::vector<std::vector<int>> frameDataQueue;
extern int g_count;
extern std::mutex exit_cond_lock;
extern std::condition_variable exit_cond;
extern std::atomic<int> iCurrAvgNum;
extern std::atomic<int> iCurrAcqMode;

// Consumer: starts a request in one locked block: acquisition mode, frame
// counter 0, and, when iWanted >= 0, the number of frames wanted.
void begin_frame_request(int iMode, int iWanted);

// Producers. The bulk callback's frame: counted, and queued while the request
// wants it (mode 3 throws the first two away). Returns whether it was counted
// (the transfer buffer is then zeroed). Wakes the consumer when complete.
bool take_bulk_frame(const uint16_t* samples);
// The control-mode read's frame: queued while the request wants it.
void take_control_frame(const uint16_t* samples);

// Consumer, with exit_cond_lock held through `lk`.
// Waits until nNeeded frames are queued, the event loop ends, or the deadline.
// Returns the number of frames queued.
size_t wait_for_queued_frames(std::unique_lock<std::mutex>& lk, size_t nNeeded,
                              std::chrono::steady_clock::time_point deadline);
size_t queued_frames();
// Adds the first n queued frames to sum[], filter by filter, in queue order.
void add_queued_frames(double* sum, int n);
// Copies queued frame i into 1024 doubles.
void copy_queued_frame(size_t i, double* out);
// Ends the request: drops what is queued and, when iNextWanted >= 0, sets the
// number of frames the producers still want (0, or 1 while the ring runs).
void end_frame_request(int iNextWanted);

// Puts the request state back to its start values (tests).
void reset_frame_request();

#endif
