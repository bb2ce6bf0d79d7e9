// Exported exposure functions: shutter speed, limits, conversions, ADC
// parameters and the search for the optimal shutter speed.
#include "api_test_support.h"

#include <climits>

#include "efm32com/oru_device_interface_ae.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "oru_device_api_valid_filters.h"

#include <algorithm>
#include <vector>

namespace {

class ApiExposure : public VirtualBusTest {};

// Limits need no sensor; values outside them are clamped, and only the
// active sensor gets the value (upper byte to register 37, lower to 5).
TEST_F(ApiExposure, ShutterSpeedIsClampedToTheLimitsAndGoesToTheActiveSensor) {
    int min_limit = 0, max_limit = 0;
    EXPECT_EQ(duGetShutterSpeedLimits(&min_limit, &max_limit), 1);
    EXPECT_EQ(std::make_pair(min_limit, max_limit), std::make_pair(1, 3000));
    connect(2);
    duActivateSensorWithIndex(1);
    for (const auto& [requested, sent] :
         std::vector<std::pair<int, int>>{{0, 1}, {5000, 3000}, {-40, 1}, {1234, 1234}}) {
        EXPECT_EQ(duSetShutterSpeed(requested), 1);
        EXPECT_EQ(vsensor::register_value(1, 37) * 256 + vsensor::register_value(1, 5), sent) << requested;
        EXPECT_EQ(duGetShutterSpeed(), sent) << requested;
    }
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
}

// Gain and range are clamped to 0..1 and 0..255 (-1 each: the defaults 1 and
// 132); gain goes out at bit 1 of register 20. The read-back prints the
// device line and needs both outputs.
TEST_F(ApiExposure, AdcParametersAreClampedToWireValuesAndReadBack) {
    connect(2);
    duActivateSensorWithIndex(1);
    struct Case {
        int gain, range, reg19, reg20;
    };
    for (const Case& c : {Case{2, 300, 132, 0}, Case{1, 255, 255, 2}, Case{-1, -1, 132, 0}, Case{1, 0, 0, 2}}) {
        EXPECT_EQ(duSetSensorParameters(c.gain, c.range), 1);
        EXPECT_EQ(vsensor::register_value(1, 19), c.reg19) << c.gain << "/" << c.range;
        EXPECT_EQ(vsensor::register_value(1, 20), c.reg20) << c.gain << "/" << c.range;
    }
    ASSERT_EQ(duSetSensorParameters(1, 200), 1);
    int gain = 7, range = -1;
    StdoutCapture out;
    EXPECT_EQ(duGetSensorParameters(&gain, nullptr), -2);
    EXPECT_EQ(gain, 7);
    EXPECT_EQ(duGetSensorParameters(&gain, &range), 1);
    EXPECT_EQ(out.text(),
              api_exception_line(lu_ec_memory_is_null) + "[STM] ADC range: 200, Gain: 1, Res: 0, Device Id: 1\n");
    EXPECT_EQ(std::make_pair(gain, range), std::make_pair(1, 200));
    EXPECT_EQ(vsensor::register_value(0, 19), 132);  // sensor 0 untouched
}

// The arithmetic is the device object's (test_device_object); here the
// results and errors as they come out of the exported functions: the active
// sensor's pair, and the sensor-free pair, which gives the same before any
// sensor is connected.
struct ConversionPair {
    const char* name;
    int (*to_ms)(int, int, double*);
    int (*to_shutter)(int, double, int*);
    bool needs_sensor;
};

TEST_F(ApiExposure, ConversionsGiveTheirResultsAndReportBadArguments) {
    for (const ConversionPair& p :
         {ConversionPair{"sensor-free", duConvertShutterSpeedToExposureTime, duConvertExposureTimeToShutterSpeed, false},
          ConversionPair{"active sensor", duShutterSpeedToExposureTime, duExposureTimeToShutterSpeed, true}}) {
        SCOPED_TRACE(p.name);
        if (p.needs_sensor) connect(1);
        double ms = -1.0;
        int ss = -1;
        EXPECT_EQ(p.to_ms(3, 3000, &ms), 1);
        EXPECT_DOUBLE_EQ(ms, 912.0);  // 2736160 / 3000
        EXPECT_EQ(p.to_shutter(2, 912.0, &ss), 1);
        EXPECT_EQ(ss, 3453);
        StdoutCapture out;
        EXPECT_EQ(p.to_ms(1, 10, nullptr), -2);
        EXPECT_EQ(p.to_shutter(1, 10.0, nullptr), -2);
        EXPECT_EQ(p.to_ms(0, 10, &ms), -24);
        EXPECT_EQ(p.to_shutter(1, 1e300, &ss), -24);
        EXPECT_EQ(out.text(), api_exception_line(lu_ec_memory_is_null) + api_exception_line(lu_ec_memory_is_null) +
                                  api_exception_line(lu_ec_ill_defined_input) +
                                  api_exception_line(lu_ec_ill_defined_input));
    }
}

// The count over values: at full scale means 4095 (for an average: every
// frame clipped) or the 4096 of a stuck filter; 4094.9 is not.
TEST_F(ApiExposure, SaturatedFiltersAreThoseWhoseAverageIsAtFullScale) {
    const std::vector<double> values = {0.0, 4094.9, 4095.0, 4096.0, 4095.0, 1000.0};
    for (const auto& [count, expected] : std::vector<std::pair<int, int>>{{6, 3}, {3, 1}, {2, 0}, {0, 0}})
        EXPECT_EQ(duCountSaturatedFilters(values.data(), count), expected) << count;
    EXPECT_EQ(duCountSaturatedFilters(nullptr, 3), -19);
    EXPECT_EQ(duCountSaturatedFilters(values.data(), -1), -24);
}

// Frames in which the given 0-based filters read `inside` and all others `outside`.
void set_filters(int dev, const std::vector<int>& zero_based, uint16_t inside, uint16_t outside) {
    std::vector<uint16_t> pattern(1024, outside);
    for (int index : zero_based) pattern[static_cast<std::size_t>(index)] = inside;
    vsensor::set_pattern(dev, pattern);
}

TEST_F(ApiExposure, OptimalShutterSpeedWithoutListUsesTheDefaultFilters) {
    connect(1);
    // The default table is taken as 1-based like a caller's list: only the
    // filters it names (minus one) are in the window, every other filter is
    // far above it. Reading any other filter (say 990, which a 0-based use of
    // the table would include) would move the search off 5.
    std::vector<int> zero_based;
    for (int index : g_default_valid_filters) zero_based.push_back(index - 1);
    set_filters(0, zero_based, 3000, 4095);
    StdoutCapture out;
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), 5);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(vsensor::shutter_speed(0), 5);
    EXPECT_EQ(m_gAEParams.upper_dn_value, 3500);
    EXPECT_EQ(m_gAEParams.lower_dn_value, 2900);
    EXPECT_EQ(m_gAEParams.target_dn_value, 3200);
}

