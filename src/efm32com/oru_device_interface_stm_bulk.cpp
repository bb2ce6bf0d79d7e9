// The per-sensor bulk transfers: their allocation, their completion callback
// (run by the event thread) and their release at tear-down.
#include "efm32com/oru_device_interface_stm_bulk.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_usb.h"
#include "sensors/oru_sensor_record.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

// Sensor index -> a bulk transfer was made for it. Written only here, by the
// caller thread (bring-up's open_bulk_transfer_table and alloc_transfer_bulk_l,
// tear-down's release_transfer_bulk); read by the bring-up. No lock: the event
// thread never touches it.
std::map<int, bool> allocTransferBulkMap;
// The single-transfer variant (alloc_transfer_bulk); kept, not used by
// bring-up. Written only here, caller thread.
libusb_transfer* gTransfer_in = nullptr;
unsigned char framebuf2048[ORU_FRAME_BYTES];

namespace {

using oru_sensor::SBulkSlot;
using oru_sensor::SSensorRecord;

// How long tear-down waits for a cancelled transfer to come back.
constexpr std::chrono::milliseconds kCancelWait{1000};
constexpr std::chrono::milliseconds kCancelPollSlice{20};

// The slots live in each sensor's record (bulkSlots, under its bulkLock);
// every transfer carries its record as user_data, so the callback finds its
// sensor and slot without a look-up in anything shared by all sensors.
SSensorRecord& record_of(libusb_transfer* transfer) { return *static_cast<SSensorRecord*>(transfer->user_data); }

// With record.bulkLock held.
SBulkSlot* slot_of(SSensorRecord& record, libusb_transfer* transfer) {
    for (SBulkSlot& slot : record.bulkSlots)
        if (slot.pTransfer == transfer) return &slot;
    return nullptr;
}

bool cancel_requested(libusb_transfer* transfer) {
    SSensorRecord& record = record_of(transfer);
    std::lock_guard<std::mutex> lk(record.bulkLock);
    const SBulkSlot* slot = slot_of(record, transfer);
    return slot != nullptr && slot->bCancelRequested;
}

// A sensor whose transfer ended in error is not resubmitted to; a vanished
// device is marked removed, anything else failed.
void mark_transfer_fault(unsigned int iSensor, int status) {
    if (status == LIBUSB_TRANSFER_NO_DEVICE)
        mark_sensor_removed(iSensor);
    else
        mark_sensor_failed(iSensor);
}

// Records that the transfer is no longer submitted. Frees it when tear-down
// has given up on it, so the caller must not touch it afterwards. Returns
// whether its cancellation had been requested.
bool end_transfer(libusb_transfer* transfer) {
    SSensorRecord& record = record_of(transfer);
    bool bRequested = false;
    unsigned char* pAbandonedBuffer = nullptr;
    bool bAbandoned = false;
    {
        std::lock_guard<std::mutex> lk(record.bulkLock);
        SBulkSlot* slot = slot_of(record, transfer);
        if (slot == nullptr) return false;
        bRequested = slot->bCancelRequested;
        slot->bInFlight = false;
        bAbandoned = slot->bAbandoned;
        if (bAbandoned) {
            pAbandonedBuffer = slot->pBuffer;
            record.bulkSlots.erase(record.bulkSlots.begin() + (slot - record.bulkSlots.data()));
        }
    }
    record.bulkCond.notify_all();
    if (bAbandoned) {
        libusb_free_transfer(transfer);
        delete[] pAbandonedBuffer;
    }
    return bRequested;
}

// Everything a completed frame of a sensor is used for: its stream, when one
// is on (the frames are then the stream's alone), else the pending request.
// Returns whether the frame was taken or counted, so that the transfer buffer
// is zeroed; a frame not counted is left untouched.
bool receive_frame(SSensorRecord& record, const unsigned char* raw) {
    if (oru_sensor::deliver_to_sink(record, raw)) return true;
    uint16_t samples[ORU_NUM_FILTERS];
    decode_frame(raw, samples);
    return take_bulk_frame(samples);
}

libusb_transfer* new_bulk_transfer(libusb_device_handle* handle, unsigned char* buffer, int length, int num_iso_pack,
                                   void* pUserData) {
    libusb_transfer* transfer = libusb_alloc_transfer(num_iso_pack);
    if (transfer == nullptr) return nullptr;
    libusb_fill_bulk_transfer(transfer, handle, ORU_BULK_ENDPOINT, buffer, length, cb_bulkdata, pUserData, 0);
    return transfer;
}

// Waits until the transfer's callback has ended it. The cancellation is
// issued again only if the callback resubmitted the transfer after it (the
// two can cross); events are handled here when the event thread is gone.
bool wait_until_ended(SSensorRecord& record, libusb_transfer* transfer) {
    auto deadline = std::chrono::steady_clock::now() + kCancelWait;
    bool bCancelled = false;
    unsigned int nCancelledSubmission = 0;
    auto ended = [&record, transfer] { return !slot_of(record, transfer)->bInFlight; };
    for (;;) {
        unsigned int nSubmission;
        {
            std::lock_guard<std::mutex> lk(record.bulkLock);
            if (ended()) return true;
            nSubmission = slot_of(record, transfer)->nSubmissions;
        }
        if (std::chrono::steady_clock::now() >= deadline) return false;
        if (!bCancelled || nSubmission != nCancelledSubmission) {
            libusb_cancel_transfer(transfer);
            bCancelled = true;
            nCancelledSubmission = nSubmission;
        }
        if (usb_event_loop_running()) {
            std::unique_lock<std::mutex> lk(record.bulkLock);
            record.bulkCond.wait_for(lk, kCancelPollSlice, ended);
        } else {
            timeval tv{0, static_cast<suseconds_t>(kCancelPollSlice.count() * 1000)};
            libusb_handle_events_timeout_completed(nullptr, &tv, nullptr);
        }
    }
}

}  // namespace

