// One record per open sensor for everything the library keeps about a sensor
// beside the process-wide state of the device layer (the handle map, the one
// shutter speed that drives the pauses, the frame queue and the moving-average
// ring stay where they are): its USB device and health, the shutter speed last
// written to it, its bulk transfer slots, where its stream's frames go, and
// the lock that serialises the calls made on it.
//
// Life cycle: the table owns the records, one per sensor index below
// kMaxOpenSensors, for the whole life of the process; nothing frees one. So a
// bulk transfer may carry its record's address as user_data and a reader may
// keep it without a reference count. Bring-up and tear-down only change the
// fields, each through the one file that writes it.
//
// Lock order, for the whole library (a lock is only ever taken while holding
// locks above it):
//   1. g_apiLock          module state of the exported functions (API files)
//   2. g_requestLock      the requests on the specified path, one at a time
//   3. callLock           of one sensor; of several, by rising index
//   4. leaves, never held together: the handle map's lock, exit_cond_lock,
//      bulkLock, deviceLock, sinkLock, saturationLock, a ring's lock, the
//      log's lock.
// Locks 2 and 3 are never waited for while g_apiLock is held (see
// oru_device_api_lock.h), so one sensor's long call never holds up another's.
#ifndef ORU_SENSOR_RECORD_H
#define ORU_SENSOR_RECORD_H

#include <libusb.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace oru_sensor {

// The most sensors the library keeps open at once (the API's table, the
// streams, the health and the per-sensor shutter speeds all end here).
constexpr unsigned int kMaxOpenSensors = 10;

// Filters of a frame, as the records keep them.
constexpr std::size_t kRecordFilters = 1024;

// Where a streaming sensor's frames go instead of the request path. The bulk
// callback (event thread) calls push; a fault of the sensor calls fail.
class FrameSink {
public:
    virtual ~FrameSink() = default;
    virtual void push(const unsigned char* raw) = 0;
    virtual void fail() = 0;
};

// One bulk transfer of the sensor, from allocation to free.
struct SBulkSlot {
    libusb_transfer* pTransfer = nullptr;
    unsigned char* pBuffer = nullptr;
    bool bInFlight = false;  // submitted, its callback has not ended it
    bool bCancelRequested = false;  // tear-down asked for its cancellation
    bool bAbandoned = false;  // tear-down gave up waiting; the callback frees it
    unsigned int nSubmissions = 0;  // lets tear-down see a resubmission after its cancel
};

struct SSensorRecord {
    explicit SSensorRecord(unsigned int index) : iIndex(index) {}
    const unsigned int iIndex;

    // Held by every call on this sensor that talks to it or changes it:
    // requests addressed to it, stream start and stop, reconnect, bring-up
    // and tear-down. Not by stream reads or state queries.
    std::recursive_mutex callLock;

    // Written by oru_device_interface_sensor_state.cpp only. iHealth: by
    // bring-up (caller thread) and the event thread's callbacks, atomic.
    // pDevice: at bring-up, read by the hotplug callback, under deviceLock.
    std::atomic<int> iHealth{0};
    std::mutex deviceLock;
    libusb_device* pDevice = nullptr;

    // Written by oru_device_interface_device_settings.cpp only, by the
    // caller thread that sets it; 0 until then. Atomic, no lock.
    std::atomic<int> iShutterSpeed{0};

    // Written by oru_device_interface_stm_bulk.cpp only: by the caller
    // thread (allocation, release) and the event thread (the callback),
    // under bulkLock; bulkCond wakes a release waiting for a callback.
    std::mutex bulkLock;
    std::condition_variable bulkCond;
    std::vector<SBulkSlot> bulkSlots;

    // Written by this record's file only (set_sink, clear_sink) from the
    // caller threads that start and stop a stream, read by the bulk callback,
    // under sinkLock. A caller that took the sink keeps it alive by itself.
    std::mutex sinkLock;
    std::shared_ptr<FrameSink> sink;

    // The last request for filter data on this sensor: per filter whether
    // any of its frames saturated it, and whether that request succeeded
    // (false: none yet, or it failed). Written by this record's file only
    // (set_request_saturation, forget_request_saturation), on the caller
    // thread of the request or of the bring-up; read by any caller; under
    // saturationLock.
    std::mutex saturationLock;
    bool bRequestSaturationKnown = false;
    std::array<unsigned char, kRecordFilters> requestSaturation{};
};

// The record of a sensor index, or null at or beyond kMaxOpenSensors.
SSensorRecord* sensor_record(unsigned int iDeviceId);

// The frame sink of the sensor, or null (no stream on).
std::shared_ptr<FrameSink> sink_of(SSensorRecord& record);
// Sets the sink; false when one is set already.
bool set_sink(SSensorRecord& record, std::shared_ptr<FrameSink> sink);
// Takes the sink away and gives it back (null when there was none).
std::shared_ptr<FrameSink> clear_sink(SSensorRecord& record);
// The bulk callback's frame: true when a sink took it.
bool deliver_to_sink(SSensorRecord& record, const unsigned char* raw);
// A fault of the sensor: its sink, if any, fails (and keeps its place).
void fail_sink(SSensorRecord& record);

// The saturation flags (kRecordFilters) of the request that just succeeded.
void set_request_saturation(SSensorRecord& record, const unsigned char* mask);
// A request began (or failed): no flags are known until one succeeds.
void forget_request_saturation(SSensorRecord& record);
// Copies the flags of the last request into mask and returns true, or
// returns false (mask untouched) when none is known.
bool request_saturation(SSensorRecord& record, unsigned char* mask);

}  // namespace oru_sensor

#endif  // ORU_SENSOR_RECORD_H