// Lists the search would index outside the frame with, and targets that leave
// no window, are refused before any USB traffic.
TEST_F(ApiExposure, OptimalShutterSpeedRejectsBadListsAndTargetsBeforeAnyTraffic) {
    connect(1);
    std::vector<int> too_long(1025, 5);
    std::vector<int> full(1024);
    for (int i = 0; i < 1024; ++i) full[static_cast<size_t>(i)] = i + 1;
    full[1023] = 1025;  // the last of 1024 entries is out of range
    struct Case {
        const char* what;
        std::vector<int> list;
        int target;
    };
    for (const Case& c :
         {Case{"zero", {1, 0, 3}, 3500}, Case{"negative", {-5}, 3500}, Case{"far negative", {-100000000}, 3500},
          Case{"above 1024", {1025}, 3500}, Case{"1025 entries", too_long, 3500}, Case{"last of 1024 bad", full, 3500},
          Case{"target 0", {1, 2}, 0}, Case{"target INT_MIN", {1, 2}, INT_MIN}}) {
        vsensor::clear_events();
        std::vector<int> list = c.list;
        StdoutCapture out;
        const int result = duGetOptimalShutterSpeed2(list.data(), static_cast<int>(list.size()), c.target);
        EXPECT_EQ(out.text(), api_exception_line(lu_ec_ill_defined_input)) << c.what;
        EXPECT_EQ(result, -lu_ec_ill_defined_input) << c.what;
        EXPECT_EQ(vsensor::transcript(0), "") << c.what;
    }
    int result = 0;
    {
        StdoutCapture out;
        result = duGetOptimalShutterSpeed2(nullptr, 0, -1);
    }
    EXPECT_EQ(result, -lu_ec_ill_defined_input) << "target checked without a list";
    // The edges themselves are searched: filters 1 and 1024, a count of 0
    // with a list (the default set), and a target above 4095.
    int edges[] = {1, 1024};
    EXPECT_GT(duGetOptimalShutterSpeed2(edges, 2, 5000), 0);
    EXPECT_GT(duGetOptimalShutterSpeed(edges, 0), 0);
}

// Targets above 4000 search at 4000; 3450 is inside the window of 4000
// (3400..4000) but below that of 4500.
TEST_F(ApiExposure, OptimalShutterSpeedTargetIsCappedAtFourThousand) {
    connect(1);
    int list[] = {1, 2, 3};
    struct Case {
        int level, target, upper, lower;
    };
    for (const Case& c : {Case{3450, 4500, 4000, 3400}, Case{3000, 3600, 3600, 3000}}) {
        set_filters(0, {0, 1, 2}, static_cast<uint16_t>(c.level), 100);
        EXPECT_EQ(duGetOptimalShutterSpeed2(list, 3, c.target), 5) << c.target;
        EXPECT_EQ(m_gAEParams.upper_dn_value, c.upper);
        EXPECT_EQ(m_gAEParams.lower_dn_value, c.lower);
        EXPECT_EQ(m_gAEParams.mean_upper_dn_value, c.upper);
    }
}

TEST_F(ApiExposure, OptimalShutterSpeedSaturatedAtShutterOneGivesMinusOne) {
    connect(1);
    vsensor::set_constant_frame(0, 4095);
    StdoutCapture out;
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), -1);
    EXPECT_EQ(out.text(), "");  // a search result, not an error
}

// The list is 1-based: {1, 2, 3} are filters 0, 1 and 2.
TEST_F(ApiExposure, OptimalShutterSpeedRunsOnTheActiveSensorWithAOneBasedList) {
    connect(2);
    set_filters(0, {0, 1, 2}, 100, 100);
    set_filters(1, {0, 1, 2}, 3000, 4095);
    duActivateSensorWithIndex(1);
    int list[] = {1, 2, 3};
    EXPECT_EQ(duGetOptimalShutterSpeed(list, 3), 5);
    EXPECT_EQ(vsensor::shutter_speed(1), 5);
    EXPECT_EQ(vsensor::shutter_speed(0), 1);
}

}  // namespace
