// The per-sensor bulk transfers and their completion callback, the libusb
// event thread that runs the callbacks, and its end.
#include "efm32com/oru_device_interface_stm_frames.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_usb.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "stream/oru_frame_stream.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

constexpr int kThrownFramesInMode3 = 2;
constexpr int kAcqModeSingleShotDiscard = 3;
// How long tear-down waits for a cancelled transfer to come back.
constexpr std::chrono::milliseconds kCancelWait{1000};
constexpr std::chrono::milliseconds kCancelPollSlice{20};

// Bookkeeping of the bulk transfers made by alloc_transfer_bulk_l, so that
// tear-down can cancel and free them. Guarded by g_bulkLock; the callback
// reads and updates it on the event thread.
struct BulkTransferSlot {
    unsigned int iDeviceId = 0;
    unsigned char* pBuffer = nullptr;
    bool bInFlight = false;         // submitted, its callback has not ended it
    bool bCancelRequested = false;  // tear-down asked for its cancellation
    bool bAbandoned = false;        // tear-down gave up waiting; the callback frees it
    unsigned int nSubmissions = 0;  // lets tear-down see a resubmission after its cancel
};
std::mutex g_bulkLock;
std::condition_variable g_bulkCond;
std::map<libusb_transfer*, BulkTransferSlot> g_bulkSlots;

// True from the start of the event thread until its loop has ended.
std::atomic<bool> g_bEventLoopRunning{false};

// The sensor a bulk transfer belongs to, or -1 when it is not one of ours.
long sensor_of(libusb_transfer* transfer) {
    std::lock_guard<std::mutex> lk(g_bulkLock);
    auto it = g_bulkSlots.find(transfer);
    return it == g_bulkSlots.end() ? -1 : static_cast<long>(it->second.iDeviceId);
}

// A sensor whose transfer ended in error is not resubmitted to; a vanished
// device is marked removed, anything else failed.
void mark_transfer_fault(long iSensor, int status) {
    if (iSensor < 0) return;
    if (status == LIBUSB_TRANSFER_NO_DEVICE)
        mark_sensor_removed(static_cast<unsigned int>(iSensor));
    else
        mark_sensor_failed(static_cast<unsigned int>(iSensor));
}

bool cancel_was_requested(libusb_transfer* transfer) {
    std::lock_guard<std::mutex> lk(g_bulkLock);
    auto it = g_bulkSlots.find(transfer);
    return it != g_bulkSlots.end() && it->second.bCancelRequested;
}

// Records that the transfer is no longer submitted. Frees it when tear-down
// has given up on it, so the caller must not touch it afterwards. Returns
// whether its cancellation had been requested.
bool end_transfer(libusb_transfer* transfer) {
    bool bRequested = false;
    unsigned char* pAbandonedBuffer = nullptr;
    bool bAbandoned = false;
    {
        std::lock_guard<std::mutex> lk(g_bulkLock);
        auto it = g_bulkSlots.find(transfer);
        if (it == g_bulkSlots.end()) return false;
        bRequested = it->second.bCancelRequested;
        it->second.bInFlight = false;
        bAbandoned = it->second.bAbandoned;
        if (bAbandoned) {
            pAbandonedBuffer = it->second.pBuffer;
            g_bulkSlots.erase(it);
        }
    }
    g_bulkCond.notify_all();
    if (bAbandoned) {
        libusb_free_transfer(transfer);
        delete[] pAbandonedBuffer;
    }
    return bRequested;
}

