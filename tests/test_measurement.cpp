// Measurement modes against stored darks and references: the formulas, where
// the dark comes from, what is refused, and that nothing is clipped.
#include "oru_measurement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <vector>

namespace {

constexpr duReadingSettings kSettings{2, 1, 1, 132};  // 1.984 ms exposure
constexpr double kExposureMs = 1.984;
constexpr int kProbe = 0;           // an ordinary lit filter
constexpr int kBelowDark = 5;       // sample under the dark: stays negative
constexpr int kDeadReference = 9;   // reference under its dark: NaN

// Sample 600 DN, background filters 90/100/110 (level 100); stored dark 80;
// reference 1100 with background filters at 100.
std::vector<double> sample_values() {
    std::vector<double> v(DU_FILTER_COUNT, 600.0);
    v[kBelowDark] = 50.0;
    v[1011] = 90.0, v[1012] = 100.0, v[1013] = 110.0;
    return v;
}

duStoredReading stored(double level, duReadingSettings settings, int saturated) {
    duStoredReading s{};
    for (double& v : s.values) v = level;
    s.settings = settings;
    s.averages = 10;
    s.saturated_filters = saturated;
    return s;
}

enum class Stored { none, ok, other_shutter, other_clock, other_gain, other_range, saturated };

duReadingSettings settings_for(Stored s) {
    duReadingSettings r = kSettings;
    if (s == Stored::other_shutter) r.shutter_speed = 4;
    if (s == Stored::other_clock) r.master_clock = 2;
    if (s == Stored::other_gain) r.adc_gain = 0;
    if (s == Stored::other_range) r.adc_range = 65;
    return r;
}

struct Row {
    const char* name;
    int mode;
    Stored dark, reference;
    int result, refusal;
    double probe = 0;  // output at kProbe
    double below_dark = 0;
    int dark_source = 0, invalid = 0;
};

const double kNaN = std::nan("");
const Row kRows[] = {
    {"raw", DU_MODE_RAW, Stored::none, Stored::none, 1, DU_REFUSAL_NONE, 600, 50, DU_DARK_NONE, 0},
    {"raw_ignores_mismatched_dark", DU_MODE_RAW, Stored::other_shutter, Stored::none, 1, DU_REFUSAL_NONE, 600, 50,
     DU_DARK_NONE, 0},
    {"dark_from_background", DU_MODE_DARK, Stored::none, Stored::none, 1, DU_REFUSAL_NONE, 500, -50,
     DU_DARK_BACKGROUND, 0},
    {"dark_stored", DU_MODE_DARK, Stored::ok, Stored::none, 1, DU_REFUSAL_NONE, 520, -30, DU_DARK_STORED, 0},
    {"rate_stored", DU_MODE_RATE, Stored::ok, Stored::none, 1, DU_REFUSAL_NONE, 520 / kExposureMs,
     -30 / kExposureMs, DU_DARK_STORED, 0},
    {"rate_background", DU_MODE_RATE, Stored::none, Stored::none, 1, DU_REFUSAL_NONE, 500 / kExposureMs,
     -50 / kExposureMs, DU_DARK_BACKGROUND, 0},
    {"transmittance_stored", DU_MODE_TRANSMITTANCE, Stored::ok, Stored::ok, 1, DU_REFUSAL_NONE, 100.0 * 520 / 1020,
     100.0 * -30 / 1020, DU_DARK_STORED, 1},
    {"reflectance_stored", DU_MODE_REFLECTANCE, Stored::ok, Stored::ok, 1, DU_REFUSAL_NONE, 100.0 * 520 / 1020,
     100.0 * -30 / 1020, DU_DARK_STORED, 1},
    // The reference's own background filters sit at its dark level: 3 more NaN.
    {"transmittance_background", DU_MODE_TRANSMITTANCE, Stored::none, Stored::ok, 1, DU_REFUSAL_NONE, 50.0,
     -5.0, DU_DARK_BACKGROUND, 4},
    {"absorbance_stored", DU_MODE_ABSORBANCE, Stored::ok, Stored::ok, 1, DU_REFUSAL_NONE,
     -std::log10(520.0 / 1020), kNaN, DU_DARK_STORED, 2},
    {"ratio_needs_reference", DU_MODE_TRANSMITTANCE, Stored::ok, Stored::none, -24, DU_REFUSAL_NEEDS_REFERENCE},
    {"absorbance_needs_reference", DU_MODE_ABSORBANCE, Stored::none, Stored::none, -24,
     DU_REFUSAL_NEEDS_REFERENCE},
    {"dark_other_shutter", DU_MODE_DARK, Stored::other_shutter, Stored::none, -24, DU_REFUSAL_DARK_SETTINGS},
    {"dark_other_clock", DU_MODE_RATE, Stored::other_clock, Stored::none, -24, DU_REFUSAL_DARK_SETTINGS},
    {"dark_other_gain_in_ratio", DU_MODE_TRANSMITTANCE, Stored::other_gain, Stored::ok, -24,
     DU_REFUSAL_DARK_SETTINGS},
    {"reference_other_gain", DU_MODE_TRANSMITTANCE, Stored::ok, Stored::other_gain, -24,
     DU_REFUSAL_REFERENCE_SETTINGS},
    {"reference_other_range", DU_MODE_ABSORBANCE, Stored::none, Stored::other_range, -24,
     DU_REFUSAL_REFERENCE_SETTINGS},
    {"dark_saturated", DU_MODE_DARK, Stored::saturated, Stored::none, -24, DU_REFUSAL_DARK_SATURATED},
    {"reference_saturated", DU_MODE_REFLECTANCE, Stored::ok, Stored::saturated, -24,
     DU_REFUSAL_REFERENCE_SATURATED},
    {"dark_mode_ignores_reference", DU_MODE_DARK, Stored::ok, Stored::saturated, 1, DU_REFUSAL_NONE, 520, -30,
     DU_DARK_STORED, 0},
    {"unknown_mode", 6, Stored::none, Stored::none, -24, DU_REFUSAL_BAD_MODE},
    {"negative_mode", -1, Stored::none, Stored::none, -24, DU_REFUSAL_BAD_MODE},
};

class Measure : public ::testing::TestWithParam<Row> {};

TEST_P(Measure, ModeDarkReferenceAndRefusals) {
    const Row& row = GetParam();
    const std::vector<double> sample = sample_values();
    auto make = [](Stored s, double level) -> std::optional<duStoredReading> {
        if (s == Stored::none) return std::nullopt;
        return stored(level, settings_for(s), s == Stored::saturated ? 3 : 0);
    };
    std::optional<duStoredReading> dark = make(row.dark, 80.0), reference = make(row.reference, 1100.0);
    if (reference) {
        reference->values[kDeadReference] = 70.0;
        for (int i : {1011, 1012, 1013}) reference->values[i] = 100.0;
    }
    std::vector<unsigned char> saturated(DU_FILTER_COUNT, 0);
    saturated[3] = saturated[700] = 1;
    std::vector<double> out(DU_FILTER_COUNT, -1234.0);
    duMeasureResult result{};

    int rc = duMeasure(row.mode, sample.data(), &kSettings, saturated.data(), dark ? &*dark : nullptr,
                       reference ? &*reference : nullptr, out.data(), &result);
    ASSERT_EQ(rc, row.result);
    EXPECT_EQ(result.refusal, row.refusal);
    EXPECT_STRNE(duMeasureRefusalText(result.refusal), "unknown refusal");
    if (rc != 1) {
        EXPECT_EQ(out[kProbe], -1234.0) << "a refused measurement writes nothing";
        EXPECT_STRNE(duMeasureRefusalText(result.refusal), "");
        return;
    }
    EXPECT_NEAR(out[kProbe], row.probe, 1e-9);
    if (std::isnan(row.below_dark))
        EXPECT_TRUE(std::isnan(out[kBelowDark]));
    else
        EXPECT_NEAR(out[kBelowDark], row.below_dark, 1e-9);
    EXPECT_EQ(result.dark_source, row.dark_source);
    EXPECT_EQ(result.invalid_count, row.invalid);
    EXPECT_EQ(result.saturated_count, 2);
    EXPECT_DOUBLE_EQ(result.exposure_us, 1984.0);
    EXPECT_EQ(std::isnan(out[kDeadReference]), reference.has_value() && row.mode >= DU_MODE_TRANSMITTANCE);
}

INSTANTIATE_TEST_SUITE_P(Modes, Measure, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Measure, NullArgumentsAndRateWithoutExposure) {
    std::vector<double> sample = sample_values(), out(DU_FILTER_COUNT);
    duMeasureResult result{};
    EXPECT_EQ(duMeasure(DU_MODE_RAW, nullptr, &kSettings, nullptr, nullptr, nullptr, out.data(), &result), -19);
    EXPECT_EQ(duMeasure(DU_MODE_RAW, sample.data(), nullptr, nullptr, nullptr, nullptr, out.data(), &result), -19);
    EXPECT_EQ(duMeasure(DU_MODE_RAW, sample.data(), &kSettings, nullptr, nullptr, nullptr, nullptr, &result), -19);
    duReadingSettings no_clock = kSettings;
    no_clock.master_clock = 0;
    EXPECT_EQ(duMeasure(DU_MODE_RATE, sample.data(), &no_clock, nullptr, nullptr, nullptr, out.data(), &result), -24);
    EXPECT_EQ(result.refusal, DU_REFUSAL_BAD_EXPOSURE);
    // Without a mask nothing is counted saturated; without a result it still works.
    EXPECT_EQ(duMeasure(DU_MODE_DARK, sample.data(), &no_clock, nullptr, nullptr, nullptr, out.data(), nullptr), 1);
    EXPECT_EQ(out[kProbe], 500.0);
}

// The sensor integrates (912 s + 160) / clock microseconds; the published
// millisecond conversion truncates this, the exact one must not.
TEST(ExactExposure, NoIntegerDivision) {
    struct {
        int clock, shutter, result;
        double us;
    } rows[] = {{1, 1, 1, 1072.0}, {1, 2, 1, 1984.0}, {2, 1, 1, 536.0}, {1, 3000, 1, 2736160.0},
                {3, 2, 1, 1984.0 / 3}, {0, 1, -24, 0.0}, {1, 0, -24, 0.0}, {-1, 5, -24, 0.0}};
    for (const auto& r : rows) {
        double us = 0.0;
        EXPECT_EQ(duExactExposureTimeUs(r.clock, r.shutter, &us), r.result) << r.clock << " " << r.shutter;
        EXPECT_DOUBLE_EQ(us, r.us) << r.clock << " " << r.shutter;
    }
    EXPECT_EQ(duExactExposureTimeUs(1, 1, nullptr), -24);
}

TEST(MeasureModes, NamesUnitsRoundTrip) {
    for (int mode = DU_MODE_RAW; mode <= DU_MODE_ABSORBANCE; ++mode) {
        ASSERT_NE(duMeasureModeName(mode), nullptr);
        EXPECT_EQ(duMeasureModeFromName(duMeasureModeName(mode)), mode);
    }
    EXPECT_STREQ(duMeasureModeUnit(DU_MODE_RATE), "DN/ms");
    EXPECT_STREQ(duMeasureModeUnit(DU_MODE_TRANSMITTANCE), "%");
    EXPECT_EQ(duMeasureModeName(6), nullptr);
    EXPECT_EQ(duMeasureModeFromName("Raw"), -1);
    EXPECT_EQ(duMeasureModeFromName(nullptr), -1);
}

}  // namespace
