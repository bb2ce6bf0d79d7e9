// The spectral model: what a frame carries for a scene, an exposure, a gain
// and a sensor ID, read back as a libusb client reads a frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

constexpr double kDark = 64.0;

struct Look {
    const char* scene;
    int shutter;
    bool gain2 = false;
    int x_coord = 12;  // sensor ID A4486-3-<x>-40-2
    int led_word = -1;  // LED driver state word, -1: no driver
};

// One frame of a noise-free sensor (or `frames` frames of a noisy one).
std::vector<std::vector<double>> frames_of(const Look& look, int frames = 1, double read_noise = 0,
                                           double dn_per_electron = 0) {
    vsensor::reset();
    EXPECT_EQ(libusb_init(nullptr), 0);
    const bool driver = look.led_word >= 0;
    if (driver) vsensor::add_led_driver();
    vsensor::SensorOptions o;
    o.identity.x_coord = look.x_coord;
    o.identity_set = true;
    o.spectral_scene = look.scene;
    o.noise_sigma = read_noise;
    o.dn_per_electron = dn_per_electron;
    const int dev = vsensor::add_sensor(o);
    vsensor::set_register_value(dev, 37, static_cast<uint8_t>(look.shutter >> 8));
    vsensor::set_register_value(dev, 5, static_cast<uint8_t>(look.shutter & 0xFF));
    vsensor::set_register_value(dev, 20, look.gain2 ? 2 : 0);
    if (driver) {
        libusb_device_handle* d = open_nth(0);
        EXPECT_EQ(libusb_control_transfer(d, 0x21, 9, static_cast<uint16_t>(look.led_word), 0, nullptr, 0, 100), 0);
        libusb_close(d);
    }
    libusb_device_handle* h = open_nth(dev);
    std::vector<std::vector<double>> out;
    for (int n = 0; n < frames; ++n) {
        unsigned char raw[vsensor::kFrameBytes];
        EXPECT_EQ(libusb_control_transfer(h, 0xA1, 2, 0, 0, raw, sizeof raw, 1000), vsensor::kFrameBytes);
        std::vector<double> v(vsensor::kFilters);
        for (int i = 0; i < vsensor::kFilters; ++i) v[i] = (raw[2 * i] << 4) | (raw[2 * i + 1] >> 4);
        out.push_back(v);
    }
    libusb_close(h);
    libusb_exit(nullptr);
    return out;
}

std::vector<double> frame_of(const Look& look) { return frames_of(look)[0]; }

std::vector<double> first_frame_at(int dev) {
    libusb_device_handle* h = open_nth(dev);
    unsigned char raw[vsensor::kFrameBytes];
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 2, 0, 0, raw, sizeof raw, 1000), vsensor::kFrameBytes);
    libusb_close(h);
    std::vector<double> v(vsensor::kFilters);
    for (int i = 0; i < vsensor::kFilters; ++i) v[i] = (raw[2 * i] << 4) | (raw[2 * i + 1] >> 4);
    return v;
}

enum class Relation { Scaled, Sum, Same, Differs };

struct ModelCase {
    const char* name;
    std::vector<Look> looks;
    Relation relation;
    double k;  // Scaled: lit part of looks[1] = k x that of looks[0]
};

void PrintTo(const ModelCase& c, std::ostream* os) { *os << c.name; }

class SpectralModel : public ::testing::TestWithParam<ModelCase> {};

