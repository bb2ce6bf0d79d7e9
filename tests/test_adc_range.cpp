// ADC range table: size, order, single-precision arithmetic, 8-bit row index.
#include "oru_device_utils.h"

#include <gtest/gtest.h>

TEST(AdcRange, VrtOuterVrbInnerAndTheVrbEndIsNotUsed) {
    oru_device_utils utils, other_end;
    utils.calc_adc_range(1.0f, 2.0f, 0.5f, 0.25f, 99.0f, 0.125f, 10.0f, 3);
    other_end.calc_adc_range(1.0f, 2.0f, 0.5f, 0.25f, -50.0f, 0.125f, 10.0f, 3);
    const auto& table = utils.m_AdcRangeTable;
    ASSERT_EQ(table.size(), 9u);
    const float vrts[3] = {1.0f, 1.5f, 2.0f};
    const float vrbs[3] = {0.25f, 0.375f, 0.5f};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(table[i].adc_index, i);
        EXPECT_EQ(table[i].vrt, vrts[i / 3]) << i;
        EXPECT_EQ(table[i].vrb, vrbs[i % 3]) << i;
        EXPECT_EQ(other_end.m_AdcRangeTable[i].vrb, vrbs[i % 3]) << i;
        EXPECT_EQ(table[i].range, table[i].vrt - table[i].vrb) << i;
        EXPECT_EQ(table[i].resolution, table[i].range * 10.0f) << i;
    }
}

// Each call replaces the table. The size is computed in single precision and
// rounded half up: in float 1 / 0.4f + 1 is exactly 3.5 (4 rows), in double
// just below it; (1 / 0.56f + 1) x 7 is 19.5 in float only.
TEST(AdcRange, SizeInSinglePrecisionRoundedHalfUp) {
    struct Case {
        float vrt_start, vrt_end, vrt_step;
        int vrb_steps;
        std::size_t rows;
    };
    oru_device_utils utils;
    for (const Case& c : {Case{0.0f, 10.0f, 1.0f, 5, 55}, Case{0.0f, 1.0f, 0.4f, 1, 4}, Case{0.0f, 1.0f, 0.56f, 7, 20},
                          Case{0.0f, 1.2f, 0.5f, 1, 3}, Case{3.0f, 3.0f, 1.0f, 2, 2}, Case{1.5f, 1.0f, 0.5f, 3, 0},
                          Case{2.0f, 1.0f, 0.5f, 3, 0}, Case{1.0f, 2.0f, 0.5f, 0, 0}}) {
        utils.calc_adc_range(c.vrt_start, c.vrt_end, c.vrt_step, 0.5f, 0.0f, 0.1f, 1.0f, c.vrb_steps);
        EXPECT_EQ(utils.m_AdcRangeTable.size(), c.rows) << c.vrt_start << ".." << c.vrt_end << " by " << c.vrt_step;
    }
}

TEST(AdcRange, RowIndexKeepsOnlyEightBits) {
    oru_device_utils utils;
    utils.calc_adc_range(0.0f, 299.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1);
    const auto& table = utils.m_AdcRangeTable;
    ASSERT_EQ(table.size(), 300u);
    EXPECT_EQ(table[255].adc_index, 255);
    EXPECT_EQ(table[256].adc_index, 0);
    EXPECT_EQ(table[299].adc_index, 43);
    EXPECT_EQ(table[299].vrt, 299.0f);
}
