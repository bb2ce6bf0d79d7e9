// Binary Object Store and the descriptors parsed from it. The devices are
// full-speed USB 2.00 devices without a BOS: GET_DESCRIPTOR(BOS) stalls, and
// libusb hands that on as LIBUSB_ERROR_PIPE. The capability parsers work as
// libusb's on whatever capability a caller passes in.
#include <cstdlib>
#include <cstring>

#include "../event_log.h"
#include "../firmware.h"
#include "usb_internal.h"

using namespace vsensor::detail;

namespace {

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

// Checks a device capability as libusb does and allocates the result.
template <typename T>
int parse_capability(const libusb_bos_dev_capability_descriptor* cap, uint8_t type, uint8_t size, T** out) {
    if (!cap || !out || cap->bDevCapabilityType != type) return LIBUSB_ERROR_INVALID_PARAM;
    if (cap->bLength < size) return LIBUSB_ERROR_IO;
    *out = static_cast<T*>(std::calloc(1, sizeof(T)));
    if (!*out) return LIBUSB_ERROR_NO_MEM;
    (*out)->bLength = cap->bLength;
    (*out)->bDescriptorType = cap->bDescriptorType;
    (*out)->bDevCapabilityType = cap->bDevCapabilityType;
    return LIBUSB_SUCCESS;
}

}  // namespace

extern "C" {

int LIBUSB_CALL libusb_get_bos_descriptor(libusb_device_handle* handle, struct libusb_bos_descriptor** bos) {
    if (!handle || !bos) return LIBUSB_ERROR_INVALID_PARAM;
    const Setup s{LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR, LIBUSB_DT_BOS << 8, 0, LIBUSB_DT_BOS_SIZE};
    uint8_t header[LIBUSB_DT_BOS_SIZE] = {};
    std::lock_guard<std::mutex> lk(bus().m);
    Device& d = *handle->device->dev;
    if (d.unplugged) return LIBUSB_ERROR_NO_DEVICE;
    const int r = firmware_control(d, s, header);
    log_control(d.pos, s.bmRequestType, s.bRequest, s.wValue, s.wIndex, s.wLength, 1000, r);
    return r < 0 ? r : LIBUSB_ERROR_IO;  // the firmware has no BOS to give
}

void LIBUSB_CALL libusb_free_bos_descriptor(struct libusb_bos_descriptor* bos) {
    if (!bos) return;
    for (uint8_t i = 0; i < bos->bNumDeviceCaps; ++i) std::free(bos->dev_capability[i]);
    std::free(bos);
}

int LIBUSB_CALL libusb_get_usb_2_0_extension_descriptor(libusb_context*,
                                                        struct libusb_bos_dev_capability_descriptor* cap,
                                                        struct libusb_usb_2_0_extension_descriptor** out) {
    const int r = parse_capability(cap, LIBUSB_BT_USB_2_0_EXTENSION, LIBUSB_BT_USB_2_0_EXTENSION_SIZE, out);
    if (r == LIBUSB_SUCCESS) {
        const uint8_t* p = cap->dev_capability_data;
        (*out)->bmAttributes = static_cast<uint32_t>(p[0] | p[1] << 8 | p[2] << 16 | p[3] << 24);
    }
    return r;
}

void LIBUSB_CALL libusb_free_usb_2_0_extension_descriptor(struct libusb_usb_2_0_extension_descriptor* d) {
    std::free(d);
}

int LIBUSB_CALL
libusb_get_ss_usb_device_capability_descriptor(libusb_context*, struct libusb_bos_dev_capability_descriptor* cap,
                                               struct libusb_ss_usb_device_capability_descriptor** out) {
    const int r =
        parse_capability(cap, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY_SIZE, out);
    if (r == LIBUSB_SUCCESS) {
        const uint8_t* p = cap->dev_capability_data;
        (*out)->bmAttributes = p[0];
        (*out)->wSpeedSupported = le16(p + 1);
        (*out)->bFunctionalitySupport = p[3];
        (*out)->bU1DevExitLat = p[4];
        (*out)->bU2DevExitLat = le16(p + 5);
    }
    return r;
}

void LIBUSB_CALL libusb_free_ss_usb_device_capability_descriptor(struct libusb_ss_usb_device_capability_descriptor* d) {
    std::free(d);
}

int LIBUSB_CALL libusb_get_container_id_descriptor(libusb_context*, struct libusb_bos_dev_capability_descriptor* cap,
                                                   struct libusb_container_id_descriptor** out) {
    const int r = parse_capability(cap, LIBUSB_BT_CONTAINER_ID, LIBUSB_BT_CONTAINER_ID_SIZE, out);
    if (r == LIBUSB_SUCCESS) {
        (*out)->bReserved = cap->dev_capability_data[0];
        std::memcpy((*out)->ContainerID, cap->dev_capability_data + 1, sizeof((*out)->ContainerID));
    }
    return r;
}

void LIBUSB_CALL libusb_free_container_id_descriptor(struct libusb_container_id_descriptor* d) { std::free(d); }

// Looks through the endpoint's extra descriptors as libusb does; the bulk
// endpoint of a full-speed device has none, so this answers NOT_FOUND.
int LIBUSB_CALL libusb_get_ss_endpoint_companion_descriptor(libusb_context*,
                                                            const struct libusb_endpoint_descriptor* endpoint,
                                                            struct libusb_ss_endpoint_companion_descriptor** out) {
    if (!endpoint || !out) return LIBUSB_ERROR_INVALID_PARAM;
    const uint8_t* p = endpoint->extra;
    int left = endpoint->extra_length;
    while (p && left >= 2) {
        if (p[0] < 2 || p[0] > left) return LIBUSB_ERROR_IO;
        if (p[1] == LIBUSB_DT_SS_ENDPOINT_COMPANION && p[0] >= LIBUSB_DT_SS_ENDPOINT_COMPANION_SIZE) {
            *out = static_cast<libusb_ss_endpoint_companion_descriptor*>(std::calloc(1, sizeof(**out)));
            if (!*out) return LIBUSB_ERROR_NO_MEM;
            (*out)->bLength = p[0];
            (*out)->bDescriptorType = p[1];
            (*out)->bMaxBurst = p[2];
            (*out)->bmAttributes = p[3];
            (*out)->wBytesPerInterval = le16(p + 4);
            return LIBUSB_SUCCESS;
        }
        left -= p[0];
        p += p[0];
    }
    return LIBUSB_ERROR_NOT_FOUND;
}

void LIBUSB_CALL libusb_free_ss_endpoint_companion_descriptor(struct libusb_ss_endpoint_companion_descriptor* d) {
    std::free(d);
}

}  // extern "C"
