// Filter data through the real libusb: bulk frames reaped by libusb's event
// handling on the library's event thread. What the library does with the
// frames (modes, averaging, the search) is tested on the virtual libusb.
#include <algorithm>
#include <string>
#include <vector>

#include "oru_device_api.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

class RealUsbAcquisition : public RealUsbTest {};

int count_of(const std::vector<std::string>& items, const std::string& item) {
    return static_cast<int>(std::count(items.begin(), items.end(), item));
}

}  // namespace

TEST_F(RealUsbAcquisition, SingleShotAveragesKnownFramesAfterTheTwoThrownAway) {
    plug_sensors(1);
    ASSERT_EQ(connect(), 1);
    // Filter i of frame n reads 3 i + n: position and order of every sample
    // and of every frame show in the average.
    vsensor::set_frame_source(0, [](uint64_t n, uint16_t* out) {
        for (int i = 0; i < vsensor::kFilters; ++i) out[i] = static_cast<uint16_t>(3 * i + n);
    });
    vsensor::clear_events();
    std::vector<double> data(1024, -1.0);
    EXPECT_EQ(quietly([&] { return duGetFilterData(data.data(), 10); }), 1);
    // Frames 0 and 1 are thrown away, frames 2 to 11 averaged: 3 i + 6.5.
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(data[static_cast<size_t>(i)], 3 * i + 6.5) << "filter " << i;

    const std::vector<std::string> items = transcript_items(0);
    const int start = find_item(items, "out 70 value 0 index 1");
    ASSERT_GT(start, 0);
    const int stop = find_item(items, "out 71 value 0 index 1");
    EXPECT_GE(stop, 0);
    EXPECT_LT(stop, start) << "stop before start";
    EXPECT_EQ(count_of(items, "out 70 value 0 index 1"), 1);
    EXPECT_EQ(count_of(items, "out 71 value 0 index 1"), 4) << "one before, three after";
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_GE(vsensor::frames_sent(0), 12u);
}
