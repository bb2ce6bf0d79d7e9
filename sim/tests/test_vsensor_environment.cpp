// Bus configuration from ORU_VSENSOR_* variables.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Environment : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"ORU_VSENSOR_COUNT", "ORU_VSENSOR_IDS", "ORU_VSENSOR_SCENE", "ORU_VSENSOR_BRIGHTNESS",
                                 "ORU_VSENSOR_NOISE", "ORU_VSENSOR_SEED", "ORU_VSENSOR_FAULTS", "ORU_VSENSOR_REALTIME",
                                 "ORU_VSENSOR_LED_DRIVER", "ORU_VSENSOR_PATTERN", "ORU_VSENSOR_TRACE"})
            unsetenv(name);
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
    }
    void TearDown() override { libusb_exit(nullptr); }

    std::vector<uint8_t> identity(int dev) {
        libusb_device_handle* h = open_nth(dev);
        std::vector<uint8_t> raw(5);
        EXPECT_EQ(libusb_control_transfer(h, 0xA1, 1, 0, 0, raw.data(), 5, 2000), 5);
        libusb_close(h);
        return raw;
    }
    std::vector<int> frame(int dev) {
        libusb_device_handle* h = open_nth(dev);
        out(h, 70, 0, 1);
        unsigned char buf[2048];
        int got = 0;
        EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
        out(h, 71, 0, 1);
        libusb_close(h);
        return decode_frame(buf);
    }
};

vsensor::Identity id(int x, int lot = 4486) {
    vsensor::Identity i;
    i.x_coord = x;
    i.lot_id = lot;
    return i;
}

TEST_F(Environment, DefaultIsOneSensorA4486_3_12_40_2) {
    EXPECT_EQ(vsensor::configure_from_environment(), 1);
    EXPECT_EQ(vsensor::device_count(), 1);
    EXPECT_EQ(identity(0), vsensor::encode_identity(id(12)));
}

TEST_F(Environment, CountIdsAndLedDriver) {
    setenv("ORU_VSENSOR_COUNT", "3", 1);
    setenv("ORU_VSENSOR_IDS", "A4487-3-20-40-1,A4486-3-21-40-2", 1);
    setenv("ORU_VSENSOR_LED_DRIVER", "1", 1);
    EXPECT_EQ(vsensor::configure_from_environment(), 4);
    vsensor::Identity first = id(20, 4487);
    first.sensor_type = 1;
    EXPECT_EQ(identity(1), vsensor::encode_identity(first));
    EXPECT_EQ(identity(2), vsensor::encode_identity(id(21)));
    EXPECT_EQ(identity(3), vsensor::encode_identity(id(14)));  // third sensor: default
    libusb_device_handle* led = open_nth(0);
    unsigned char b;
    EXPECT_EQ(libusb_control_transfer(led, 0xA1, 1, 0, 0, &b, 1, 2000), LIBUSB_ERROR_PIPE);
    libusb_close(led);
}

TEST_F(Environment, IdsAloneSetTheCount) {
    setenv("ORU_VSENSOR_IDS", "B100-1-2-3-1,B101-1-2-3-1", 1);
    EXPECT_EQ(vsensor::configure_from_environment(), 2);
}

TEST_F(Environment, FaultsPerSensorNumber) {
    setenv("ORU_VSENSOR_COUNT", "2", 1);
    setenv("ORU_VSENSOR_LED_DRIVER", "1", 1);
    setenv("ORU_VSENSOR_FAULTS", "0:claim,1:open-access,1:no-echo,7:stall,0:bogus", 1);
    testing::internal::CaptureStderr();
    ASSERT_EQ(vsensor::configure_from_environment(), 3);
    const std::string warnings = testing::internal::GetCapturedStderr();
    EXPECT_NE(warnings.find("7:stall"), std::string::npos);
    EXPECT_NE(warnings.find("0:bogus"), std::string::npos);
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(libusb_claim_interface(h, 0), LIBUSB_ERROR_BUSY);
    libusb_close(h);
    int err = 0;
    EXPECT_EQ(open_nth(2, &err), nullptr);
    EXPECT_EQ(err, LIBUSB_ERROR_ACCESS);
}

TEST_F(Environment, PatternCounterAndConstant) {
    setenv("ORU_VSENSOR_COUNT", "1", 1);
    setenv("ORU_VSENSOR_PATTERN", "constant:777", 1);
    vsensor::configure_from_environment();
    EXPECT_EQ(frame(0), std::vector<int>(1024, 777));
    vsensor::reset();
    setenv("ORU_VSENSOR_PATTERN", "counter", 1);
    vsensor::configure_from_environment();
    EXPECT_EQ(frame(0), std::vector<int>(1024, 0));
}

TEST_F(Environment, SceneBrightnessAndNoise) {
    setenv("ORU_VSENSOR_SCENE", "dark", 1);
    vsensor::configure_from_environment();
    libusb_device_handle* h = open_nth(0);
    cmd(h, 5, 200);
    libusb_close(h);
    const std::vector<int> dark = frame(0);
    EXPECT_LT(*std::max_element(dark.begin(), dark.end()), 100);

    vsensor::reset();
    setenv("ORU_VSENSOR_SCENE", "white", 1);
    setenv("ORU_VSENSOR_BRIGHTNESS", "2.0", 1);
    setenv("ORU_VSENSOR_NOISE", "5", 1);
    setenv("ORU_VSENSOR_SEED", "42", 1);
    vsensor::configure_from_environment();
    h = open_nth(0);
    cmd(h, 5, 100);
    libusb_close(h);
    const std::vector<int> noisy = frame(0);
    EXPECT_NE(*std::min_element(noisy.begin(), noisy.end()), *std::max_element(noisy.begin(), noisy.end()));
    // 64 + 2.0 x 100 x 10.8 = 2224 around which the noise scatters
    double mean = 0;
    for (int v : noisy) mean += v;
    EXPECT_NEAR(mean / 1024, 2224, 2);
}

TEST_F(Environment, RealtimeSwitch) {
    setenv("ORU_VSENSOR_REALTIME", "1", 1);
    vsensor::configure_from_environment();
    libusb_device_handle* h = open_nth(0);
    cmd(h, 37, 255);  // period of about a minute
    out(h, 70, 0, 1);
    unsigned char buf[2048];
    int got = 0;
    // With pacing the first frame is a full period away.
    EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 5), LIBUSB_ERROR_TIMEOUT);
    vsensor::set_realtime(false);
    EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 5), 0);
    libusb_close(h);
}

}  // namespace
