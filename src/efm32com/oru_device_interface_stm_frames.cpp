// Frame streaming: the frame queue shared with the bulk callback, raw frame
// decoding, the streaming commands and the control-mode read.
#include "efm32com/oru_device_interface_stm_frames.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <cstdio>
#include <cstring>

// ---- state shared by the event thread and the consumer --------------------
// frameDataQueue and g_count: written by cb_bulkdata (event thread) and by the
// consumer, always under exit_cond_lock.
std::vector<std::vector<int>> frameDataQueue;
int g_count = 0;
// Frames of the current request beyond the ones kept whole in frameDataQueue
// (at most ORU_STORED_FRAMES): only their count and per-filter sum are kept,
// so that a request for any number of frames takes constant memory. Same
// writers, readers and lock as frameDataQueue.
namespace {
int g_iSummedFrames = 0;
long long g_llSummedFrames[ORU_NUM_FILTERS] = {};
bool g_bFrameLost = false;
}  // namespace
std::mutex exit_cond_lock;
std::condition_variable exit_cond;
// Set by the consumer before it starts streaming; read by the callback.
std::atomic<int> iCurrAvgNum{0};
std::atomic<int> iCurrAcqMode{0};
// 0 while the event loop runs, 1 normal end, 2 end after an error.
std::atomic<int> do_exit{0};
// Caller thread only: ends the control-mode read loop early.
bool stopFlag = false;
// The single-transfer variant (alloc_transfer_bulk); kept, not used by bring-up.
libusb_transfer* gTransfer_in = nullptr;
unsigned char framebuf2048[ORU_FRAME_BYTES];

namespace {

constexpr uint8_t kStreamRequestType = 0x21;   // host-to-device, class, interface
constexpr uint8_t kControlReadRequestType = 0xA1;
constexpr uint16_t kStreamInterfaceIndex = 1;
constexpr unsigned int kStreamTimeoutMs = 2000;
constexpr uint16_t kControlReadAdcRange = 0x84; // the ADC range value of start-up
constexpr int kCmdBlankTimeLower = 33;
constexpr int kCmdBlankTimeUpper = 34;
constexpr int kCmdReadBlankTimeLower = 38;
constexpr int kCmdReadBlankTimeUpper = 39;
constexpr int kAcqBlankTime = 2;
constexpr useconds_t kStopRepeatPauseUs = 20000;

}  // namespace

// ---- the frames of a request ------------------------------------------------

int queued_frame_count() { return static_cast<int>(frameDataQueue.size()) + g_iSummedFrames; }

void queue_frame(const int* samples) {
    if (frameDataQueue.size() < ORU_STORED_FRAMES) {
        try {
            frameDataQueue.emplace_back(samples, samples + ORU_NUM_FILTERS);
            return;
        } catch (const std::bad_alloc&) {
            // Runs on the event thread: nothing may escape. The request fails.
            g_bFrameLost = true;
            return;
        }
    }
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) g_llSummedFrames[i] += samples[i];
    ++g_iSummedFrames;
}

bool queued_frame_lost() { return g_bFrameLost; }

void add_queued_frames(double* sums, int nFrames) {
    // Whole frames first, in queue order, then the summed rest: every value
    // is a whole number far below 2^53, so the total is exact in any order.
    const int nStored = std::min(nFrames, static_cast<int>(frameDataQueue.size()));
    for (int f = 0; f < nStored; ++f) {
        const std::vector<int>& frame = frameDataQueue[static_cast<size_t>(f)];
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) sums[j] += frame[j];
    }
    if (nFrames > nStored && g_iSummedFrames > 0)
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) sums[j] += static_cast<double>(g_llSummedFrames[j]);
}

void clear_queued_frames() {
    frameDataQueue.clear();
    // Give back what a long request may have grown, and start the sum anew.
    if (frameDataQueue.capacity() > ORU_STORED_FRAMES) frameDataQueue.shrink_to_fit();
    g_iSummedFrames = 0;
    std::fill(std::begin(g_llSummedFrames), std::end(g_llSummedFrames), 0LL);
    g_bFrameLost = false;
}

// ---- conversion --------------------------------------------------------------

void convert_2048C_to_1024F(char* inputC, double* outputF) {
    if (inputC == nullptr || outputF == nullptr) return;
    unsigned char raw[ORU_FRAME_BYTES];
    std::memcpy(raw, inputC, ORU_FRAME_BYTES);
    std::memset(inputC, 0, ORU_FRAME_BYTES);  // the caller's buffer is consumed
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) {
        unsigned int v = (static_cast<unsigned int>(raw[2 * i]) << 8) | raw[2 * i + 1];
        outputF[i] = static_cast<double>(v >> 4);
    }
}

