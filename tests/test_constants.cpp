// Published sensor tables: exact values, order and the layout of the filter
// index ranges.
#include "efm32com/oru_sensor_constants.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

template <typename T, size_t N>
static std::vector<T> as_vector(const T (&table)[N]) {
    return std::vector<T>(table, table + N);
}

TEST(SensorConstants, FilterIndexTables) {
    EXPECT_EQ(as_vector(SENSOR_TYPE_FILTER_INDEX), (std::vector<int>{1021, 1020, 1019, 1018, 1017, 1016, 1015, 1014}));
    EXPECT_EQ(as_vector(SENSOR_TYPE_BACKGROUND_FILTER_INDEX), (std::vector<int>{1011, 1012, 1013}));
    EXPECT_EQ(sizeof(SENSOR_TYPE_FILTER_INDEX[0]), 4u);
}

TEST(SensorConstants, TypeAndBackgroundFiltersDoNotOverlap) {
    std::set<int> all(std::begin(SENSOR_TYPE_FILTER_INDEX), std::end(SENSOR_TYPE_FILTER_INDEX));
    for (int index : SENSOR_TYPE_BACKGROUND_FILTER_INDEX) EXPECT_EQ(all.count(index), 0u) << index;
    for (int index : all) EXPECT_LT(index, 1024);
}

TEST(SensorConstants, AdcRangesAndVisibleRange) {
    EXPECT_EQ(as_vector(Efm32_ADCRangeList), (std::vector<unsigned char>{65, 69, 73}));
    EXPECT_EQ(iVisibleRangeStartIndex, 380);
    EXPECT_EQ(iVisibleRangeEndIndex, 780);
}

TEST(SensorConstants, LightSourcesKeepTheirNumbersAsPublished) {
    EXPECT_EQ(as_vector(wavelength_list),
              (std::vector<int>{468, 529, 572, 610, 640, 740, 880, 900, 190, 422, 430, 850}));
    std::vector<std::string> names(std::begin(wavelength_type), std::end(wavelength_type));
    EXPECT_EQ(names, (std::vector<std::string>{"468 nm", "529 nm", "572 nm", "610 nm", "640 nm", "740 nm", "940 nm",
                                               "574 nm", "15000K", "6600K", "430 nm", "850 nm"}));
}

TEST(SensorConstants, SubgroupsAscendAndLeaveGaps) {
    const double expected[18][2] = {{4, 255},   {257, 272}, {274, 305}, {307, 322}, {330, 387}, {388, 447},
                                    {450, 483}, {485, 506}, {508, 574}, {577, 600}, {602, 649}, {651, 674},
                                    {680, 701}, {704, 727}, {730, 767}, {768, 783}, {816, 859}, {862, 898}};
    ASSERT_EQ(sizeof(subgroup_range) / sizeof(subgroup_range[0]), 18u);
    for (int i = 0; i < 18; ++i) {
        EXPECT_EQ(subgroup_range[i][0], expected[i][0]) << i;
        EXPECT_EQ(subgroup_range[i][1], expected[i][1]) << i;
        EXPECT_LE(subgroup_range[i][0], subgroup_range[i][1]) << i;
        if (i > 0) {
            EXPECT_GT(subgroup_range[i][0], subgroup_range[i - 1][1]) << i;
        }
    }
    auto in_some_group = [](int filter) {
        for (const auto& range : subgroup_range)
            if (filter >= range[0] && filter <= range[1]) return true;
        return false;
    };
    EXPECT_FALSE(in_some_group(256));
    EXPECT_FALSE(in_some_group(273));
    for (int filter = 784; filter <= 815; ++filter) EXPECT_FALSE(in_some_group(filter)) << filter;
    EXPECT_TRUE(in_some_group(4));
    EXPECT_TRUE(in_some_group(898));
}

TEST(SensorConstants, ReconstructionAlgorithmNamesInOrder) {
    std::vector<std::string> names(std::begin(pReconAlgoType), std::end(pReconAlgoType));
    EXPECT_EQ(names, (std::vector<std::string>{"TNNLS-LCurve", "TNNLS-GCV", "NNLS-SC", "NNLS-SCA-LCurve",
                                               "NNLS-SCA-GCV", "NNLS-L1"}));
}
