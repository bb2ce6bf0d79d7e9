// Auto exposure: parameters, valid-filter extraction, and the shutter-speed
// search on scenes whose brightness follows the shutter speed.
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"

#include <algorithm>
#include <numeric>

using streamtest::shutter_dependent;
using streamtest::shutter_speeds_written;

namespace {

std::vector<int> all_filters() {
    std::vector<int> filters(1024);
    std::iota(filters.begin(), filters.end(), 0);
    return filters;
}

// Filter 0 reads peak(S), every other filter background(S).
vsensor::FrameSource peak_scene(std::function<int(int)> peak, std::function<int(int)> background) {
    return shutter_dependent(
        [peak, background](int iFilter, int iSS) { return iFilter == 0 ? peak(iSS) : background(iSS); });
}

class AutoExposure : public streamtest::StreamTest {
protected:
    void SetUp() override {
        StreamTest::SetUp();
        bring_up(1);
    }

    int search(const std::vector<int>& filters = all_filters(), int iSleepMs = 0) {
        m_eCode = lu_ec_undefined_fail;
        return find_optimal_shutter_speed_with_ae(filters, 10, iSleepMs, 0, &m_eCode);
    }

    ORU_ERROR_CODE m_eCode = lu_ec_undefined_fail;
};

}  // namespace

// ---- parameters ----

// The short setter derives the window from the saturation level; the long
// one sets the five values; neither touches the others (the defaults show in
// the searches below: start at 5, longest 1200).
TEST(AutoExposureParameters, TheTwoSetters) {
    m_gAEParams.init();
    EXPECT_EQ(set_params_for_ae_module(4095, 3), 1);
    auto values = [] {
        const auto& p = m_gAEParams;
        return std::vector<int>{p.lower_dn_value, p.target_dn_value, p.upper_dn_value, p.mean_upper_dn_value,
                                p.max_ss,         p.initial_ss,      p.min_ss,         p.mode};
    };
    EXPECT_EQ(values(), (std::vector<int>{3495, 3795, 4095, 4095, 1200, 5, 1, 1}));
    EXPECT_EQ(set_params_for_ae_module(100, 200, 50, 75, 600, 9), 1);
    EXPECT_EQ(values(), (std::vector<int>{50, 100, 200, 75, 600, 5, 1, 1}));
    m_gAEParams.init();
}

TEST(ValidFilters, PicksTheListedFiltersInListOrderAndRejectsListsThatDoNotFit) {
    std::vector<double> out{9.0};
    EXPECT_EQ(get_valid_filters_only({10, 11, 12, 13}, {3, 0, 2}, out), 1);
    EXPECT_EQ(out, (std::vector<double>{13, 10, 12}));
    const std::vector<double> frame{10, 11, 12};
    for (const auto& [values, list] : std::vector<std::pair<std::vector<double>, std::vector<int>>>{
             {frame, {}}, {frame, {0, 1, 2, 0}}, {frame, {0, 3}}, {{}, {0}}}) {
        out = {9.0};
        EXPECT_EQ(get_valid_filters_only(values, list, out), 0) << list.size() << " filters";
        EXPECT_TRUE(out.empty());
    }
}

// ---- search ----

TEST_F(AutoExposure, BrightestFilterInTheWindowAtTheInitialSpeedIsTakenAtOnce) {
    vsensor::set_frame_source(0, peak_scene([](int s) { return 700 * s; }, [](int) { return 64; }));
    EXPECT_EQ(search(all_filters(), 7), 5);
    EXPECT_EQ(m_eCode, lu_ec_success);
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5}));
    std::string text = vsensor::transcript();
    size_t nSettlePauses = 0;
    for (size_t at = text.find("pause 7 ms"); at != std::string::npos; at = text.find("pause 7 ms", at + 1)) {
        ++nSettlePauses;
    }
    EXPECT_EQ(nSettlePauses, 2u) << "the caller's pause before each measurement";
}

TEST_F(AutoExposure, DarkReadingTakesASecantStepToTheTarget) {
    vsensor::set_frame_source(0, peak_scene([](int s) { return 220 * s; }, [](int) { return 64; }));
    EXPECT_EQ(search(), 15);  // 5 * 3300 / 1100
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5, 15}));
}

TEST_F(AutoExposure, DarkSceneIsClampedToTheLongestSpeedAndReturnsIt) {
    vsensor::set_frame_source(0, shutter_dependent([](int, int s) { return s + 64; }));
    EXPECT_EQ(search(), 1200);
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5, 239, 1200}));
}

