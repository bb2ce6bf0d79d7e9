// The ordered observation log behind vsensor::events() and transcript().
#ifndef VSENSOR_EVENT_LOG_H
#define VSENSOR_EVENT_LOG_H

#include <cstdint>
#include <string>

#include "vsensor/vsensor.h"

namespace vsensor::detail {

void log_control(int dev, uint8_t bmRequestType, uint8_t bRequest, uint16_t wValue, uint16_t wIndex, uint16_t wLength,
                 unsigned timeout, int status);
void log_bulk(int dev, int status);
void log_stream_start(int dev);  // starts a new run for bulk merging
void log_pause(uint64_t us, uint64_t at_us);
void log_lifecycle(int dev, const std::string& what, int status = 0);
void clear_log();
std::string format_event(const Event& e);  // "" for events the transcript skips
// Live trace of each event to stderr (ORU_VSENSOR_TRACE=1).
void set_trace(bool on);

}  // namespace vsensor::detail

#endif
