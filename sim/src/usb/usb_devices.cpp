// Device list, device references and descriptors.
#include <cstdlib>

#include "../descriptors.h"
#include "usb_internal.h"

using vsensor::detail::bus;

namespace vsensor::detail {

void unref_device_locked(libusb_device* d) {
    if (!d || --d->refs > 0) return;
    if (d->ctx) d->ctx->devices.erase(d->dev.get());
    delete d;
}

libusb_device* device_for_locked(libusb_context* ctx, const std::shared_ptr<Device>& d) {
    libusb_device*& dev = ctx->devices[d.get()];
    if (dev) {
        ++dev->refs;
    } else {
        dev = new libusb_device;
        dev->ctx = ctx;
        dev->dev = d;
    }
    return dev;
}

}  // namespace vsensor::detail

extern "C" {

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* ctx, libusb_device*** list) {
    if (!list) return LIBUSB_ERROR_INVALID_PARAM;
    std::lock_guard<std::mutex> lk(bus().m);
    libusb_context* c = vsensor::detail::resolve_context(ctx);
    if (!c || c->dead) return LIBUSB_ERROR_INVALID_PARAM;
    std::vector<libusb_device*> found;
    for (const auto& d : bus().devices)
        if (!d->unplugged) found.push_back(vsensor::detail::device_for_locked(c, d));
    auto* out = static_cast<libusb_device**>(std::calloc(found.size() + 1, sizeof(libusb_device*)));
    if (!out) return LIBUSB_ERROR_NO_MEM;
    for (size_t i = 0; i < found.size(); ++i) out[i] = found[i];
    *list = out;
    return static_cast<ssize_t>(found.size());
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unref_devices) {
    if (!list) return;
    if (unref_devices) {
        std::lock_guard<std::mutex> lk(bus().m);
        for (libusb_device** p = list; *p; ++p) vsensor::detail::unref_device_locked(*p);
    }
    std::free(list);
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    if (dev) ++dev->refs;
    return dev;
}

void LIBUSB_CALL libusb_unref_device(libusb_device* dev) {
    std::lock_guard<std::mutex> lk(bus().m);
    vsensor::detail::unref_device_locked(dev);
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device*) { return 1; }

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* dev) {
    return dev ? static_cast<uint8_t>(dev->dev->address) : 0;
}

int LIBUSB_CALL libusb_get_device_speed(libusb_device* dev) {
    return dev && dev->dev->root_hub ? LIBUSB_SPEED_HIGH : LIBUSB_SPEED_FULL;
}

int LIBUSB_CALL libusb_get_max_packet_size(libusb_device* dev, unsigned char endpoint) {
    if (!dev || endpoint != vsensor::kBulkEndpoint) return LIBUSB_ERROR_NOT_FOUND;
    return dev->dev->root_hub ? 4 : 64;
}

// As libusb: the isochronous formula for iso and interrupt endpoints,
// wMaxPacketSize for the others (the bulk endpoint answers 64).
int LIBUSB_CALL libusb_get_max_iso_packet_size(libusb_device* dev, unsigned char endpoint) {
    if (!dev) return LIBUSB_ERROR_INVALID_PARAM;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        if (dev->dev->configuration <= 0) return LIBUSB_ERROR_NOT_FOUND;
    }
    return libusb_get_max_packet_size(dev, endpoint);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* dev, struct libusb_device_descriptor* desc) {
    if (!dev || !desc) return LIBUSB_ERROR_INVALID_PARAM;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        if (dev->dev->faults & vsensor::kFaultDescriptor) return LIBUSB_ERROR_IO;
    }
    *desc = vsensor::detail::device_descriptor(dev->dev->root_hub);
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* dev, uint8_t config_index,
                                             struct libusb_config_descriptor** config) {
    if (!dev || !config) return LIBUSB_ERROR_INVALID_PARAM;
    if (config_index != 0) return LIBUSB_ERROR_NOT_FOUND;
    *config = vsensor::detail::new_config_tree(dev->dev->root_hub);
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_get_active_config_descriptor(libusb_device* dev, struct libusb_config_descriptor** config) {
    if (!dev || !config) return LIBUSB_ERROR_INVALID_PARAM;
    {
        std::lock_guard<std::mutex> lk(bus().m);
        if (dev->dev->configuration <= 0) return LIBUSB_ERROR_NOT_FOUND;
    }
    *config = vsensor::detail::new_config_tree(dev->dev->root_hub);
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_get_config_descriptor_by_value(libusb_device* dev, uint8_t value,
                                                      struct libusb_config_descriptor** config) {
    if (value != 1) return LIBUSB_ERROR_NOT_FOUND;
    return libusb_get_config_descriptor(dev, 0, config);
}

void LIBUSB_CALL libusb_free_config_descriptor(struct libusb_config_descriptor* config) {
    vsensor::detail::free_config_tree(config);
}

}  // extern "C"
