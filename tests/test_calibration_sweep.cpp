// A monochromator sweep on a virtual sensor, read through the exported
// functions and turned into a calibration by the library, gives back the
// sensor's true response.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "api_test_support.h"
#include "oru_calibration.h"
#include "oru_measurement.h"
#include "oru_device_api.h"

namespace {

class SweepCalibration : public VirtualBusTest {};

TEST_F(SweepCalibration, NarrowLinesAcrossTheGridReproduceTheTrueResponse) {
    vsensor::SensorOptions o;
    o.spectral_scene = "dark";
    connect(1, o);
    const int shutter = 1000;  // brightest filter near 2000 DN for a 4 nm line
    ASSERT_EQ(duSetShutterSpeed(shutter), 1);
    double exposure_us = 0;
    ASSERT_EQ(duExactExposureTimeUs(1, shutter, &exposure_us), 1);
    const double exposure = exposure_us / 1000.0;

    std::vector<double> dark(DU_CALIBRATION_FILTERS);
    ASSERT_EQ(duGetFilterData(dark.data(), 10), 1);
    std::vector<double> nm, power, exposure_ms, readings;
    for (int w = 350; w <= 1000; w += 5) {
        const std::string line = "led:" + std::to_string(w) + ",fwhm=4";
        ASSERT_TRUE(vsensor::set_spectral_scene(0, line));
        std::vector<double> spectrum;
        vsensor::parse_spectrum(line, &spectrum, nullptr);
        std::vector<double> r(DU_CALIBRATION_FILTERS);
        ASSERT_EQ(duGetFilterData(r.data(), 10), 1);
        nm.push_back(w);
        double sum = 0;  // radiance summed over the line
        for (double s : spectrum) sum += s;
        power.push_back(sum);
        exposure_ms.push_back(exposure);
        readings.insert(readings.end(), r.begin(), r.end());
    }
    char error[256] = "";
    std::unique_ptr<duCalibration, void (*)(duCalibration*)> cal(
        duCalibrationFromSweep(static_cast<int>(nm.size()), nm.data(), power.data(), exposure_ms.data(),
                               readings.data(), dark.data(), 350, 1000, 1, error, sizeof error),
        duCalibrationFree);
    ASSERT_TRUE(cal) << error;
    ASSERT_EQ(cal->wavelength_count, vsensor::kSpectrumPoints);

    // The truth at the gain the library starts with (gain 1 doubles).
    const std::vector<double> truth = vsensor::true_response(active_sensor_id());
    std::vector<double> errors;
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
        double diff = 0, size = 0;
        for (int w = 0; w < vsensor::kSpectrumPoints; ++w) {
            const double t = 2.0 * truth[f * vsensor::kSpectrumPoints + w];
            diff += std::abs(cal->response[f * vsensor::kSpectrumPoints + w] - t);
            size += t;
        }
        if (size > 0) errors.push_back(diff / size);
        EXPECT_EQ(cal->valid_filters[f], f < 1011 || f > 1013) << f;
    }
    ASSERT_GT(errors.size(), 1000u);
    std::nth_element(errors.begin(), errors.begin() + errors.size() / 2, errors.end());
    EXPECT_LT(errors[errors.size() / 2], 0.02);
}

TEST_F(SweepCalibration, SaturatedFiltersAreMarkedAndBadSweepsRefused) {
    std::vector<double> nm = {500, 600}, power = {1, 1}, exposure = {10, 10};
    std::vector<double> readings(2 * DU_CALIBRATION_FILTERS, 100.0);
    readings[7] = 4095;
    char error[256] = "";
    std::unique_ptr<duCalibration, void (*)(duCalibration*)> cal(
        duCalibrationFromSweep(2, nm.data(), power.data(), exposure.data(), readings.data(), nullptr, 500, 600, 50,
                               error, sizeof error),
        duCalibrationFree);
    ASSERT_TRUE(cal) << error;
    EXPECT_EQ(cal->valid_filters[7], 0);
    EXPECT_EQ(cal->valid_filters[8], 1);
    EXPECT_EQ(cal->response[8 * 3], 0.0);  // dark from the background filters: 100 DN

    struct Bad {
        std::vector<double> nm, power, exposure;
        double start, end, step;
        const char* says;
    };
    for (const Bad& b : {Bad{{500}, {1}, {10}, 500, 600, 1, "at least two steps"},
                         Bad{{500, 500}, {1, 1}, {10, 10}, 500, 600, 1, "two steps at 500"},
                         Bad{{500, 600}, {1, 0}, {10, 10}, 500, 600, 1, "no power"},
                         Bad{{500, 600}, {1, 1}, {10, -1}, 500, 600, 1, "no exposure"},
                         Bad{{500, 600}, {1, 1}, {10, 10}, 600, 500, 1, "start <= end"},
                         Bad{{500, 600}, {1, 1}, {10, 10}, 500, 600, 0, "step above 0"}}) {
        duCalibration* none = duCalibrationFromSweep(static_cast<int>(b.nm.size()), b.nm.data(), b.power.data(),
                                                     b.exposure.data(), readings.data(), nullptr, b.start, b.end,
                                                     b.step, error, sizeof error);
        EXPECT_EQ(none, nullptr);
        duCalibrationFree(none);
        EXPECT_NE(std::string(error).find(b.says), std::string::npos) << error;
    }
}

}  // namespace
