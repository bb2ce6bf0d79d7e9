// One request for filter data: switch streaming on as the acquisition mode
// asks, wait (bounded) for the frames the bulk callback queues, average them
// plainly or through the frame moving-average ring, and switch streaming off.
#include "efm32com/oru_device_interface_stm_acquisition.h"

#include "oru_log.h"
#include "efm32com/oru_device_interface_usb.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_frames.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

// Caller thread only.
bool g_enable_FMA = false;
double g_FMA_Buffer[ORU_FMA_SLOTS * 1024];
int g_FMA_FrameCount = 0;
bool g_FMA_Buffered = false;
bool bulkModeStarted = false;

namespace {
// Running per-filter sum of ring slots 0 .. g_iFMA_SumSlots-1, each value
// taken as an integer; -1: not built. Caller thread only, like the ring.
int g_iFMA_SumSlots = -1;
long long g_llFMA_Sum[ORU_NUM_FILTERS] = {};

void sum_ring_slots(int nSlots) {
    std::fill(std::begin(g_llFMA_Sum), std::end(g_llFMA_Sum), 0LL);
    for (int s = 0; s < nSlots; ++s) {
        const double* slot = g_FMA_Buffer + static_cast<size_t>(s) * ORU_NUM_FILTERS;
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) g_llFMA_Sum[j] += static_cast<int>(slot[j]);
    }
    g_iFMA_SumSlots = nSlots;
}

// Puts a new frame into ring slot iSlot and keeps the sum over nSlots slots.
void replace_ring_slot(int iSlot, int nSlots, const std::vector<int>& frame) {
    double* slot = g_FMA_Buffer + static_cast<size_t>(iSlot) * ORU_NUM_FILTERS;
    const bool bSummed = g_iFMA_SumSlots == nSlots && iSlot < nSlots;
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) {
        if (bSummed) g_llFMA_Sum[j] += frame[static_cast<size_t>(j)] - static_cast<int>(slot[j]);
        slot[j] = frame[static_cast<size_t>(j)];
    }
}
}  // namespace

void clear_frame_moving_average_buffer() {
    std::fill(std::begin(g_FMA_Buffer), std::end(g_FMA_Buffer), 0.0);
    g_iFMA_SumSlots = -1;
}

namespace {

enum AcqMode { kSingleShot = 0, kContinuous = 1, kContinuousLast = 2, kSingleShotDiscard = 3 };

constexpr useconds_t kRestartPauseUs = 20000;
constexpr int kThrownFrames = 2;
long g_lFrameWaitMarginMs = 2000;

void print_separator_twice() {
    for (int i = 0; i < 2; ++i) oru_log(kLogError, "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@\n");
}

void print_wait_exception() {
    oru_log(kLogError, "=========== Exception =============!!!\n");
    oru_log(kLogError, "=========== Exception occurs in get_filter_data_from_sensor!!!\n");
    oru_log(kLogError, "=========== Exception =============!!!\n");
}

void print_averaging_exception() {
    oru_log(kLogError, "----------- Exception -------------!!!\n");
    oru_log(kLogError, "----------- Exception occurs in get_filter_data_from_sensor!!!\n");
    oru_log(kLogError, "----------- Exception -------------!!!\n");
}

// After a failure the stream state is unknown: switch it off for good.
void abandon_streaming(unsigned int iDeviceId) {
    stop_frame_streaming(iDeviceId);
    bulkModeStarted = false;
}

bool stops_at_end(int iMode) {
    return iMode == kContinuousLast || iMode == kSingleShotDiscard;
}

}  // namespace

void set_frame_moving_average(bool bEnable) {
    g_enable_FMA = bEnable;
    if (bEnable) {
        g_FMA_Buffered = false;
        g_FMA_FrameCount = 0;
        g_iFMA_SumSlots = -1;
    }
}

void set_frame_wait_margin_ms(long lMarginMs) {
    g_lFrameWaitMarginMs = lMarginMs;
}

// The frames of a request arrive one exposure apart, plus the two a single
// shot throws away. Allow twice that, at least 1 ms per frame, on top of a
// fixed margin (2 s by default) for the USB round trips:
//   margin + (n + 2) * max(1, (ss * 912 + 160) / 1000) * 2   [ms]
long frame_wait_bound_ms(int iShutterSpeed, int iNumOfFrames) {
    long long llExposureUs = static_cast<long long>(iShutterSpeed) * 912 + 160;
    long long llPerFrameMs = std::max(1LL, llExposureUs / 1000);
    long long llFrames = static_cast<long long>(std::max(iNumOfFrames, 0)) + kThrownFrames;
    return static_cast<long>(g_lFrameWaitMarginMs + llFrames * llPerFrameMs * 2);
}