TEST_P(SpectralModel, FramesKeepTheirRelation) {
    const ModelCase& c = GetParam();
    std::vector<std::vector<double>> f;
    for (const Look& l : c.looks) f.push_back(frame_of(l));
    int compared = 0, differing = 0;
    for (int i = 0; i < vsensor::kFilters; ++i) {
        const double a = f[0][i] - kDark, b = f[1][i] - kDark;
        switch (c.relation) {
        case Relation::Scaled:
            if (f[1][i] >= 4095 || f[0][i] >= 4095) continue;
            EXPECT_NEAR(b, c.k * a, 0.5 + 0.5 * c.k) << "filter " << i;
            ++compared;
            break;
        case Relation::Sum:
            if (f[2][i] >= 4095) continue;
            EXPECT_NEAR(f[2][i] - kDark, a + b, 1.5) << "filter " << i;
            ++compared;
            break;
        case Relation::Same:
            EXPECT_EQ(f[0][i], f[1][i]) << "filter " << i;
            ++compared;
            break;
        case Relation::Differs:
            differing += std::abs(a - b) > 5;
            ++compared;
            break;
        }
    }
    EXPECT_GT(compared, 900);
    if (c.relation == Relation::Differs) {
        EXPECT_GT(differing, 800);
    }
}

double exposure(int s) { return (s * 912.0 + 160.0) / 1000.0; }

INSTANTIATE_TEST_SUITE_P(
    Table, SpectralModel,
    ::testing::Values(
        // Exposure is the exact (shutter x 912 + 160) / 1000 ms.
        ModelCase{"exposure_linear", {{"halogen", 7}, {"halogen", 29}}, Relation::Scaled, exposure(29) / exposure(7)},
        ModelCase{"exposure_from_shutter_1", {{"halogen", 1}, {"halogen", 3}}, Relation::Scaled, exposure(3) / exposure(1)},
        ModelCase{"gain_bit_doubles", {{"led:610", 40}, {"led:610", 40, true}}, Relation::Scaled, 2.0},
        ModelCase{"brightness_factor", {{"led:529", 60}, {"led:529*2.5", 60}}, Relation::Scaled, 2.5},
        ModelCase{"scene_sum", {{"blackbody:3000", 9}, {"led:468*0.3", 9}, {"blackbody:3000+led:468*0.3", 9}},
                  Relation::Sum, 0},
        ModelCase{"dark_scene_is_dark_level", {{"halogen", 20}, {"dark", 20}}, Relation::Scaled, 0.0},
        // The LED driver's LED 0 is the table's 468 nm source, at intensity / 255.
        ModelCase{"led_driver_adds_its_source", {{"led:468*0.4", 80}, {"dark", 80, false, 12, 0x6601}},
                  Relation::Same, 0},
        ModelCase{"led_driver_off_removes_it", {{"dark", 80}, {"dark", 80, false, 12, 0xFF00}}, Relation::Same, 0},
        ModelCase{"fwhm_option", {{"led:610,fwhm=18", 50}, {"led:610,fwhm=18.0", 50}}, Relation::Same, 0},
        ModelCase{"same_id_same_sensor", {{"daylight:6500", 15}, {"daylight:6500", 15}}, Relation::Same, 0},
        ModelCase{"other_id_other_sensor", {{"daylight:6500", 15}, {"daylight:6500", 15, false, 13}},
                  Relation::Differs, 0},
        ModelCase{"led_colours_differ", {{"led:468", 150}, {"led:640", 150}}, Relation::Differs, 0}));

TEST(SpectralModel, BackgroundFiltersSeeNoLightAndMarkersSpellTheSensorType) {
    const std::vector<double> f = frame_of({"halogen", 40});
    for (int i : {1011, 1012, 1013}) EXPECT_EQ(f[i], kDark) << i;
    // Sensor type 2: bit 1 open (filter 1020), the other seven markers covered.
    for (int k = 0; k < 8; ++k) {
        const int filter = 1021 - k;
        if (k == 1)
            EXPECT_GT(f[filter], kDark + 100) << filter;
        else
            EXPECT_EQ(f[filter], kDark) << filter;
    }
}

TEST(SpectralModel, FramesAreTheTrueResponseTimesTheScene) {
    std::vector<double> led;
    ASSERT_TRUE(vsensor::parse_spectrum("led:572", &led, nullptr));
    const std::vector<double> truth = vsensor::true_response("A4486-3-12-40-2");
    const std::vector<double> f = frame_of({"led:572", 100});
    for (int i = 0; i < vsensor::kFilters; i += 7) {
        double lit = 0;
        for (int w = 0; w < vsensor::kSpectrumPoints; ++w) lit += truth[i * vsensor::kSpectrumPoints + w] * led[w];
        EXPECT_NEAR(f[i], std::min(4095.0, std::round(kDark + lit * exposure(100))), 0.5) << i;
    }
}

