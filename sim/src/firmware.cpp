#include "firmware.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "descriptors.h"
#include "event_log.h"
#include "frame_model.h"

namespace vsensor::detail {

namespace {

constexpr uint8_t kStartStreaming = 70;
constexpr uint8_t kStopStreaming = 71;
constexpr uint8_t kLedState = 9;
constexpr uint8_t kIdentity = 1;
constexpr uint8_t kProbe = 255;

bool is_write_code(int code) {
    switch (code) {
    case 3:
    case 5:
    case 19:
    case 20:
    case 33:
    case 34:
    case 37:
    case 54:
    case 57:
    case 80:
    case 81:
        return true;
    default:
        return false;
    }
}

// Read codes answer the byte last written through their write code.
int read_source(int code) {
    switch (code) {
    case 4:
        return 5;
    case 36:
        return 37;
    case 38:
        return 33;
    case 39:
        return 34;
    case 35:
        return 19;
    case 40:
        return 20;
    case 53:
        return 54;
    default:
        return -1;
    }
}

bool is_frame_code(int code) { return code == 2 || code == 11 || code == 27; }

int reply(const std::vector<uint8_t>& bytes, const Setup& s, unsigned char* data) {
    const size_t n = std::min<size_t>(bytes.size(), s.wLength);
    if (n && data) std::memcpy(data, bytes.data(), n);
    return static_cast<int>(n);
}

std::vector<uint8_t> sensor_in_reply(Device& d, const Setup& s) {
    const uint8_t value = static_cast<uint8_t>(s.wValue & 0xFF);
    if (s.bRequest == kIdentity) return d.identity_bytes;
    if (s.wLength == kFrameBytes || is_frame_code(s.bRequest)) {
        uint16_t values[kFilters];
        render_frame(d, values);
        std::vector<uint8_t> frame(kFrameBytes);
        encode_frame_into(values, frame.data());
        return frame;
    }
    if (is_write_code(s.bRequest)) {
        d.regs[s.bRequest] = value;
        return {value};
    }
    if (s.bRequest == kProbe) return {value};
    const int src = read_source(s.bRequest);
    if (src >= 0) return {d.regs[static_cast<size_t>(src)]};
    return std::vector<uint8_t>(s.wLength, 0);
}

int sensor_in(Device& d, const Setup& s, unsigned char* data) {
    std::vector<uint8_t> bytes = sensor_in_reply(d, s);
    if (d.faults & kFaultNoEcho) std::fill(bytes.begin(), bytes.end(), 0);
    return reply(bytes, s, data);
}

void start_streaming(Device& d) {
    if (d.faults & kFaultUnplugOnStream) {
        unplug_locked(d);
        return;
    }
    d.streaming = true;
    d.frame_no = 0;
    ++d.run_no;
    d.next_due = SteadyClock::now() + frame_period(d);
    log_stream_start(d.pos);
}

int sensor_out(Device& d, const Setup& s) {
    if (s.bRequest == kStartStreaming && s.wIndex == 1)
        start_streaming(d);
    else if (s.bRequest == kStopStreaming && s.wIndex == 1)
        d.streaming = false;
    else if (s.bRequest == kLedState)
        d.led_state = s.wValue;
    return s.wLength;
}

int standard_request(Device& d, const Setup& s, unsigned char* data) {
    const bool in = s.bmRequestType & LIBUSB_ENDPOINT_IN;
    switch (s.bRequest) {
    case LIBUSB_REQUEST_GET_DESCRIPTOR:
        if ((s.wValue >> 8) == LIBUSB_DT_DEVICE) return reply(raw_device_descriptor(), s, data);
        if ((s.wValue >> 8) == LIBUSB_DT_CONFIG) return reply(raw_config_descriptor(), s, data);
        return LIBUSB_ERROR_PIPE;
    case LIBUSB_REQUEST_GET_STATUS:
        return reply({0, 0}, s, data);
    case LIBUSB_REQUEST_GET_CONFIGURATION:
        return reply({static_cast<uint8_t>(d.configuration)}, s, data);
    case LIBUSB_REQUEST_SET_CONFIGURATION:
        d.configuration = s.wValue;
        return 0;
    default:
        return in ? reply({}, s, data) : 0;
    }
}

}  // namespace

bool switches_streaming(const Setup& s) {
    return !(s.bmRequestType & LIBUSB_ENDPOINT_IN) && (s.bRequest == kStartStreaming || s.bRequest == kStopStreaming);
}

int firmware_control(Device& d, const Setup& s, unsigned char* data) {
    if (d.faults & kFaultControlTimeout) return LIBUSB_ERROR_TIMEOUT;
    if ((s.bmRequestType & 0x60) == LIBUSB_REQUEST_TYPE_STANDARD) return standard_request(d, s, data);
    const bool in = s.bmRequestType & LIBUSB_ENDPOINT_IN;
    if (d.led_driver) {
        // The LED driver only understands the LED state request.
        if (!in && s.bRequest == kLedState) {
            d.led_state = s.wValue;
            return s.wLength;
        }
        return LIBUSB_ERROR_PIPE;
    }
    return in ? sensor_in(d, s, data) : sensor_out(d, s);
}

}  // namespace vsensor::detail
