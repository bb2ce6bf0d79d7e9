// Spectra from readings of the virtual sensor's spectral model, with its true
// response as the calibration: each algorithm holds an accuracy floor over
// scenes and noise, and every bad input gets its own error.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "lit_reading.h"
#include "reconstruction/reconstruction_internal.h"

using namespace spectral_test;

namespace {

using Calibration = std::unique_ptr<duCalibration, decltype(&duCalibrationFree)>;
using Reconstructor = std::unique_ptr<duReconstructor, decltype(&duReconstructorFree)>;

struct Spectrum {
    int rc;
    std::vector<double> grid, values;
    duReconstructionResult result{};
    std::string error;
};

Spectrum reconstruct(duReconstructor* r, const std::vector<double>& values, const unsigned char* usable,
                     const duReadingInfo& info) {
    Spectrum s;
    const int n = duReconstructorGrid(r, nullptr, 0);
    s.grid.resize(size_t(n));
    s.values.resize(size_t(n));
    duReconstructorGrid(r, s.grid.data(), n);
    char error[256] = "";
    s.rc = duReconstruct(r, values.data(), usable, &info, s.values.data(), &s.result, error, sizeof error);
    s.error = error;
    return s;
}

// What a scene's spectrum must show: its peak near `peak_nm` (and, for two
// lines, a second peak above half the top near `second_nm`), or a relative
// RMS error over 420..720 nm below `floor`.
struct Scene {
    const char* text;
    double peak_nm;  // 0: broadband
    double floor;    // nm off the peak, or relative RMS
    double second_nm = 0;
    int least_frames = 1;  // two lines 30 nm apart part only in 10-frame readings
};

struct AccuracyCase {
    const char* algorithm;
    std::vector<Scene> scenes;
};

void PrintTo(const AccuracyCase& c, std::ostream* os) { *os << c.algorithm; }

class Accuracy : public ::testing::TestWithParam<AccuracyCase> {};

TEST_P(Accuracy, EverySceneWithAndWithoutNoiseStaysWithinItsFloor) {
    const AccuracyCase& c = GetParam();
    const Calibration cal(truth_calibration(), duCalibrationFree);
    // A 2 nm grid over the whole range: a quarter of the work of 1 nm, and
    // the interpolation onto a coarser grid is part of what is checked.
    const duReconstructionOptions o{c.algorithm, 0, 0, 2, 0};
    char error[256] = "";
    const Reconstructor r(duReconstructorCreate(cal.get(), &o, error, sizeof error), duReconstructorFree);
    ASSERT_TRUE(r) << error;
    for (const Scene& scene : c.scenes) {
        for (int frames : {1, 10}) {
            if (frames < scene.least_frames) continue;
            SCOPED_TRACE(std::string(scene.text) + ", " + std::to_string(frames) + " frame(s)");
            const Reading reading = spectral_reading(scene.text, frames, 11);
            const Spectrum s = reconstruct(r.get(), reading.values, nullptr, reading_info());
            ASSERT_EQ(s.rc, 1) << s.error;
            EXPECT_GT(s.result.weight, 0);
            // The spectrum explains the reading (brightest filter 3000 DN) to a few per cent.
            EXPECT_LT(s.result.residual_dn, 80);
            if (scene.second_nm > 0) {
                const std::vector<double> found = peaks(s.grid, s.values, 0.5);
                ASSERT_EQ(found.size(), 2u);
                EXPECT_NEAR(found[0], scene.peak_nm, scene.floor);
                EXPECT_NEAR(found[1], scene.second_nm, scene.floor);
            } else if (scene.peak_nm > 0) {
                EXPECT_NEAR(main_peak(s.grid, s.values), scene.peak_nm, scene.floor);
            } else {
                EXPECT_LT(relative_rms(s.grid, s.values, reading.spectrum, 420, 720), scene.floor);
            }
        }
    }
}

const std::vector<Scene> kBroadAndLines = {
    {"led:529", 529, 3}, {"led:640", 640, 3}, {"blackbody:2856", 0, 0.05}, {"daylight:6500", 0, 0.06}};
// GCV's weight is too small for some noisy lines: they split.
const std::vector<Scene> kBroadAndRoughLines = {
    {"led:529", 529, 6}, {"led:640", 640, 6}, {"blackbody:2856", 0, 0.05}, {"daylight:6500", 0, 0.06}};

INSTANTIATE_TEST_SUITE_P(
    Table, Accuracy,
    ::testing::Values(AccuracyCase{"tikhonov-gcv", {{"blackbody:2856", 0, 0.08}, {"daylight:6500", 0, 0.08}}},
                      AccuracyCase{"TNNLS-GCV", kBroadAndRoughLines}, AccuracyCase{"TNNLS-LCurve", kBroadAndLines},
                      AccuracyCase{"NNLS-L1",
                                   {{"led:529", 529, 3},
                                    {"led:468", 468, 3},
                                    {"led:940", 940, 3},
                                    {"led:520+led:550", 520, 5, 550, 10},
                                    {"led:600+led:630", 600, 5, 630, 10},
                                    {"blackbody:2856", 0, 0.08}}}),
    [](const auto& info) {
        std::string name = info.param.algorithm;
        for (char& ch : name)
            if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
        return name;
    });

// A short grid keeps each case's factorisation instant.
struct Inputs {
    duReconstructionOptions options{"tikhonov-gcv", 500, 540, 0, 0};
    std::vector<double> values = std::vector<double>(DU_CALIBRATION_FILTERS, 100.0);
    std::vector<unsigned char> usable = std::vector<unsigned char>(DU_CALIBRATION_FILTERS, 1);
    duReadingInfo info = reading_info();
    double response_nan = 0;  // put into one calibration entry when set
};

struct BadInput {
    const char* name;
    std::function<void(Inputs&)> change;
    int rc;               // of the create call when it fails, else of the reading
    const char* message;  // part of the error line; "" when it succeeds
    int warnings;
};

void PrintTo(const BadInput& c, std::ostream* os) { *os << c.name; }

class BadInputs : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputs, GiveOneClearErrorOrWarning) {
    const BadInput& c = GetParam();
    Inputs s;
    c.change(s);
    const Calibration cal(truth_calibration(), duCalibrationFree);
    if (s.response_nan != 0) cal->response[5 * vsensor::kSpectrumPoints + 170] = s.response_nan;
    char error[256] = "";
    const Reconstructor r(duReconstructorCreate(cal.get(), &s.options, error, sizeof error), duReconstructorFree);
    if (!r) {
        EXPECT_NE(std::string(c.message), "") << error;
        EXPECT_NE(std::string(error).find(c.message), std::string::npos) << error;
        return;
    }
    const Spectrum got = reconstruct(r.get(), s.values, s.usable.data(), s.info);
    EXPECT_EQ(got.rc, c.rc) << got.error;
    EXPECT_NE(got.error.find(c.message), std::string::npos) << got.error;
    if (got.rc == 1) {
        EXPECT_EQ(got.result.warnings, c.warnings);
    }
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Table, BadInputs,
    ::testing::Values(
        BadInput{"plain_reading", [](Inputs&) {}, 1, "", 0},
        BadInput{"other_sensor", [](Inputs& s) { s.info.sensor_id = "A4486-3-13-40-2"; }, DU_RECON_E_SENSOR,
                 "calibration is for sensor A4486-3-12-40-2", 0},
        BadInput{"other_sensor_forced",
                 [](Inputs& s) {
                     s.info.sensor_id = "A4486-3-13-40-2";
                     s.info.allow_other_sensor = 1;
                 },
                 1, "", 0},
        BadInput{"other_gain_warns", [](Inputs& s) { s.info.adc_gain = 0; }, 1, "", DU_RECON_WARN_SETTINGS},
        BadInput{"other_range_warns", [](Inputs& s) { s.info.adc_range = 65; }, 1, "", DU_RECON_WARN_SETTINGS},
        BadInput{"all_saturated",
                 [](Inputs& s) {
                     const std::vector<double> raw(DU_CALIBRATION_FILTERS, 4095.0);
                     duReadingUsableFilters(raw.data(), s.usable.data());
                 },
                 DU_RECON_E_NO_FILTERS, "saturated or left out", 0},
        BadInput{"nan_in_reading", [](Inputs& s) { s.values[700] = kNaN; }, DU_RECON_E_NOT_A_NUMBER,
                 "filter 700 is not a number", 0},
        BadInput{"nan_in_reading_of_left_out_filter",
                 [](Inputs& s) {
                     s.values[3] = kNaN;
                     s.usable[3] = 0;
                 },
                 DU_RECON_E_NOT_A_NUMBER, "filter 3 is not a number", 0},
        BadInput{"nan_in_calibration", [](Inputs& s) { s.response_nan = kNaN; }, 0, "NaN or infinite", 0},
        BadInput{"no_exposure", [](Inputs& s) { s.info.master_clock = 0; }, DU_RECON_E_ARGUMENT, "exposure", 0},
        BadInput{"range_below_grid", [](Inputs& s) { s.options.range_start_nm = 300; }, 0,
                 "300..540 nm is not inside the calibration's 350..1000 nm", 0},
        BadInput{"range_above_grid", [](Inputs& s) { s.options.range_end_nm = 1100; }, 0, "is not inside", 0},
        BadInput{"step_finer_than_grid", [](Inputs& s) { s.options.step_nm = 0.5; }, 0, "finer than", 0},
        BadInput{"unprovided_algorithm", [](Inputs& s) { s.options.algorithm = "NNLS-SCA-GCV"; }, 0,
                 "NNLS-SCA-GCV is not provided", 0},
        BadInput{"unknown_algorithm", [](Inputs& s) { s.options.algorithm = "fastest"; }, 0, "unknown algorithm",
                 0}),
    [](const auto& info) { return std::string(info.param.name); });

