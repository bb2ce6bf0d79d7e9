// Injected faults, one device at a time.
#include <gtest/gtest.h>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Faults : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
        vsensor::add_sensor();
        vsensor::add_sensor();
    }
    void TearDown() override { libusb_exit(nullptr); }

    // Submits a bulk transfer on `h`; the callback stores the status.
    libusb_transfer* submit(libusb_device_handle* h) {
        libusb_transfer* t = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(
            t, h, 0x81, buf, sizeof buf, [](libusb_transfer* tr) { *static_cast<int*>(tr->user_data) = tr->status; },
            &status, 0);
        EXPECT_EQ(libusb_submit_transfer(t), 0);
        return t;
    }
    void handle(int usec = 20000) {
        timeval tv{0, usec};
        ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    }
    unsigned char buf[2048] = {};
    int status = -1;
};

TEST_F(Faults, OpenAccessRefusesOpeningThatDeviceOnly) {
    vsensor::set_faults(0, vsensor::kFaultOpenAccess);
    int err = 0;
    EXPECT_EQ(open_nth(0, &err), nullptr);
    EXPECT_EQ(err, LIBUSB_ERROR_ACCESS);
    EXPECT_FALSE(vsensor::is_open(0));
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    libusb_close(h);
    EXPECT_EQ(vsensor::transcript(-1, true), "init, dev0 open, dev1 open, dev1 close");
    const auto ev = vsensor::events();
    EXPECT_EQ(ev[1].status, LIBUSB_ERROR_ACCESS);
}

TEST_F(Faults, DescriptorReadFails) {
    vsensor::set_faults(1, vsensor::kFaultDescriptor);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_device_descriptor d{};
    EXPECT_EQ(libusb_get_device_descriptor(list[0], &d), 0);
    EXPECT_LT(libusb_get_device_descriptor(list[1], &d), 0);
    libusb_free_device_list(list, 1);
}

TEST_F(Faults, ClaimFailsBusy) {
    vsensor::set_faults(0, vsensor::kFaultClaim);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(libusb_claim_interface(h, 0), LIBUSB_ERROR_BUSY);
    EXPECT_FALSE(vsensor::is_claimed(0));
    libusb_close(h);
}

TEST_F(Faults, NoEchoAnswersZeroToEveryReadButKeepsTheWrites) {
    vsensor::set_faults(0, vsensor::kFaultNoEcho);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cmd(h, 5, 9), 0);
    EXPECT_EQ(cmd(h, 4, 0), 0);
    EXPECT_EQ(vsensor::register_value(0, 5), 9);
    unsigned char id[5] = {1, 1, 1, 1, 1};
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 1, 0, 0, id, 5, 2000), 5);
    EXPECT_EQ(std::vector<unsigned char>(id, id + 5), std::vector<unsigned char>(5, 0));
    libusb_close(h);
}

TEST_F(Faults, ControlTimeoutFailsEveryControlTransferAtOnce) {
    vsensor::set_faults(0, vsensor::kFaultControlTimeout);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    unsigned char b = 0;
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 5, 9, 0, &b, 1, 60000), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(out(h, 70, 0, 1), LIBUSB_ERROR_TIMEOUT);
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_EQ(vsensor::register_value(0, 5), 0);
    EXPECT_EQ(vsensor::transcript(0), "cmd 5 value 9, out 70 value 0 index 1");  // still on the wire
    libusb_close(h);
}

TEST_F(Faults, StreamStallNeverCompletesButCanBeCancelled) {
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, -1);
    EXPECT_EQ(vsensor::frames_sent(0), 0u);
    libusb_cancel_transfer(t);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_CANCELLED);
    // Clearing the fault lets the stream flow again.
    vsensor::set_faults(0, vsensor::kFaultNone);
    status = -1;
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, BulkErrorFailsTheNextCompletionOnly) {
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    handle(1000);
    EXPECT_EQ(status, -1);  // nothing before streaming starts
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(t->actual_length, 0);
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(vsensor::frames_sent(0), 1u);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, UnplugCompletesThePendingTransferAndFailsLaterOnes) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    vsensor::unplug(0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(libusb_submit_transfer(t), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(cmd(h, 5, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_claim_interface(h, 0), LIBUSB_ERROR_NO_DEVICE);
    int got = 0;
    EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 0), LIBUSB_ERROR_NO_DEVICE);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, UnplugOnStreamVanishesAtStartStreaming) {
    vsensor::set_faults(1, vsensor::kFaultUnplugOnStream);
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cmd(h, 5, 1), 1);
    libusb_transfer* t = submit(h);
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_FALSE(vsensor::streaming(1));
    EXPECT_EQ(vsensor::transcript(1, true).find("dev1 unplug") != std::string::npos, true);
    libusb_free_transfer(t);
    libusb_close(h);
}

}  // namespace