TEST_F(AutoExposure, ProposalBelowTheShortestSpeedReturnsItWithoutMeasuring) {
    // Saturated peak over a background that barely changes: the secant
    // step overshoots far below the shortest speed.
    vsensor::set_frame_source(0, peak_scene([](int s) { return 3000 * s; }, [](int s) { return 1000 + s; }));
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5, 4}));
    EXPECT_EQ(vsensor::shutter_speed(0), 4) << "left at the last speed measured";
}

TEST_F(AutoExposure, MeansAreSummedInIntegersSoEveryFiltersFractionIsDropped) {
    // Ten-frame averages of 1000 + S + (S % 10) / 10 on all but the peak
    // filter: the fractions would move the secant steps if they were summed.
    vsensor::set_frame_source(0, [](uint64_t frame_no, uint16_t* out) {
        int s = g_iCurShutterSpeed;
        int extra = (frame_no - 2) % 10 < static_cast<uint64_t>(s % 10) ? 1 : 0;  // frames 2..11 are averaged
        out[0] = static_cast<uint16_t>(std::min(4095, 150 * s));
        for (int i = 1; i < 1024; ++i) out[i] = static_cast<uint16_t>(std::min(4095, 1000 + s) + extra);
    });
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5, 16, 349, 88}));
}

TEST_F(AutoExposure, FullySaturatedSensorAtTheShortestSpeedGivesMinusOne) {
    vsensor::set_constant_frame(0, 4095);
    EXPECT_EQ(search(), -1);
    EXPECT_EQ(m_eCode, lu_ec_success);
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1}));
}

TEST_F(AutoExposure, OneUnsaturatedFilterPassesTheSaturationCheck) {
    vsensor::set_frame_source(0, shutter_dependent([](int i, int) { return i == 1023 ? 100 : 4095; }));
    EXPECT_EQ(search(), 1);  // too bright at 5, then at the shortest speed
    EXPECT_EQ(shutter_speeds_written(), (std::vector<int>{1, 5, 1}));
}

TEST_F(AutoExposure, FiltersOutsideTheListDoNotSteerTheSearch) {
    vsensor::set_frame_source(0, shutter_dependent([](int i, int s) { return i == 0 ? 4095 : i == 1 ? 700 * s : 64; }));
    std::vector<int> filters = all_filters();
    filters.erase(filters.begin());
    EXPECT_EQ(search(filters), 5);
}

TEST_F(AutoExposure, ProposalRepeatingTheSameSpeedEndsAtTheMeasurementBound) {
    m_gAEParams.initial_ss = 4;
    // At 4 the peak reads 2950, just too dark, and every step proposes 4 again.
    vsensor::set_frame_source(0, peak_scene([](int s) { return 2950 * s / 4; }, [](int) { return 64; }));
    EXPECT_EQ(search(), 4);
    std::vector<int> speeds = shutter_speeds_written();
    ASSERT_EQ(speeds.size(), static_cast<size_t>(ORU_AE_MAX_MEASUREMENTS));
    EXPECT_EQ(speeds.front(), 1);
    EXPECT_EQ(std::count(speeds.begin(), speeds.end(), 4), ORU_AE_MAX_MEASUREMENTS - 1);
}

TEST_F(AutoExposure, SceneWithoutAnAcceptableSpeedEndsAtTheBoundOnTheLastSpeedMeasured) {
    // Too dark up to 5, saturated from 6 on: the steps keep circling.
    vsensor::set_frame_source(
        0, peak_scene([](int s) { return s < 6 ? 500 * s : 4095; }, [](int s) { return 100 + 5 * s; }));
    EXPECT_EQ(search(), 2);
    std::vector<int> speeds = shutter_speeds_written();
    ASSERT_EQ(speeds.size(), static_cast<size_t>(ORU_AE_MAX_MEASUREMENTS));
    EXPECT_EQ(std::vector<int>(speeds.begin(), speeds.begin() + 10),
              (std::vector<int>{1, 5, 7, 2, 48, 35, 24, 15, 8, 2}));
    EXPECT_EQ(speeds.back(), 2);
}

TEST_F(AutoExposure, ModeOtherThanOneKeepsMeasuringAnAcceptableSpeedUntilTheBound) {
    m_gAEParams.mode = 2;
    vsensor::set_frame_source(0, peak_scene([](int s) { return 700 * s; }, [](int) { return 64; }));
    EXPECT_EQ(search(), 5);
    EXPECT_EQ(shutter_speeds_written().size(), static_cast<size_t>(ORU_AE_MAX_MEASUREMENTS));
}