// Saturated filters are left out of one reading only, and the result counts
// the filters that took part.
TEST(Reconstruction, SaturatedFiltersAreLeftOutOfThatReadingOnly) {
    const Calibration cal(truth_calibration(), duCalibrationFree);
    duReconstructionOptions o{"TNNLS-GCV", 450, 650, 2, 0};
    const Reconstructor r(duReconstructorCreate(cal.get(), &o, nullptr, 0), duReconstructorFree);
    ASSERT_TRUE(r);
    const Reading bright = spectral_reading("led:529", 0, 1, 5000.0);
    std::vector<double> raw(bright.values);
    for (double& v : raw) v = std::min(v, 4095.0);
    std::vector<unsigned char> usable(DU_CALIBRATION_FILTERS);
    const int unsaturated = duReadingUsableFilters(raw.data(), usable.data());
    ASSERT_LT(unsaturated, 1011);
    const Spectrum clipped = reconstruct(r.get(), raw, usable.data(), reading_info());
    ASSERT_EQ(clipped.rc, 1) << clipped.error;
    // 1024 less the 3 background and 7 covered marker filters see light.
    EXPECT_EQ(clipped.result.filters_used, unsaturated - (DU_CALIBRATION_FILTERS - 1014));
    ASSERT_EQ(clipped.grid.size(), 101u);
    EXPECT_DOUBLE_EQ(clipped.grid[1], 452.0);
    const std::vector<double> found = peaks(clipped.grid, clipped.values, 0.5);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NEAR(found[0], 529, 3);
    const Spectrum whole = reconstruct(r.get(), spectral_reading("led:529", 0, 1).values, nullptr, reading_info());
    EXPECT_EQ(whole.result.filters_used, 1014);
}

