// Shared helpers of the simulator's tests: a plain libusb client's view.
#ifndef VSENSOR_TEST_UTIL_H
#define VSENSOR_TEST_UTIL_H

#include <gtest/gtest.h>
#include <libusb.h>

#include <atomic>
#include <thread>

#include "vsensor/vsensor.h"

namespace vsensor_test {

// Opens the n-th device of the default context's list (nullptr on failure).
inline libusb_device_handle* open_nth(int n) {
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    libusb_device_handle* h = nullptr;
    if (count > n && libusb_open(list[n], &h) != 0) h = nullptr;
    if (count >= 0) libusb_free_device_list(list, 1);
    return h;
}

// Sends an IN class request (0xA1) with a 1-byte reply; returns the byte or
// a negative libusb error.
inline int cmd(libusb_device_handle* h, uint8_t code, uint16_t value) {
    unsigned char buf[1] = {};
    const int rc = libusb_control_transfer(h, 0xA1, code, value, 0, buf, 1, 1000);
    return rc < 0 ? rc : buf[0];
}

// Starts streaming (an OUT class request, 70 on interface 1).
inline int start_streaming(libusb_device_handle* h) {
    return libusb_control_transfer(h, 0x21, 70, 0, 1, nullptr, 0, 2000);
}

// Two sensors on a fresh bus and the default context around each test.
class TwoSensors : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
        vsensor::add_sensor();
        vsensor::add_sensor();
    }
    void TearDown() override { libusb_exit(nullptr); }
    // Fills `t` (allocated if null) as a bulk read on `h` whose callback
    // stores the status, and submits it.
    libusb_transfer* submit(libusb_device_handle* h, unsigned timeout_ms = 0, libusb_transfer* t = nullptr) {
        if (!t) t = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(
            t, h, 0x81, buf, sizeof buf,
            [](libusb_transfer* tr) { static_cast<std::atomic<int>*>(tr->user_data)->store(tr->status); }, &status,
            timeout_ms);
        EXPECT_EQ(libusb_submit_transfer(t), 0);
        return t;
    }
    // One libusb_handle_events_timeout of `usec`.
    void handle(int usec = 20000) {
        timeval tv{0, usec};
        ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    }
    unsigned char buf[2048] = {};
    std::atomic<int> status{-1};  // set on whichever thread handles events
};

}  // namespace vsensor_test

#endif
