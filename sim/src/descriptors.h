// The USB descriptors every virtual device reports: one configuration, one
// interface, one bulk IN endpoint 0x81 (full speed); and those of the root hub.
#ifndef VSENSOR_DESCRIPTORS_H
#define VSENSOR_DESCRIPTORS_H

#include <libusb.h>

#include <cstdint>
#include <vector>

namespace vsensor::detail {

// hub = true: the virtual root hub the devices hang off (1d6b:0002).
libusb_device_descriptor device_descriptor(bool hub = false);
std::vector<uint8_t> raw_device_descriptor();
std::vector<uint8_t> raw_config_descriptor();
// Heap tree as libusb_get_config_descriptor returns it; freed by free_config_tree.
libusb_config_descriptor* new_config_tree(bool hub = false);
void free_config_tree(const libusb_config_descriptor* config);

}  // namespace vsensor::detail

#endif
