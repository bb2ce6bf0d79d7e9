#include "descriptors.h"

#include "vsensor/vsensor.h"

namespace vsensor::detail {

namespace {
constexpr uint16_t kMaxPacket = 64;
constexpr uint16_t kConfigTotalLength = LIBUSB_DT_CONFIG_SIZE + LIBUSB_DT_INTERFACE_SIZE + LIBUSB_DT_ENDPOINT_SIZE;
}  // namespace

libusb_device_descriptor device_descriptor(bool hub) {
    libusb_device_descriptor d{};
    d.bLength = LIBUSB_DT_DEVICE_SIZE;
    d.bDescriptorType = LIBUSB_DT_DEVICE;
    d.bcdUSB = 0x0200;
    d.bDeviceClass = 0;
    d.bMaxPacketSize0 = 64;
    d.idVendor = kVendorId;
    d.idProduct = kProductId;
    d.bcdDevice = 0x0200;
    d.bNumConfigurations = 1;
    if (hub) {
        // As Linux presents a USB 2.0 root hub: single TT, strings 3/2/1.
        d.bDeviceClass = LIBUSB_CLASS_HUB;
        d.bDeviceProtocol = 1;
        d.idVendor = 0x1d6b;
        d.idProduct = 0x0002;
        d.bcdDevice = 0x0601;
        d.iManufacturer = 3;
        d.iProduct = 2;
        d.iSerialNumber = 1;
    }
    return d;
}

std::vector<uint8_t> raw_device_descriptor() {
    const libusb_device_descriptor d = device_descriptor();
    return {d.bLength,
            d.bDescriptorType,
            static_cast<uint8_t>(d.bcdUSB & 0xFF),
            static_cast<uint8_t>(d.bcdUSB >> 8),
            d.bDeviceClass,
            d.bDeviceSubClass,
            d.bDeviceProtocol,
            d.bMaxPacketSize0,
            static_cast<uint8_t>(d.idVendor & 0xFF),
            static_cast<uint8_t>(d.idVendor >> 8),
            static_cast<uint8_t>(d.idProduct & 0xFF),
            static_cast<uint8_t>(d.idProduct >> 8),
            static_cast<uint8_t>(d.bcdDevice & 0xFF),
            static_cast<uint8_t>(d.bcdDevice >> 8),
            d.iManufacturer,
            d.iProduct,
            d.iSerialNumber,
            d.bNumConfigurations};
}

std::vector<uint8_t> raw_config_descriptor() {
    return {LIBUSB_DT_CONFIG_SIZE,
            LIBUSB_DT_CONFIG,
            kConfigTotalLength & 0xFF,
            kConfigTotalLength >> 8,
            1,
            1,
            0,
            0x80,
            50,
            LIBUSB_DT_INTERFACE_SIZE,
            LIBUSB_DT_INTERFACE,
            0,
            0,
            1,
            LIBUSB_CLASS_VENDOR_SPEC,
            0,
            0,
            0,
            LIBUSB_DT_ENDPOINT_SIZE,
            LIBUSB_DT_ENDPOINT,
            kBulkEndpoint,
            LIBUSB_TRANSFER_TYPE_BULK,
            kMaxPacket & 0xFF,
            kMaxPacket >> 8,
            0};
}

libusb_config_descriptor* new_config_tree(bool hub) {
    auto* ep = new libusb_endpoint_descriptor{};
    ep->bLength = LIBUSB_DT_ENDPOINT_SIZE;
    ep->bDescriptorType = LIBUSB_DT_ENDPOINT;
    ep->bEndpointAddress = kBulkEndpoint;
    ep->bmAttributes = hub ? LIBUSB_TRANSFER_TYPE_INTERRUPT : LIBUSB_TRANSFER_TYPE_BULK;
    ep->wMaxPacketSize = hub ? 4 : kMaxPacket;  // the hub's status change endpoint
    ep->bInterval = hub ? 12 : 0;

    auto* alt = new libusb_interface_descriptor{};
    alt->bLength = LIBUSB_DT_INTERFACE_SIZE;
    alt->bDescriptorType = LIBUSB_DT_INTERFACE;
    alt->bInterfaceNumber = 0;
    alt->bAlternateSetting = 0;
    alt->bNumEndpoints = 1;
    alt->bInterfaceClass = hub ? LIBUSB_CLASS_HUB : LIBUSB_CLASS_VENDOR_SPEC;
    alt->endpoint = ep;

    auto* itf = new libusb_interface{};
    itf->altsetting = alt;
    itf->num_altsetting = 1;

    auto* config = new libusb_config_descriptor{};
    config->bLength = LIBUSB_DT_CONFIG_SIZE;
    config->bDescriptorType = LIBUSB_DT_CONFIG;
    config->wTotalLength = kConfigTotalLength;
    config->bNumInterfaces = 1;
    config->bConfigurationValue = 1;
    config->bmAttributes = hub ? 0xE0 : 0x80;
    config->MaxPower = hub ? 0 : 50;
    config->interface = itf;
    return config;
}

void free_config_tree(const libusb_config_descriptor* config) {
    if (!config) return;
    // Built by new_config_tree: exactly one interface with one alternate setting.
    if (config->interface) {
        delete config->interface->altsetting->endpoint;
        delete config->interface->altsetting;
        delete config->interface;
    }
    delete config;
}

}  // namespace vsensor::detail
