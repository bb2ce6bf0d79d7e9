// Device object: filters stuck at the over-range value.
#include "oru_device_interface_base.h"

// A filter is abnormal when it reads exactly 4096 DN, one above the largest
// valid output, even at the shortest shutter speed.
std::vector<int> oru_device_interface_base::get_abnormal_filters(unsigned int iDeviceId) {
    const int cur_ss = get_shutter_speed(iDeviceId);
    set_shutter_speed(1, iDeviceId);

    std::vector<double> filter_data;
    get_filter_data(filter_data, 20, 0, false, static_cast<int>(iDeviceId), 0);

    std::vector<int> abnormal_filters_list;
    for (std::size_t i = 0; i < filter_data.size(); ++i) {
        if (filter_data[i] == 4096.0) abnormal_filters_list.push_back(static_cast<int>(i));
    }

    set_shutter_speed(cur_ss, iDeviceId);
    return abnormal_filters_list;
}