// ---- bulk transfer and event loop ---------------------------------------------

namespace {

void complete_bulk_transfer(libusb_transfer* transfer) {
    SSensorRecord& record = record_of(transfer);
    if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
        int status = transfer->status;
        bool bRequested = end_transfer(transfer);
        // Tear-down cancelled it: nothing went wrong.
        if (status == LIBUSB_TRANSFER_CANCELLED && bRequested) return;
        oru_log_stderr(kLogError, "bulk data transfer status %d?\n", status);
        // Only this sensor stops: the loop goes on serving the others.
        mark_transfer_fault(record.iIndex, status);
        return;
    }
    // No exception may leave a libusb callback: a frame that cannot be taken
    // fails the request, and the stream goes on.
    bool bCancelRequested = false;
    try {
        // A short next transfer must not leave stale samples behind.
        if (receive_frame(record, transfer->buffer)) std::memset(transfer->buffer, 0, ORU_FRAME_BYTES);
        bCancelRequested = cancel_requested(transfer);
    } catch (...) {
        fail_frame_request();
    }
    if (bCancelRequested) {
        end_transfer(transfer);
        return;
    }
    if (const int iSubmit = libusb_submit_transfer(transfer); iSubmit < 0) {
        end_transfer(transfer);
        oru_log(kLogError, "===>>>> libusb_submit_transfer fail!!!\n");
        // Refused because the device is gone: the same as a removal.
        mark_transfer_fault(record.iIndex,
                            iSubmit == LIBUSB_ERROR_NO_DEVICE ? LIBUSB_TRANSFER_NO_DEVICE : LIBUSB_TRANSFER_ERROR);
        return;
    }
    std::lock_guard<std::mutex> lk(record.bulkLock);
    if (SBulkSlot* slot = slot_of(record, transfer)) ++slot->nSubmissions;
}

}  // namespace

void LIBUSB_CALL cb_bulkdata(struct libusb_transfer* transfer) {
    try {
        complete_bulk_transfer(transfer);
    } catch (...) {
        fail_frame_request();
    }
}

