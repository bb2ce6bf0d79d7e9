// The pending request for frames: what it wants, what has come, and the lock
// and condition its consumer waits on. This file owns exit_cond_lock: every
// function below takes it for its own step and lets it go again, and no other
// file locks it.
#include "efm32com/oru_device_interface_stm_request.h"

#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_stm_frames.h"

#include <algorithm>
#include <cstring>

// Writers: the functions of this file only, always under exit_cond_lock.
// Readers: the consumer (acquisition, ring) and the producers (bulk callback on
// the event thread, control-mode read on the caller thread), through them.
int g_count = 0;
std::mutex exit_cond_lock;
std::condition_variable exit_cond;
std::atomic<int> iCurrAvgNum{0};
std::atomic<int> iCurrAcqMode{0};

namespace {

constexpr int kThrownFramesInMode3 = 2;
constexpr int kAcqModeSingleShotDiscard = 3;

// Guarded by exit_cond_lock, like the variables above.
SFrameSum g_frameSum{};
uint16_t g_keptFrames[ORU_KEPT_FRAMES][ORU_NUM_FILTERS];
int g_nKeep = 0;
bool g_bFailed = false;  // a producer could not take a frame

void take_frame(const uint16_t* samples) {
    if (g_frameSum.nFrames < g_nKeep) std::copy(samples, samples + ORU_NUM_FILTERS, g_keptFrames[g_frameSum.nFrames]);
    g_frameSum.add(samples);
}

}  // namespace

void SFrameSum::clear() {
    std::fill(std::begin(llSum), std::end(llSum), 0);
    std::fill(std::begin(saturated), std::end(saturated), 0);
    nFrames = 0;
}

void SFrameSum::add(const uint16_t* samples) {
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) {
        llSum[j] += samples[j];
        saturated[j] |= samples[j] >= ORU_SATURATED_DN ? 1 : 0;
    }
    ++nFrames;
}

void SFrameSum::add_to(double* sum) const {
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) sum[j] += static_cast<double>(llSum[j]);
}

void begin_frame_request(int iMode, int iWanted, int nKeep) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    iCurrAcqMode = iMode;
    g_count = 0;
    if (iWanted >= 0) iCurrAvgNum = iWanted;
    g_nKeep = std::clamp(nKeep, 0, ORU_KEPT_FRAMES);
    g_bFailed = false;
}

bool take_bulk_frame(const uint16_t* samples) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    const int numOfThrow = iCurrAcqMode == kAcqModeSingleShotDiscard ? kThrownFramesInMode3 : 0;
    const int iWanted = iCurrAvgNum;
    if (iWanted + numOfThrow <= g_count) return false;  // enough counted: dropped untouched
    if (g_count >= numOfThrow && g_frameSum.nFrames < iWanted) take_frame(samples);
    if (g_frameSum.nFrames == iWanted) exit_cond.notify_all();
    ++g_count;
    return true;
}

void take_control_frame(const uint16_t* samples) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    if (g_frameSum.nFrames < iCurrAvgNum) take_frame(samples);
}

void fail_frame_request() noexcept {
    try {
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        g_bFailed = true;
    } catch (...) {
        // Without the lock the flag cannot be set; the bounded wait still ends.
    }
    exit_cond.notify_all();
}

void wake_frame_request() {
    // Through the lock, so that a consumer between its check and its wait
    // cannot miss the change that comes before this call.
    { std::lock_guard<std::mutex> lk(exit_cond_lock); }
    exit_cond.notify_all();
}

size_t wait_for_queued_frames(size_t nNeeded, std::chrono::steady_clock::time_point deadline,
                              unsigned int iDeviceId) {
    std::unique_lock<std::mutex> lk(exit_cond_lock);
    exit_cond.wait_until(lk, deadline, [nNeeded, iDeviceId] {
        return static_cast<size_t>(g_frameSum.nFrames) >= nNeeded || g_bFailed || do_exit != 0 ||
               sensor_health(iDeviceId) != kSensorUsable;
    });
    return g_bFailed ? 0 : static_cast<size_t>(g_frameSum.nFrames);
}

size_t queued_frames() {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    return static_cast<size_t>(g_frameSum.nFrames);
}

void add_queued_frames(double* sum) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    g_frameSum.add_to(sum);
}

void copy_queued_saturation(unsigned char* mask) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    std::copy(std::begin(g_frameSum.saturated), std::end(g_frameSum.saturated), mask);
}

void copy_queued_frame(size_t i, double* out) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    std::copy(g_keptFrames[i], g_keptFrames[i] + ORU_NUM_FILTERS, out);
}

void end_frame_request(int iNextWanted) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    g_frameSum.clear();
    if (iNextWanted >= 0) iCurrAvgNum = iNextWanted;
}

void reset_frame_request() {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    g_frameSum.clear();
    g_count = 0;
    g_nKeep = 0;
    g_bFailed = false;
    iCurrAvgNum = 0;
    iCurrAcqMode = 0;
}
