// The virtual sensor's texts as the tests of both libusb tiers read them:
// the IDs of its default identities and its transcript as a list of items.
#ifndef ORU_TESTS_VSENSOR_TEXT_H
#define ORU_TESTS_VSENSOR_TEXT_H

#include <algorithm>
#include <string>
#include <vector>

#include "vsensor/vsensor.h"

// The ID text that the default identity of bus position `position` has.
inline std::string default_sensor_id(int position) {
    const vsensor::Identity id;
    return std::string(1, id.lot_char) + std::to_string(id.lot_id) + "-" + std::to_string(id.wafer_id) + "-" +
           std::to_string(id.x_coord + position) + "-" + std::to_string(id.y_coord) + "-" +
           std::to_string(id.sensor_type);
}

// vsensor::transcript split at ", ".
inline std::vector<std::string> transcript_items(int dev = -1, bool with_lifecycle = false) {
    const std::string text = vsensor::transcript(dev, with_lifecycle);
    std::vector<std::string> items;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(", ", start), text.size());
        items.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return items;
}

// Index of the first item at or after `from` that contains `needle`, or -1.
inline int find_item(const std::vector<std::string>& items, const std::string& needle, int from = 0) {
    for (int i = from < 0 ? 0 : from; i < static_cast<int>(items.size()); ++i)
        if (items[static_cast<std::size_t>(i)].find(needle) != std::string::npos) return i;
    return -1;
}

#endif
