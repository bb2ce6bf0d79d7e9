// Published sensor tables: the filter index groups must not overlap, and the
// subgroup ranges must ascend with gaps between them.
#include "efm32com/oru_sensor_constants.h"

#include <gtest/gtest.h>

#include <set>

TEST(SensorConstants, TypeAndBackgroundFiltersDoNotOverlap) {
    std::set<int> all(std::begin(SENSOR_TYPE_FILTER_INDEX), std::end(SENSOR_TYPE_FILTER_INDEX));
    EXPECT_EQ(all.size(), 8u);
    for (int index : SENSOR_TYPE_BACKGROUND_FILTER_INDEX) EXPECT_EQ(all.count(index), 0u) << index;
    for (int index : all) EXPECT_LT(index, 1024);
}

TEST(SensorConstants, SubgroupsAscendAndLeaveGaps) {
    ASSERT_EQ(sizeof(subgroup_range) / sizeof(subgroup_range[0]), 18u);
    for (int i = 0; i < 18; ++i) {
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