// ---- streaming commands --------------------------------------------------------

int get_sleep_time_for_shutter_speed(int iShutterSpeed) {
    // In 32 bits; an absurd shutter speed wraps rather than overflows.
    int t = static_cast<int>(static_cast<unsigned int>(iShutterSpeed) * 912u + 160u);
    int x = static_cast<int>(std::ceil(t / 5000.0 * 3.0));
    return x < g_iSleepTime ? g_iSleepTime : x;
}

int get_current_shutter_speed() {
    return 1;  // reserved
}

int acquire_frame_data_bulk(int iCommand, unsigned int iDeviceId) {
    int iPauseMs = get_sleep_time_for_shutter_speed(g_iCurShutterSpeed);
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    if (handle == nullptr) return 0;
    libusb_control_transfer(handle, kStreamRequestType, static_cast<uint8_t>(iCommand), 0,
                            kStreamInterfaceIndex, nullptr, 0, kStreamTimeoutMs);
    // The firmware needs the time of at least one exposure to switch.
    usleep(static_cast<useconds_t>(iPauseMs) * 1000);
    return 0;
}

void start_frame_streaming(unsigned int iDeviceId) {
    // A stop first, so that the firmware starts a fresh run.
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_START_STREAMING, iDeviceId);
}

void stop_frame_streaming(unsigned int iDeviceId) {
    // Repeated, since a stop sent while a frame is on its way can be missed.
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
    usleep(kStopRepeatPauseUs);
    acquire_frame_data_bulk(ORU_CMD_STOP_STREAMING, iDeviceId);
}

int acquire_frame_data_control(int iCommand, unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    int count = 0;
    int iPauseMs = get_sleep_time_for_shutter_speed(g_iCurShutterSpeed);
    unsigned char buffer[ORU_FRAME_BYTES];
    while (!stopFlag && count < iCurrAvgNum) {
        std::memset(buffer, 0, sizeof buffer);
        if (handle != nullptr) {
            libusb_control_transfer(handle, kControlReadRequestType, static_cast<uint8_t>(iCommand),
                                    kControlReadAdcRange, kStreamInterfaceIndex, buffer,
                                    ORU_FRAME_BYTES, kStreamTimeoutMs);
        }
        usleep(static_cast<useconds_t>(iPauseMs) * 1000);
        if (count == 0 || count == iCurrAvgNum - 1) {
            oru_log(kLogNormal, "Received data Count = %d\n", count);
            oru_log(kLogNormal, "===>>>> curent count : %d\n", count);
        }
        ++count;
        {
            std::lock_guard<std::mutex> lk(exit_cond_lock);
            if (static_cast<int>(frameDataQueue.size()) < iCurrAvgNum) {
                std::vector<int> frame(ORU_NUM_FILTERS, 0);
                for (int i = 0; i < ORU_NUM_FILTERS; ++i) frame[i] = decode_raw_sample(buffer, i);
                frameDataQueue.push_back(std::move(frame));
            }
        }
        std::memset(buffer, 0, sizeof buffer);
    }
    return 1;
}

int set_frame_data_acq_mode(unsigned int /*iAcqMode*/, unsigned int iDeviceId) {
    auto command = [iDeviceId](int iCommand, int wValue) {
        unsigned char uc = do_control_transfer(iCommand, wValue, iDeviceId);
        usleep(static_cast<useconds_t>(g_iSleepTime) * 1000);
        return uc;
    };
    for (int iTry = 0; iTry < 2; ++iTry) {
        command(kCmdBlankTimeUpper, 0);
        command(kCmdBlankTimeLower, kAcqBlankTime);
        unsigned char ucUpper = command(kCmdReadBlankTimeUpper, 0);
        unsigned char ucLower = command(kCmdReadBlankTimeLower, 0);
        if (ucUpper == 0 && ucLower == kAcqBlankTime) break;  // one retry, then accept
    }
    return 1;
}

double acquire_frame_data(double* /*frame*/, int /*num*/, unsigned int /*iDeviceId*/) {
    return 0.0;  // reserved
}

int acquire_frame_data_2048(char* /*frame*/, unsigned int /*iDeviceId*/) {
    return 1;  // reserved
}
