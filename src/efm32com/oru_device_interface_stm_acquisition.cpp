// One request for filter data: switch streaming on as the acquisition mode
// asks, wait (bounded) for the frames the bulk callback queues, average them
// plainly or through the frame moving-average ring, and switch streaming off.
#include "efm32com/oru_device_interface_stm_acquisition.h"
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

enum AcqMode { kSingleShot = 0, kContinuous = 1, kContinuousLast = 2, kSingleShotDiscard = 3 };

constexpr useconds_t kRestartPauseUs = 20000;
constexpr int kThrownFrames = 2;
long g_lFrameWaitMarginMs = 2000;

void print_separator_twice() {
    for (int i = 0; i < 2; ++i) puts("@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@");
}

void print_wait_exception() {
    puts("=========== Exception =============!!!");
    puts("=========== Exception occurs in get_filter_data_from_sensor!!!");
    puts("=========== Exception =============!!!");
}

void print_averaging_exception() {
    puts("----------- Exception -------------!!!");
    puts("----------- Exception occurs in get_filter_data_from_sensor!!!");
    puts("----------- Exception -------------!!!");
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
            deadline += std::chrono::milliseconds(frame_wait_bound_ms(g_iCurShutterSpeed, static_cast<int>(nNeeded)));
        exit_cond.wait_until(lk, deadline,
                             [&] {
            return frameDataQueue.size() >= nNeeded || do_exit != 0 || sensor_health(iDeviceId) != kSensorUsable;
        });
        if (frameDataQueue.size() < nNeeded) {
            // The frames did not come (stalled stream or event loop ended).
            frameDataQueue.clear();
            iCurrAvgNum = 0;
            if (bBufferedPath) {
                // The ring would otherwise wait for one frame that nobody queues.
                g_FMA_Buffered = false;
                g_FMA_FrameCount = 0;
            }
            lk.unlock();
            abandon_streaming(iDeviceId);
            if (pErrorCode != nullptr) *pErrorCode = lu_ec_fw_recv_timeout;
            return fDarkAverageVal;
        }
        bool bStop = stops_at_end(useContAcq) && bulkModeStarted;
        if (!bBufferedPath && frameDataQueue.size() != nNeeded) {
            print_separator_twice();
            puts("-----------> ERROR: frameDataQueue.size() != iAvgNum");
            print_separator_twice();
            bStop = false;
        } else if (bBufferedPath && frameDataQueue.size() != 1) {
            print_separator_twice();
            printf("===========> ERROR: frameDataQueue.size() = %d\n",
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
            // Front to back, then one clear: the same frames in the same order
            // as taking them off the front one by one, without the shifting.
            for (int i = 0; i < iAvgNum; ++i) {
                const std::vector<int>& frame = frameDataQueue[static_cast<size_t>(i)];
                for (int j = 0; j < ORU_NUM_FILTERS; ++j) frameBuf[j] += frame[j];
            }
            frameDataQueue.clear();
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
            } else {
                copy_front_to_slot(g_FMA_FrameCount);
                ++g_FMA_FrameCount;
            }
            if (g_FMA_FrameCount >= iFrameBufferSize) g_FMA_FrameCount = 0;
            std::fill(frameBuf.begin(), frameBuf.end(), 0.0);
            // Slot by slot: every filter still adds its slots in the order
            // 0, 1, ..., so the sums are the same, but memory is read in order.
            for (int s = 0; s < iFrameBufferSize; ++s) {
                const double* slot = g_FMA_Buffer + static_cast<size_t>(s) * ORU_NUM_FILTERS;
                for (int j = 0; j < ORU_NUM_FILTERS; ++j) frameBuf[j] += static_cast<int>(slot[j]);
            }
            frameDataQueue.clear();
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
