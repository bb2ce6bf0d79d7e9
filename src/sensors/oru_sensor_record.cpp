// The table of sensor records and the frame sink of each.
#include "sensors/oru_sensor_record.h"

#include <algorithm>
#include <array>
#include <utility>

namespace oru_sensor {

namespace {

template <std::size_t... I>
std::array<SSensorRecord, sizeof...(I)> make_records(std::index_sequence<I...>) {
    return {SSensorRecord(I)...};
}

}  // namespace

SSensorRecord* sensor_record(unsigned int iDeviceId) {
    // Built on first use, never destroyed: a late callback may still touch one.
    static auto* records = new std::array<SSensorRecord, kMaxOpenSensors>{
        make_records(std::make_index_sequence<kMaxOpenSensors>{})};
    return iDeviceId < kMaxOpenSensors ? &(*records)[iDeviceId] : nullptr;
}

std::shared_ptr<FrameSink> sink_of(SSensorRecord& record) {
    std::lock_guard<std::mutex> lk(record.sinkLock);
    return record.sink;
}

bool set_sink(SSensorRecord& record, std::shared_ptr<FrameSink> sink) {
    std::lock_guard<std::mutex> lk(record.sinkLock);
    if (record.sink != nullptr) return false;
    record.sink = std::move(sink);
    return true;
}

std::shared_ptr<FrameSink> clear_sink(SSensorRecord& record) {
    std::lock_guard<std::mutex> lk(record.sinkLock);
    return std::exchange(record.sink, nullptr);
}

bool deliver_to_sink(SSensorRecord& record, const unsigned char* raw) {
    std::shared_ptr<FrameSink> sink = sink_of(record);
    if (sink == nullptr) return false;
    sink->push(raw);
    return true;
}

void fail_sink(SSensorRecord& record) {
    if (std::shared_ptr<FrameSink> sink = sink_of(record)) sink->fail();
}

void set_request_saturation(SSensorRecord& record, const unsigned char* mask) {
    std::lock_guard<std::mutex> lk(record.saturationLock);
    std::copy(mask, mask + kRecordFilters, record.requestSaturation.begin());
    record.bRequestSaturationKnown = true;
}

void forget_request_saturation(SSensorRecord& record) {
    std::lock_guard<std::mutex> lk(record.saturationLock);
    record.bRequestSaturationKnown = false;
}

bool request_saturation(SSensorRecord& record, unsigned char* mask) {
    std::lock_guard<std::mutex> lk(record.saturationLock);
    if (!record.bRequestSaturationKnown) return false;
    std::copy(record.requestSaturation.begin(), record.requestSaturation.end(), mask);
    return true;
}

}  // namespace oru_sensor
