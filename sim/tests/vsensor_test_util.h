// Shared helpers of the simulator's tests: a plain libusb client's view.
#ifndef VSENSOR_TEST_UTIL_H
#define VSENSOR_TEST_UTIL_H

#include <gtest/gtest.h>
#include <libusb.h>

#include <atomic>
#include <thread>
#include <vector>

#include "vsensor/vsensor.h"

namespace vsensor_test {

// Opens the n-th device of the default context's list (nullptr on failure,
// with the error in *err).
libusb_device_handle* open_nth(int n, int* err = nullptr);

// Sends an IN class request (0xA1) with a 1-byte reply; returns the byte or
// a negative libusb error.
int cmd(libusb_device_handle* h, uint8_t code, uint16_t value, uint16_t length = 1);
int out(libusb_device_handle* h, uint8_t code, uint16_t value, uint16_t index);

// Decodes a 2048-byte frame as the library does.
std::vector<int> decode_frame(const unsigned char* raw);

// Runs libusb_handle_events_timeout on the default context until stopped.
class EventThread {
public:
    EventThread();
    ~EventThread();
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// Two sensors on a fresh bus and the default context around each test.
class TwoSensors : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Submits a bulk transfer on `h`; its callback stores the status.
    libusb_transfer* submit(libusb_device_handle* h);
    // One libusb_handle_events_timeout of `usec`.
    void handle(int usec = 20000);
    unsigned char buf[2048] = {};
    int status = -1;
};

}  // namespace vsensor_test

#endif
