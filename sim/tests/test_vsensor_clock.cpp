// The virtual clock and the transcript's compact form.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Clock : public ::testing::Test {
protected:
    void SetUp() override { vsensor::reset(); }
};

TEST_F(Clock, UsleepIsRecordedAndAdvancesVirtualTimeWithoutSleeping) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(vsensor::now_us(), 0u);
    ASSERT_EQ(usleep(5000), 0);
    ASSERT_EQ(usleep(3600u * 1000000u), 0);  // an hour: only virtual
    EXPECT_EQ(vsensor::now_us(), 5000u + 3600u * 1000000u);
    EXPECT_EQ(vsensor::total_pause_us(), vsensor::now_us());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(30));
    const auto ev = vsensor::events();
    ASSERT_EQ(ev.size(), 2u);
    EXPECT_EQ(ev[0].kind, vsensor::EventKind::Pause);
    EXPECT_EQ(ev[0].pause_us, 5000u);
    EXPECT_EQ(ev[0].at_us, 0u);
    EXPECT_EQ(ev[0].dev, -1);
    EXPECT_EQ(ev[1].at_us, 5000u);
}

TEST_F(Clock, ZeroPausesAreSkipped) {
    usleep(0);
    EXPECT_TRUE(vsensor::events().empty());
    EXPECT_EQ(vsensor::now_us(), 0u);
}

TEST_F(Clock, ResetClearsClockAndLog) {
    usleep(10);
    vsensor::reset();
    EXPECT_EQ(vsensor::now_us(), 0u);
    EXPECT_EQ(vsensor::total_pause_us(), 0u);
    EXPECT_TRUE(vsensor::events().empty());
}

TEST_F(Clock, PausesFromAnotherThreadAreRecordedToo) {
    std::thread t([] { usleep(7000); });
    t.join();
    EXPECT_EQ(vsensor::transcript(), "pause 7 ms");
}

class Transcript : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
        vsensor::add_sensor();
        vsensor::add_sensor();
        a = open_nth(0);
        b = open_nth(1);
        ASSERT_TRUE(a && b);
        vsensor::clear_events();
    }
    void TearDown() override {
        libusb_close(a);
        libusb_close(b);
        libusb_exit(nullptr);
    }
    libusb_device_handle* a = nullptr;
    libusb_device_handle* b = nullptr;
};

TEST_F(Transcript, CompactFormOfRequestsAndPauses) {
    cmd(a, 34, 4);
    usleep(5000);
    cmd(a, 33, 8);
    usleep(1500);
    out(a, 70, 0, 1);
    unsigned char buf[1];
    libusb_control_transfer(a, 0xC0, 5, 0, 0, buf, 1, 100);
    EXPECT_EQ(vsensor::transcript(),
              "cmd 34 value 4, pause 5 ms, cmd 33 value 8, pause 1500 us, out 70 value 0 index 1, "
              "req 0xC0 5 value 0 index 0 length 1");
}

TEST_F(Transcript, DeviceFilterKeepsPausesAndLifecycleOnRequest) {
    cmd(a, 5, 1);
    cmd(b, 5, 2);
    usleep(20000);
    libusb_claim_interface(b, 0);
    cmd(b, 4, 0);
    EXPECT_EQ(vsensor::transcript(1), "cmd 5 value 2, pause 20 ms, cmd 4 value 0");
    EXPECT_EQ(vsensor::transcript(0), "cmd 5 value 1, pause 20 ms");
    EXPECT_EQ(vsensor::transcript(1, true), "cmd 5 value 2, pause 20 ms, dev1 claim 0, cmd 4 value 0");
    EXPECT_EQ(vsensor::transcript(-1, true),
              "cmd 5 value 1, cmd 5 value 2, pause 20 ms, dev1 claim 0, cmd 4 value 0");
}

TEST_F(Transcript, EventsCarryVirtualTime) {
    usleep(30000);
    cmd(a, 5, 1);
    const auto ev = vsensor::events();
    ASSERT_EQ(ev.size(), 2u);
    EXPECT_EQ(ev[1].kind, vsensor::EventKind::Control);
    EXPECT_EQ(ev[1].at_us, 30000u);
}

}  // namespace