TEST(SpectralModel, NoiseIsShotPlusReadNoiseAndSeededPerFrame) {
    const Look look{"halogen", 12};
    const auto frames = frames_of(look, 120, 3.0, 0.25);
    std::vector<double> ratio;
    for (int i = 0; i < vsensor::kFilters; ++i) {
        double mean = 0, var = 0;
        for (const auto& f : frames) mean += f[i] / frames.size();
        for (const auto& f : frames) var += (f[i] - mean) * (f[i] - mean) / (frames.size() - 1);
        if (mean < 4000) ratio.push_back(var / (0.25 * (mean - kDark) + 9.0 + 1.0 / 12));
    }
    std::nth_element(ratio.begin(), ratio.begin() + ratio.size() / 2, ratio.end());
    EXPECT_NEAR(ratio[ratio.size() / 2], 1.0, 0.1);
    EXPECT_EQ(frames_of(look, 3, 3.0, 0.25), frames_of(look, 3, 3.0, 0.25));  // a seed gives the same frames
    EXPECT_NE(frames[0], frames[1]);
}

TEST(SpectralModel, EnvironmentChoosesScenesPerSensor) {
    setenv("ORU_VSENSOR_COUNT", "3", 1);
    setenv("ORU_VSENSOR_SCENE", "led:572;0=led:468;1=led:640", 1);
    // A scene's own comma stays with it; the fault after it still counts.
    setenv("ORU_VSENSOR_FAULTS", "1:scene=led:610,fwhm=18,2:no-echo", 1);
    vsensor::reset();
    ASSERT_EQ(vsensor::configure_from_environment(), 3);
    for (const char* name : {"ORU_VSENSOR_COUNT", "ORU_VSENSOR_SCENE", "ORU_VSENSOR_FAULTS"}) unsetenv(name);
    ASSERT_EQ(libusb_init(nullptr), 0);
    for (int dev = 0; dev < 3; ++dev) {
        vsensor::set_register_value(dev, 37, 0);
        vsensor::set_register_value(dev, 5, 150);
    }
    const std::vector<double> f0 = first_frame_at(0), f1 = first_frame_at(1), f2 = first_frame_at(2);
    libusb_exit(nullptr);
    EXPECT_EQ(f0, frames_of({"led:468", 150, false, 12}, 1, 0, 0.25)[0]);
    EXPECT_EQ(f1, frames_of({"led:610,fwhm=18", 150, false, 13}, 1, 0, 0.25)[0]);
    EXPECT_EQ(f2, std::vector<double>(vsensor::kFilters, 0.0));  // no-echo answers zeros
}

TEST(SpectralModel, ScenesThatAreNotScenesAreRefused) {
    std::vector<double> s;
    for (const char* text : {"", "led", "led:abc", "led:610,width=3", "led:50", "blackbody:-5", "daylight:",
                             "white:6600", "file:/no/such/file.csv", "halogen*-1", "sun", "led:468+"}) {
        std::string why;
        EXPECT_EQ(vsensor::parse_spectrum(text, &s, &why), std::string(text) == "white:6600") << text;
    }
    const std::string path = ::testing::TempDir() + "spectrum.csv";
    std::ofstream(path) << "wavelength_nm,radiance\n500,0\n600,2\n700,0\n";
    ASSERT_TRUE(vsensor::parse_spectrum("file:" + path, &s, nullptr));
    EXPECT_DOUBLE_EQ(s[550 - vsensor::kSpectrumStartNm], 1.0);
    EXPECT_DOUBLE_EQ(s[600 - vsensor::kSpectrumStartNm], 2.0);
    EXPECT_DOUBLE_EQ(s[400 - vsensor::kSpectrumStartNm], 0.0);
}

}  // namespace