int alloc_transfer_bulk_l(int num_iso_pack, int length, unsigned char* /*buffer*/, unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    SSensorRecord* record = oru_sensor::sensor_record(iDeviceId);
    // A failed claim, or an index beyond the open-sensor limit: nothing to stream from.
    if (handle == nullptr || record == nullptr) return -1;
    // Marked even if the allocation below fails: it is not tried again.
    allocTransferBulkMap[static_cast<int>(iDeviceId)] = true;
    // The callback always decodes and zeroes 2048 bytes, whatever the length.
    size_t nBytes = length > ORU_FRAME_BYTES ? static_cast<size_t>(length) : ORU_FRAME_BYTES;
    unsigned char* pBuffer = new unsigned char[nBytes];
    std::memset(pBuffer, 0, ORU_FRAME_BYTES);
    libusb_transfer* transfer = new_bulk_transfer(handle, pBuffer, length, num_iso_pack, record);
    if (transfer == nullptr) {
        delete[] pBuffer;
        return -1;
    }
    {
        std::lock_guard<std::mutex> lk(record->bulkLock);
        SBulkSlot slot;
        slot.pTransfer = transfer;
        slot.pBuffer = pBuffer;
        slot.bInFlight = true;  // before submitting: the callback may run at once
        slot.nSubmissions = 1;
        record->bulkSlots.push_back(slot);
    }
    const int iSubmitted = libusb_submit_transfer(transfer);
    if (iSubmitted < 0) {
        std::lock_guard<std::mutex> lk(record->bulkLock);
        slot_of(*record, transfer)->bInFlight = false;
    }
    // Unplugged while it was brought up: no completion will ever say so.
    if (iSubmitted == LIBUSB_ERROR_NO_DEVICE) mark_sensor_removed(iDeviceId);
    return 0;
}

int alloc_transfer_bulk(unsigned int iDeviceId) {
    libusb_device_handle* handle = find_device_handle(iDeviceId);
    SSensorRecord* record = oru_sensor::sensor_record(iDeviceId);
    if (handle == nullptr || record == nullptr) return -1;
    std::memset(framebuf2048, 0, sizeof framebuf2048);
    gTransfer_in = new_bulk_transfer(handle, framebuf2048, ORU_FRAME_BYTES, 0, record);
    if (gTransfer_in == nullptr) return -1;
    libusb_submit_transfer(gTransfer_in);
    return 0;
}

int release_transfer_bulk(unsigned int iDeviceId) {
    auto mark = allocTransferBulkMap.find(static_cast<int>(iDeviceId));
    if (mark != allocTransferBulkMap.end()) mark->second = false;
    SSensorRecord* record = oru_sensor::sensor_record(iDeviceId);
    if (record == nullptr) return 0;
    std::vector<libusb_transfer*> transfers;
    {
        std::lock_guard<std::mutex> lk(record->bulkLock);
        for (SBulkSlot& slot : record->bulkSlots) {
            if (slot.bAbandoned) continue;
            slot.bCancelRequested = true;
            transfers.push_back(slot.pTransfer);
        }
    }
    for (libusb_transfer* transfer : transfers) {
        bool bEnded = wait_until_ended(*record, transfer);
        unsigned char* pBuffer = nullptr;
        {
            std::lock_guard<std::mutex> lk(record->bulkLock);
            SBulkSlot* slot = slot_of(*record, transfer);
            if (!bEnded) {
                // Still owned by libusb: freeing it now could let a late
                // callback touch freed memory, so the callback frees it.
                slot->bAbandoned = true;
                continue;
            }
            pBuffer = slot->pBuffer;
            record->bulkSlots.erase(record->bulkSlots.begin() + (slot - record->bulkSlots.data()));
        }
        libusb_free_transfer(transfer);
        delete[] pBuffer;
    }
    return transfers.empty() ? 0 : 1;
}

void open_bulk_transfer_table(int nSensors) {
    for (int i = 0; i < nSensors; ++i) allocTransferBulkMap.insert({i, false});
}

bool bulk_transfer_made(unsigned int iDeviceId) {
    auto it = allocTransferBulkMap.find(static_cast<int>(iDeviceId));
    return it != allocTransferBulkMap.end() && it->second;
}

void reset_bulk_transfers() { allocTransferBulkMap.clear(); }