// Queues the frame in the transfer buffer if the current request still wants
// it; the first frames of a mode-3 request are counted but thrown away.
void take_frame(unsigned char* buffer) {
    int numOfThrow = iCurrAcqMode == kAcqModeSingleShotDiscard ? kThrownFramesInMode3 : 0;
    std::lock_guard<std::mutex> lk(exit_cond_lock);
    int iWanted = iCurrAvgNum;
    if (iWanted + numOfThrow <= g_count) return;  // enough counted: dropped untouched
    if (g_count >= numOfThrow && queued_frame_count() < iWanted) {
        int frame[ORU_NUM_FILTERS];
        for (int i = 0; i < ORU_NUM_FILTERS; ++i) frame[i] = decode_raw_sample(buffer, i);
        queue_frame(frame);
    }
    // A short next transfer must not leave stale samples behind.
    std::memset(buffer, 0, ORU_FRAME_BYTES);
    if (queued_frame_count() == iWanted || queued_frame_lost()) exit_cond.notify_all();
    ++g_count;
}

libusb_transfer* new_bulk_transfer(libusb_device_handle* handle, unsigned char* buffer,
                                          int length, int num_iso_pack) {
    libusb_transfer* transfer = libusb_alloc_transfer(num_iso_pack);
    if (transfer == nullptr) return nullptr;
    libusb_fill_bulk_transfer(transfer, handle, ORU_BULK_ENDPOINT, buffer, length, cb_bulkdata,
                              nullptr, 0);
    return transfer;
}

// Waits until the transfer's callback has ended it. The cancellation is
// issued again only if the callback resubmitted the transfer after it (the
// two can cross); events are handled here when the event thread is gone.
bool wait_until_ended(libusb_transfer* transfer) {
    auto deadline = std::chrono::steady_clock::now() + kCancelWait;
    bool bCancelled = false;
    unsigned int nCancelledSubmission = 0;
    for (;;) {
        unsigned int nSubmission;
        {
            std::lock_guard<std::mutex> lk(g_bulkLock);
            const BulkTransferSlot& slot = g_bulkSlots.at(transfer);
            if (!slot.bInFlight) return true;
            nSubmission = slot.nSubmissions;
        }
        if (std::chrono::steady_clock::now() >= deadline) return false;
        if (!bCancelled || nSubmission != nCancelledSubmission) {
            libusb_cancel_transfer(transfer);
            bCancelled = true;
            nCancelledSubmission = nSubmission;
        }
        if (g_bEventLoopRunning) {
            std::unique_lock<std::mutex> lk(g_bulkLock);
            g_bulkCond.wait_for(lk, kCancelPollSlice,
                                [transfer] { return !g_bulkSlots.at(transfer).bInFlight; });
        } else {
            timeval tv{0, static_cast<suseconds_t>(kCancelPollSlice.count() * 1000)};
            libusb_handle_events_timeout_completed(nullptr, &tv, nullptr);
        }
    }
}

}  // namespace

// ---- bulk transfer and event loop ---------------------------------------------

void LIBUSB_CALL cb_bulkdata(struct libusb_transfer* transfer) {
    const long iSensor = sensor_of(transfer);
    if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
        int status = transfer->status;
        bool bRequested = end_transfer(transfer);
        // Tear-down cancelled it: nothing went wrong.
        if (status == LIBUSB_TRANSFER_CANCELLED && bRequested) return;
        oru_log_stderr(kLogError, "bulk data transfer status %d?\n", status);
        // Only this sensor stops: the loop goes on serving the others.
        mark_transfer_fault(iSensor, status);
        return;
    }
    // A streaming sensor's frames belong to its stream alone.
    if (iSensor < 0 || !oru_stream::deliver(static_cast<unsigned int>(iSensor), transfer->buffer))
        take_frame(transfer->buffer);
    else
        std::memset(transfer->buffer, 0, ORU_FRAME_BYTES);
    if (cancel_was_requested(transfer)) {
        end_transfer(transfer);
        return;
    }
    if (libusb_submit_transfer(transfer) < 0) {
        end_transfer(transfer);
        oru_log(kLogError, "===>>>> libusb_submit_transfer fail!!!\n");
        mark_transfer_fault(iSensor, LIBUSB_TRANSFER_ERROR);
        return;
    }
    std::lock_guard<std::mutex> lk(g_bulkLock);
    auto it = g_bulkSlots.find(transfer);
    if (it != g_bulkSlots.end()) ++it->second.nSubmissions;
}

