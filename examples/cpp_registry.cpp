// Several sensors through the class interface: the connection registry
// creates one facade per sensor and finds them by index or sensor ID.
//
//   find_package(oru_device) ... target_link_libraries(app oru::oru_device)
#include <cstdio>
#include <string>
#include <vector>

#include "oru_device_interface.h"
#include "oru_device_interface_stm_usb_connection_helper.h"

int main() {
    oru_device_usb_connection_helper registry;
    int n = registry.connect_multiple_devices(true, 0);
    if (n == 0) {
        std::fprintf(stderr, "no sensor found\n");
        return 1;
    }
    for (int i = 0; i < n; ++i) {
        std::string id;  // empty: look up by index and learn the ID
        oru_device_interface* sensor = registry.get_one_device_interface(i, id);
        if (!sensor) continue;
        sensor->set_shutter_speed(100, i);
        std::vector<double> data(1024);
        sensor->get_filter_data(data.data(), 5, 0, 0, i);
        double peak = 0;
        for (double v : data) peak = v > peak ? v : peak;
        std::fprintf(stderr, "sensor %d (%s): peak %.1f DN at shutter 100\n", i, id.c_str(), peak);
    }
    registry.disconnect_multiple_devices(true, 0);
    return 0;
}
