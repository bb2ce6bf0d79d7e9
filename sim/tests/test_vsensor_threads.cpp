// Control transfers from many threads at once.
#include <gtest/gtest.h>


#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

// The request pattern on an event thread (stop, start, n frames, stop) is
// the library's, and its acquisition and thread tests run it on this bus.
TEST(Threads, ConcurrentControlTransfersFromManyThreadsAllLand) {
    vsensor::reset();
    ASSERT_EQ(libusb_init(nullptr), 0);
    for (int d = 0; d < 4; ++d) vsensor::add_sensor();
    std::vector<std::thread> threads;
    for (int d = 0; d < 4; ++d)
        threads.emplace_back([d] {
            libusb_device_handle* h = open_nth(d);
            for (int i = 0; i < 200; ++i) EXPECT_EQ(cmd(h, 54, static_cast<uint16_t>(i)), i);
            libusb_close(h);
        });
    for (auto& th : threads) th.join();
    int control = 0;
    for (const auto& e : vsensor::events()) control += e.kind == vsensor::EventKind::Control;
    EXPECT_EQ(control, 800);
    for (int d = 0; d < 4; ++d) EXPECT_EQ(vsensor::register_value(d, 54), 199);
    libusb_exit(nullptr);
}

}  // namespace