int alloc_transfer_bulk_l(int num_iso_pack, int length, unsigned char* /*buffer*/,
                          unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    if (handle == nullptr) return -1;  // a failed claim: nothing to stream from
    // The callback always decodes and zeroes 2048 bytes, whatever the length.
    size_t nBytes = length > ORU_FRAME_BYTES ? static_cast<size_t>(length) : ORU_FRAME_BYTES;
    unsigned char* pBuffer = new unsigned char[nBytes];
    std::memset(pBuffer, 0, ORU_FRAME_BYTES);
    libusb_transfer* transfer = new_bulk_transfer(handle, pBuffer, length, num_iso_pack);
    if (transfer == nullptr) {
        delete[] pBuffer;
        return -1;
    }
    {
        std::lock_guard<std::mutex> lk(g_bulkLock);
        BulkTransferSlot& slot = g_bulkSlots[transfer];
        slot.iDeviceId = iDeviceId;
        slot.pBuffer = pBuffer;
        slot.bInFlight = true;  // before submitting: the callback may run at once
        slot.nSubmissions = 1;
    }
    if (libusb_submit_transfer(transfer) < 0) {
        std::lock_guard<std::mutex> lk(g_bulkLock);
        g_bulkSlots[transfer].bInFlight = false;
    }
    return 0;
}

int alloc_transfer_bulk(unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    if (handle == nullptr) return -1;
    std::memset(framebuf2048, 0, sizeof framebuf2048);
    gTransfer_in = new_bulk_transfer(handle, framebuf2048, ORU_FRAME_BYTES, 0);
    if (gTransfer_in == nullptr) return -1;
    libusb_submit_transfer(gTransfer_in);
    return 0;
}

int release_transfer_bulk(unsigned int iDeviceId) {
    std::vector<libusb_transfer*> transfers;
    {
        std::lock_guard<std::mutex> lk(g_bulkLock);
        for (auto& [transfer, slot] : g_bulkSlots) {
            if (slot.iDeviceId != iDeviceId || slot.bAbandoned) continue;
            slot.bCancelRequested = true;
            transfers.push_back(transfer);
        }
    }
    for (libusb_transfer* transfer : transfers) {
        bool bEnded = wait_until_ended(transfer);
        unsigned char* pBuffer = nullptr;
        {
            std::lock_guard<std::mutex> lk(g_bulkLock);
            auto it = g_bulkSlots.find(transfer);
            if (!bEnded) {
                // Still owned by libusb: freeing it now could let a late
                // callback touch freed memory, so the callback frees it.
                it->second.bAbandoned = true;
                continue;
            }
            pBuffer = it->second.pBuffer;
            g_bulkSlots.erase(it);
        }
        libusb_free_transfer(transfer);
        delete[] pBuffer;
    }
    return transfers.empty() ? 0 : 1;
}

void* usbEventLoop_thread_main(void* /*arg*/) {
    while (do_exit == 0) {
        timeval tv{1, 0};
        if (libusb_handle_events_timeout(nullptr, &tv) < 0) {
            request_exit(2);
            break;
        }
    }
    g_bEventLoopRunning = false;
    return nullptr;
}

void start_usb_event_loop(std::thread& thread) {
    do_exit = 0;
    g_bEventLoopRunning = true;  // before the thread exists, so no caller sees a gap
    thread = std::thread(usbEventLoop_thread_main, nullptr);
}

bool usb_event_loop_running() {
    return g_bEventLoopRunning;
}

void request_exit(int code) {
    {
        // Under the lock, so that a consumer between its check and its wait
        // cannot miss the signal.
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        do_exit = code;
    }
    exit_cond.notify_all();
}