// The non-negative solver lets go of several held points a round; its answer
// must still be the minimiser: nothing negative, no pull on a free point and
// no upward pull on a held one, from a cold start and from a nearby weight's.
TEST(Reconstruction, NonNegativeSolutionsMeetTheOptimalityConditions) {
    using namespace oru_recon;
    const Calibration cal(truth_calibration(), duCalibrationFree);
    Problem p;
    std::string why;
    ASSERT_EQ(build_problem(*cal, duReconstructionOptions{nullptr, 0, 0, 2, 0}, &p, &why), 1) << why;
    const auto f = factorise(p, Penalty::Smooth, p.lit);
    double exposure_us = 0;
    duExactExposureTimeUs(1, kShutter, &exposure_us);
    for (const char* scene : {"led:940", "led:520+led:550", "blackbody:2856"}) {
        const Reading reading = spectral_reading(scene, 10, 5);
        VectorXd b(Eigen::Index(f->rows.size()));
        for (Eigen::Index k = 0; k < b.size(); ++k) b[k] = reading.values[size_t(f->rows[size_t(k)])] * 1000 / exposure_us;
        const VectorXd g = f->au.transpose() * b, c = f->w * b;
        VectorXd nearby = nonnegative(*f, g, c, 100.0);
        for (double lambda : {30.0, 3.0}) {
            SCOPED_TRACE(std::string(scene) + ", weight " + std::to_string(lambda));
            const VectorXd cold = nonnegative(*f, g, c, lambda), warm = nonnegative(*f, g, c, lambda, &nearby);
            EXPECT_LT((cold - warm).norm(), 1e-6 * cold.norm());
            const VectorXd pull = g - (f->g + lambda * lambda * f->m) * cold;
            const double tol = 1e-6 * g.cwiseAbs().maxCoeff();
            for (Eigen::Index i = 0; i < cold.size(); ++i) {
                ASSERT_GE(cold[i], 0.0) << i;
                if (cold[i] > 0) ASSERT_NEAR(pull[i], 0.0, tol) << "free point " << i;
                else ASSERT_LE(pull[i], tol) << "held point " << i;
            }
            nearby = warm;
        }
    }
}

TEST(Reconstruction, AlgorithmNamesListTheProvidedOnes) {
    std::vector<std::string> names;
    for (int i = 0; duReconstructionAlgorithmName(i); ++i) names.push_back(duReconstructionAlgorithmName(i));
    EXPECT_EQ(names, (std::vector<std::string>{"tikhonov-gcv", "TNNLS-GCV", "TNNLS-LCurve", "NNLS-L1"}));
}

}  // namespace