double get_filter_data_from_sensor(double* fpFilterValueAveraged, int iNumOfAverages,
                                   int /*iDarkCorrectionMode*/, int useContAcq,
                                   unsigned int iDeviceId, ORU_ERROR_CODE* pErrorCode) {
    if (pErrorCode != nullptr) *pErrorCode = lu_ec_success;
    // A failed or removed sensor sends no frames: fail at once.
    if (sensor_health(iDeviceId) != kSensorUsable) {
        if (pErrorCode != nullptr) *pErrorCode = lu_ec_fw_recv_timeout;
        return 0.0;
    }
    iCurrAcqMode = useContAcq;
    {
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        g_count = 0;
    }
    int iAvgNum = iNumOfAverages;
    if (!g_enable_FMA || !g_FMA_Buffered) iCurrAvgNum = iAvgNum;
    // After the assignment on purpose: a request for 0 frames keeps iCurrAvgNum 0.
    if (iAvgNum <= 0) iAvgNum = 1;

    std::vector<double> frameBuf(ORU_NUM_FILTERS, 0.0);
    double fDarkAverageVal = 0.0;  // dark correction is not done here

    if (useContAcq == kSingleShot) {
        useContAcq = kSingleShotDiscard;
        iCurrAcqMode = kSingleShotDiscard;
    }
    if ((useContAcq == kContinuous || useContAcq == kSingleShotDiscard) && !bulkModeStarted) {
        bulkModeStarted = true;
        acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
        usleep(kRestartPauseUs);
        acquire_frame_data_bulk(ORU_CMD_START_STREAMING, iDeviceId);
    }

    const bool bBufferedPath = g_enable_FMA && g_FMA_Buffered;
    const size_t nNeeded = bBufferedPath ? 1 : static_cast<size_t>(iAvgNum);
    std::unique_lock<std::mutex> lk(exit_cond_lock, std::defer_lock);

    try {
        lk.lock();
        // A sensor without an open handle (failed claim, unplugged and
        // forgotten) can send nothing: do not wait for it at all.
        auto deadline = std::chrono::steady_clock::now();
        if (find_device_handle(iDeviceId) != nullptr)
            deadline += std::chrono::milliseconds(frame_wait_bound_ms(sensor_shutter_speed(iDeviceId), static_cast<int>(nNeeded)));
        exit_cond.wait_until(lk, deadline,
                             [&] {
            return queued_frame_count() >= static_cast<int>(nNeeded) || queued_frame_lost() || do_exit != 0 ||
                   sensor_health(iDeviceId) != kSensorUsable;
        });
        const bool bLost = queued_frame_lost();
        if (queued_frame_count() < static_cast<int>(nNeeded) || bLost) {
            // The frames did not come (stalled stream, failed sensor or
            // event loop ended), or one could not be kept.
            clear_queued_frames();
            iCurrAvgNum = 0;
            if (bBufferedPath) {
                // The ring would otherwise wait for one frame that nobody queues.
                g_FMA_Buffered = false;
                g_FMA_FrameCount = 0;
            }
            lk.unlock();
            abandon_streaming(iDeviceId);
            if (pErrorCode != nullptr) *pErrorCode = bLost ? lu_ec_memory_is_null : lu_ec_fw_recv_timeout;
            return fDarkAverageVal;
        }
        bool bStop = stops_at_end(useContAcq) && bulkModeStarted;
        if (!bBufferedPath && queued_frame_count() != static_cast<int>(nNeeded)) {
            print_separator_twice();
            oru_log(kLogError, "-----------> ERROR: frameDataQueue.size() != iAvgNum\n");
            print_separator_twice();
            bStop = false;
        } else if (bBufferedPath && frameDataQueue.size() != 1) {
            print_separator_twice();
            oru_log(kLogError, "===========> ERROR: frameDataQueue.size() = %d\n",
                   static_cast<int>(frameDataQueue.size()));
            print_separator_twice();
        }
        if (bStop) {
            // Not under the lock: the event thread must stay free to run the
            // completions these commands need.
            lk.unlock();
            stop_frame_streaming(iDeviceId);
            bulkModeStarted = false;
            lk.lock();
        }
    } catch (...) {
        print_wait_exception();
        if (lk.owns_lock()) lk.unlock();
        abandon_streaming(iDeviceId);
        return fDarkAverageVal;
    }

    int iDivisor = iAvgNum;
    try {
        if (!g_enable_FMA) {
            add_queued_frames(frameBuf.data(), iAvgNum);
            clear_queued_frames();
            iCurrAvgNum = 0;
        } else {
            int iFrameBufferSize = std::min(iAvgNum, ORU_FMA_SLOTS);
            size_t nextFrame = 0;  // frames are taken in queue order
            auto copy_front_to_slot = [&nextFrame](int iSlot) {
                const std::vector<int>& frame = frameDataQueue[nextFrame++];
                std::copy(frame.begin(), frame.end(), g_FMA_Buffer + static_cast<size_t>(iSlot) * ORU_NUM_FILTERS);
            };
            if (!g_FMA_Buffered) {
                for (int i = 0; i < iFrameBufferSize; ++i) copy_front_to_slot(i);
                g_FMA_Buffered = true;
                iCurrAvgNum = 1;  // from now on each request waits for one new frame
                g_iFMA_SumSlots = -1;
            } else {
                replace_ring_slot(g_FMA_FrameCount, iFrameBufferSize, frameDataQueue[nextFrame++]);
                ++g_FMA_FrameCount;
            }
            if (g_FMA_FrameCount >= iFrameBufferSize) g_FMA_FrameCount = 0;
            // The sum over slots 0 .. size-1, each value taken as an integer:
            // kept from request to request, so a full ring costs one frame.
            if (g_iFMA_SumSlots != iFrameBufferSize) sum_ring_slots(iFrameBufferSize);
            for (int j = 0; j < ORU_NUM_FILTERS; ++j) frameBuf[j] = static_cast<double>(g_llFMA_Sum[j]);
            clear_queued_frames();
            iDivisor = iFrameBufferSize;
        }
        lk.unlock();
    } catch (...) {
        print_averaging_exception();
        if (lk.owns_lock()) lk.unlock();
        abandon_streaming(iDeviceId);
        return fDarkAverageVal;
    }

    for (int j = 0; j < ORU_NUM_FILTERS; ++j) {
        fpFilterValueAveraged[j] = frameBuf[j] / iDivisor;
    }
    return fDarkAverageVal;
}
