// The pending request for frames: what it wants, what has come, and the lock
// and condition its consumer waits on.
#include "efm32com/oru_device_interface_stm_request.h"

#include "efm32com/oru_device_interface_stm_frames.h"

// Writers: the functions of this file only, always under exit_cond_lock.
// Readers: the consumer (acquisition) and the producers (bulk callback on the
// event thread, control-mode read on the caller thread), through them.
std::vector<std::vector<int>> frameDataQueue;
int g_count = 0;
std::mutex exit_cond_lock;
std::condition_variable exit_cond;
std::atomic<int> iCurrAvgNum{0};
std::atomic<int> iCurrAcqMode{0};

namespace {

constexpr int kThrownFramesInMode3 = 2;
constexpr int kAcqModeSingleShotDiscard = 3;

void queue_frame(const uint16_t* samples) {
    frameDataQueue.emplace_back(samples, samples + ORU_NUM_FILTERS);
}

}  // namespace

void begin_frame_request(int iMode, int iWanted) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    iCurrAcqMode = iMode;
    g_count = 0;
    if (iWanted >= 0) iCurrAvgNum = iWanted;
}

bool take_bulk_frame(const uint16_t* samples) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    const int numOfThrow = iCurrAcqMode == kAcqModeSingleShotDiscard ? kThrownFramesInMode3 : 0;
    const int iWanted = iCurrAvgNum;
    if (iWanted + numOfThrow <= g_count) return false;  // enough counted: dropped untouched
    if (g_count >= numOfThrow && static_cast<int>(frameDataQueue.size()) < iWanted) queue_frame(samples);
    if (static_cast<int>(frameDataQueue.size()) == iWanted) exit_cond.notify_all();
    ++g_count;
    return true;
}

void take_control_frame(const uint16_t* samples) {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    if (static_cast<int>(frameDataQueue.size()) < iCurrAvgNum) queue_frame(samples);
}

size_t wait_for_queued_frames(std::unique_lock<std::mutex>& lk, size_t nNeeded,
                              std::chrono::steady_clock::time_point deadline) {
    exit_cond.wait_until(lk, deadline, [nNeeded] { return frameDataQueue.size() >= nNeeded || do_exit != 0; });
    return frameDataQueue.size();
}

size_t queued_frames() {
    return frameDataQueue.size();
}

void add_queued_frames(double* sum, int n) {
    // Front to back: the same frames in the same order as taking them off
    // the front one by one, without the shifting.
    for (int i = 0; i < n; ++i) {
        const std::vector<int>& frame = frameDataQueue[static_cast<size_t>(i)];
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) sum[j] += frame[j];
    }
}

void copy_queued_frame(size_t i, double* out) {
    const std::vector<int>& frame = frameDataQueue[i];
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) out[j] = frame[j];
}

void end_frame_request(int iNextWanted) {
    frameDataQueue.clear();
    if (iNextWanted >= 0) iCurrAvgNum = iNextWanted;
}

void reset_frame_request() {
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    frameDataQueue.clear();
    g_count = 0;
    iCurrAvgNum = 0;
    iCurrAcqMode = 0;
}
