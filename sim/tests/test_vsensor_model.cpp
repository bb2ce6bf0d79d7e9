// The optical model: dark level, response, shutter, gain, clipping, noise,
// and scenes tuned for the library's exposure window.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Model : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
    }
    void TearDown() override {
        if (h) libusb_close(h);
        libusb_exit(nullptr);
    }
    void sensor(vsensor::SensorOptions o = {}) {
        vsensor::add_sensor(o);
        h = open_nth(0);
        ASSERT_NE(h, nullptr);
    }
    void settings(int shutter, int gain_bit) {
        cmd(h, 37, static_cast<uint16_t>(shutter >> 8));
        cmd(h, 5, static_cast<uint16_t>(shutter & 0xFF));
        cmd(h, 20, static_cast<uint16_t>(gain_bit << 1));
    }
    // A frame read through the control-mode request.
    std::vector<int> frame() {
        std::vector<unsigned char> raw(2048);
        EXPECT_EQ(libusb_control_transfer(h, 0xA1, 2, 0x84, 1, raw.data(), 2048, 2000), 2048);
        return decode_frame(raw.data());
    }
    int peak(vsensor::Scene scene, double brightness, int shutter) {
        vsensor::set_scene(0, scene, brightness);
        settings(shutter, 1);
        const std::vector<int> f = frame();
        return *std::max_element(f.begin(), f.end());
    }
    libusb_device_handle* h = nullptr;
};

TEST_F(Model, OutputIsDarkLevelPlusResponseTimesShutterTimesGain) {
    sensor();
    settings(0, 0);
    EXPECT_EQ(frame(), std::vector<int>(1024, 64));
    settings(100, 0);
    const int x1 = frame()[300];
    settings(100, 1);
    const int x2 = frame()[300];
    settings(150, 1);
    const int x3 = frame()[300];
    EXPECT_EQ(x1, 64 + 1080);
    EXPECT_EQ(x2 - 64, 2 * (x1 - 64));
    EXPECT_EQ(x3 - 64, 3 * (x1 - 64));
}

TEST_F(Model, ClipsAt4095) {
    sensor();
    settings(1200, 1);
    EXPECT_EQ(frame(), std::vector<int>(1024, 4095));
}

TEST_F(Model, SceneShapes) {
    sensor();
    settings(100, 1);
    vsensor::set_scene(0, vsensor::Scene::LedLine);
    std::vector<int> f = frame();
    EXPECT_EQ(std::max_element(f.begin(), f.end()) - f.begin(), 512);
    EXPECT_LT(f[490], f[512] / 10);
    vsensor::set_scene(0, vsensor::Scene::BroadLamp);
    f = frame();
    EXPECT_GT(f[400], f[512] / 2);
    EXPECT_LT(f[0], f[600]);
    EXPECT_LT(f[1023], f[600]);
    vsensor::set_scene(0, vsensor::Scene::FlatWhite, 0.5);
    f = frame();
    EXPECT_EQ(f, std::vector<int>(1024, 64 + 1080));
}

TEST_F(Model, ScenesReachTheExposureWindowAtModerateShutterSpeeds) {
    // The library aims the brightest filter at 3000..4000 DN with gain 1.
    sensor();
    for (auto scene : {vsensor::Scene::FlatWhite, vsensor::Scene::LedLine, vsensor::Scene::BroadLamp}) {
        EXPECT_LT(peak(scene, 1.0, 50), 3000);
        EXPECT_GE(peak(scene, 1.0, 300), 4000);
        bool in_window = false;
        for (int s = 50; s <= 300 && !in_window; s += 10) {
            const int p = peak(scene, 1.0, s);
            in_window = p >= 3000 && p <= 4000;
        }
        EXPECT_TRUE(in_window) << static_cast<int>(scene);
    }
    EXPECT_LT(peak(vsensor::Scene::Dark, 1.0, 1200), 3000);
    EXPECT_LT(peak(vsensor::Scene::Dark, 2.0, 1200), 3000);
}

TEST_F(Model, NoiseIsReproducibleFromItsSeed) {
    vsensor::SensorOptions o;
    o.noise_sigma = 10;
    o.noise_seed = 7;
    vsensor::add_sensor(o);
    vsensor::add_sensor(o);
    o.noise_seed = 8;
    vsensor::add_sensor(o);
    std::vector<std::vector<int>> frames;
    for (int d = 0; d < 3; ++d) {
        h = open_nth(d);
        settings(100, 0);
        frames.push_back(frame());
        libusb_close(h);
    }
    h = nullptr;
    EXPECT_EQ(frames[0], frames[1]);
    EXPECT_NE(frames[0], frames[2]);
    double sum = 0, sq = 0;
    for (int v : frames[0]) {
        sum += v - 1144;
        sq += (v - 1144.0) * (v - 1144.0);
    }
    EXPECT_NEAR(sum / 1024, 0, 2);
    EXPECT_NEAR(std::sqrt(sq / 1024), 10, 2);
}

TEST_F(Model, DarkLevelOption) {
    vsensor::SensorOptions o;
    o.dark_level = 200;
    o.scene = vsensor::Scene::Dark;
    sensor(o);
    settings(0, 1);
    EXPECT_EQ(frame(), std::vector<int>(1024, 200));
}

}  // namespace
