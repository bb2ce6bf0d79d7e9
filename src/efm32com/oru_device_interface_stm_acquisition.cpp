// One request for filter data: switch streaming on as the acquisition mode
// asks, wait (bounded) for the frames the bulk callback takes, report a queue
// of the wrong size, switch streaming off, and average the frames plainly or
// through the frame moving-average ring.
#include "efm32com/oru_device_interface_stm_acquisition.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_usb.h"
#include "sensors/oru_sensor_record.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

// Streaming (command 70) is on. Written only here, by the caller thread of a
// request; requests run one at a time (g_requestLock).
bool bulkModeStarted = false;

static_assert(ORU_NUM_FILTERS == oru_sensor::kRecordFilters, "a request's flags fill the record's");

namespace {

enum AcqMode { kSingleShot = 0, kContinuous = 1, kContinuousLast = 2, kSingleShotDiscard = 3 };

constexpr int kThrownFrames = 2;
constexpr int kKeepWanted = -1;
// Caller thread only; tests shorten it.
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

// Modes 1 and 3 switch streaming on (stop, 20 ms, start) unless it is on.
void start_streaming(int iMode, unsigned int iDeviceId) {
    if ((iMode != kContinuous && iMode != kSingleShotDiscard) || bulkModeStarted) return;
    bulkModeStarted = true;
    start_frame_streaming(iDeviceId);
}

// The bounded wait. When the frames do not come (stalled stream, event loop
// ended) the request is ended and streaming switched off; returns false.
bool wait_for_frames(size_t nNeeded, bool bBufferedPath, unsigned int iDeviceId) {
    // A sensor without an open handle (failed claim, unplugged and
    // forgotten) can send nothing: do not wait for it at all. The frames
    // come at this sensor's own exposure, whatever another was set to last.
    auto deadline = std::chrono::steady_clock::now();
    if (find_device_handle(iDeviceId) != nullptr)
        deadline +=
            std::chrono::milliseconds(frame_wait_bound_ms(sensor_shutter_speed(iDeviceId), static_cast<int>(nNeeded)));
    if (wait_for_queued_frames(nNeeded, deadline, iDeviceId) >= nNeeded) return true;
    end_frame_request(0);
    // The ring would otherwise wait for one frame that nobody takes.
    if (bBufferedPath) restart_frame_ring();
    abandon_streaming(iDeviceId);
    return false;
}

// Reports a queue of another size than the request needs. Returns false when
// streaming must then stay on (the plain path's report skips the stop).
bool report_queue_size(size_t nQueued, size_t nNeeded, bool bBufferedPath) {
    if (!bBufferedPath && nQueued != nNeeded) {
        print_separator_twice();
        oru_log(kLogError, "-----------> ERROR: frameDataQueue.size() != iAvgNum\n");
        print_separator_twice();
        return false;
    }
    if (bBufferedPath && nQueued != 1) {
        print_separator_twice();
        oru_log(kLogError, "===========> ERROR: frameDataQueue.size() = %d\n", static_cast<int>(nQueued));
        print_separator_twice();
    }
    return true;
}

// Modes 2 and 3 end with streaming off. (The request has all its frames:
// the producers take no more, so the averaging below sees just those.)
void stop_streaming_at_end(int iMode, unsigned int iDeviceId) {
    if ((iMode != kContinuousLast && iMode != kSingleShotDiscard) || !bulkModeStarted) return;
    stop_frame_streaming(iDeviceId);
    bulkModeStarted = false;
}

// Sum of the request's frames and their saturation flags; returns the
// divisor of the average.
int sum_plainly(double* sum, unsigned char* saturated, int iAvgNum) {
    add_queued_frames(sum);
    copy_queued_saturation(saturated);
    end_frame_request(0);
    return iAvgNum;
}

// Sum over the ring after this request's frames went in; returns the number
// of slots. Once filled, each request waits for one new frame.
int sum_through_ring(double* sum, unsigned char* saturated, int iAvgNum) {
    const int iSlots = std::min(iAvgNum, ORU_FMA_SLOTS);
    const bool bFilling = !g_FMA_Buffered;
    advance_frame_ring(iSlots, sum);
    frame_ring_saturation(iSlots, saturated);
    end_frame_request(bFilling ? 1 : kKeepWanted);
    return iSlots;
}

}  // namespace

