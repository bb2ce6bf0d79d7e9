// The state of the one pending request for frames, shared by the consumer
// (caller thread) and the frame producers (bulk callback on the event thread,
// control-mode read). Its file is the only writer and the only one that takes
// exit_cond_lock: each function below is one locked step.
#ifndef ORU_DEVICE_INTERFACE_STM_REQUEST_H
#define ORU_DEVICE_INTERFACE_STM_REQUEST_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

// Guarded by exit_cond_lock; written only by the functions below.
//   g_count: counted by the bulk callback, reset by the consumer.
//   iCurrAvgNum, iCurrAcqMode: set by the consumer; read by the producers
//     (atomic so that a reader outside the lock sees a whole value).
extern int g_count;
extern std::mutex exit_cond_lock;
extern std::condition_variable exit_cond;
extern std::atomic<int> iCurrAvgNum;
extern std::atomic<int> iCurrAcqMode;

// The frames a request has taken, in constant memory whatever their number:
// per filter the exact integer sum (at most INT_MAX x 4095 < 2^43, so its
// double equals the double sum of the frames added one by one), their number,
// and the first nKeep frames whole, for the moving-average ring; per filter
// also whether any frame saturated it (1) or none did (0).
#define ORU_KEPT_FRAMES 100
struct SFrameSum {
    int64_t llSum[1024];
    unsigned char saturated[1024];
    int nFrames;
    void clear();
    void add(const uint16_t* samples);
    // sum[j] += llSum[j]
    void add_to(double* sum) const;
};

// Consumer: starts a request in one locked block: acquisition mode, frame
// counter 0, when iWanted >= 0 the number of frames wanted, and how many of
// the first frames to keep whole (at most ORU_KEPT_FRAMES).
void begin_frame_request(int iMode, int iWanted, int nKeep);

// Producers. The bulk callback's frame: counted, and taken while the request
// wants it (mode 3 throws the first two away). Returns whether it was counted
// (the transfer buffer is then zeroed). Wakes the consumer when complete.
bool take_bulk_frame(const uint16_t* samples);
// The control-mode read's frame: taken while the request wants it.
void take_control_frame(const uint16_t* samples);
// Something went wrong on the producer's side: the request fails (-9) at once.
void fail_frame_request() noexcept;

// Something the consumer's wait looks at changed (the event loop ended, a
// sensor failed or went): wakes it.
void wake_frame_request();

// Consumer.
// Waits until nNeeded frames are taken, the request failed, the event loop
// ended, the sensor failed or went, or the deadline passed. Returns the number
// of frames taken (0 when the request failed).
size_t wait_for_queued_frames(size_t nNeeded, std::chrono::steady_clock::time_point deadline,
                              unsigned int iDeviceId);
size_t queued_frames();
// Adds the per-filter sum of the frames taken to sum[].
void add_queued_frames(double* sum);
// Copies the saturation flags of the frames taken (1024) into mask.
void copy_queued_saturation(unsigned char* mask);
// Copies kept frame i (i < nKeep) into 1024 doubles.
void copy_queued_frame(size_t i, double* out);
// Ends the request: drops what was taken and, when iNextWanted >= 0, sets the
// number of frames the producers still want (0, or 1 while the ring runs).
void end_frame_request(int iNextWanted);

// Puts the request state back to its start values (tests).
void reset_frame_request();

#endif
