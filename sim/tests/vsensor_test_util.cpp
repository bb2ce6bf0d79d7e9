#include "vsensor_test_util.h"

namespace vsensor_test {

libusb_device_handle* open_nth(int n, int* err) {
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    libusb_device_handle* h = nullptr;
    int rc = LIBUSB_ERROR_NOT_FOUND;
    if (count > n) rc = libusb_open(list[n], &h);
    if (count >= 0) libusb_free_device_list(list, 1);
    if (err) *err = rc;
    return rc == 0 ? h : nullptr;
}

int cmd(libusb_device_handle* h, uint8_t code, uint16_t value, uint16_t length) {
    unsigned char buf[16] = {};
    const int rc = libusb_control_transfer(h, 0xA1, code, value, 0, buf, length, 1000);
    return rc < 0 ? rc : buf[0];
}

int out(libusb_device_handle* h, uint8_t code, uint16_t value, uint16_t index) {
    return libusb_control_transfer(h, 0x21, code, value, index, nullptr, 0, 2000);
}

std::vector<int> decode_frame(const unsigned char* raw) {
    std::vector<int> v(vsensor::kFilters);
    for (int i = 0; i < vsensor::kFilters; ++i) v[i] = (raw[2 * i] << 4) | (raw[2 * i + 1] >> 4);
    return v;
}

EventThread::EventThread()
    : thread_([this] {
          while (!stop_) {
              timeval tv{0, 100000};
              libusb_handle_events_timeout(nullptr, &tv);
          }
      }) {}

EventThread::~EventThread() {
    stop_ = true;
    libusb_interrupt_event_handler(nullptr);
    thread_.join();
}

void TwoSensors::SetUp() {
    vsensor::reset();
    ASSERT_EQ(libusb_init(nullptr), 0);
    vsensor::add_sensor();
    vsensor::add_sensor();
}

void TwoSensors::TearDown() { libusb_exit(nullptr); }

libusb_transfer* TwoSensors::submit(libusb_device_handle* h) {
    libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(
        t, h, 0x81, buf, sizeof buf, [](libusb_transfer* tr) { *static_cast<int*>(tr->user_data) = tr->status; },
        &status, 0);
    EXPECT_EQ(libusb_submit_transfer(t), 0);
    return t;
}

void TwoSensors::handle(int usec) {
    timeval tv{0, usec};
    ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
}

}  // namespace vsensor_test