void set_frame_wait_margin_ms(long lMarginMs) { g_lFrameWaitMarginMs = lMarginMs; }

// The frames of a request arrive one frame period apart (the slower of the
// exposure and the bus), plus the two a single shot throws away. Allow twice
// that on top of a fixed margin (2 s by default) for the USB round trips:
//   margin + ceil((n + 2) * period * 2)   [ms]
long frame_wait_bound_ms(int iShutterSpeed, int iNumOfFrames) {
    const long long llFrames = static_cast<long long>(std::max(iNumOfFrames, 0)) + kThrownFrames;
    const long long llWaitNs = llFrames * frame_period_ns(iShutterSpeed) * 2;
    return static_cast<long>(g_lFrameWaitMarginMs + (llWaitNs + 999999) / 1000000);
}

double get_filter_data_from_sensor(double* fpFilterValueAveraged, int iNumOfAverages, int /*iDarkCorrectionMode*/,
                                   int useContAcq, unsigned int iDeviceId, ORU_ERROR_CODE* pErrorCode) {
    if (pErrorCode != nullptr) *pErrorCode = lu_ec_success;
    const double fDarkAverageVal = 0.0;  // dark correction is not done here
    // Only a request that succeeds leaves its saturation flags behind.
    oru_sensor::SSensorRecord* pRecord = oru_sensor::sensor_record(iDeviceId);
    if (pRecord != nullptr) oru_sensor::forget_request_saturation(*pRecord);
    // A failed or removed sensor sends no frames: fail at once.
    if (sensor_health(iDeviceId) != kSensorUsable) {
        if (pErrorCode != nullptr) *pErrorCode = lu_ec_fw_recv_timeout;
        return fDarkAverageVal;
    }
    const int iMode = useContAcq == kSingleShot ? kSingleShotDiscard : useContAcq;
    const bool bBufferedPath = frame_ring_buffered();
    const int iAvgNum = iNumOfAverages <= 0 ? 1 : iNumOfAverages;
    // The ring takes the first frames whole; a plain average only their sum.
    const int nKeep = !g_enable_FMA ? 0 : bBufferedPath ? 1 : std::min(iAvgNum, ORU_FMA_SLOTS);
    // A request for 0 frames keeps the wanted count at 0 but averages one.
    begin_frame_request(iMode, bBufferedPath ? kKeepWanted : iNumOfAverages, nKeep);
    std::vector<double> frameBuf(ORU_NUM_FILTERS, 0.0);

    start_streaming(iMode, iDeviceId);

    const size_t nNeeded = bBufferedPath ? 1 : static_cast<size_t>(iAvgNum);
    try {
        if (!wait_for_frames(nNeeded, bBufferedPath, iDeviceId)) {
            if (pErrorCode != nullptr) *pErrorCode = lu_ec_fw_recv_timeout;
            return fDarkAverageVal;
        }
        if (report_queue_size(queued_frames(), nNeeded, bBufferedPath)) stop_streaming_at_end(iMode, iDeviceId);
    } catch (...) {
        print_wait_exception();
        abandon_streaming(iDeviceId);
        return fDarkAverageVal;
    }

    int iDivisor = iAvgNum;
    unsigned char saturated[ORU_NUM_FILTERS];
    try {
        iDivisor = g_enable_FMA ? sum_through_ring(frameBuf.data(), saturated, iAvgNum)
                                : sum_plainly(frameBuf.data(), saturated, iAvgNum);
    } catch (...) {
        print_averaging_exception();
        abandon_streaming(iDeviceId);
        return fDarkAverageVal;
    }

    for (int j = 0; j < ORU_NUM_FILTERS; ++j) fpFilterValueAveraged[j] = frameBuf[j] / iDivisor;
    if (pRecord != nullptr) oru_sensor::set_request_saturation(*pRecord, saturated);
    return fDarkAverageVal;
}

void reset_acquisition() {
    bulkModeStarted = false;
    g_lFrameWaitMarginMs = 2000;
}
