// ADC range table: size, order, single-precision arithmetic, 8-bit row index.
#include "oru_device_utils.h"

#include <gtest/gtest.h>

TEST(AdcRange, VrtOuterVrbInner) {
    oru_device_utils utils;
    utils.calc_adc_range(1.0f, 2.0f, 0.5f, 0.25f, 99.0f, 0.125f, 10.0f, 3);
    const auto& table = utils.m_AdcRangeTable;
    ASSERT_EQ(table.size(), 9u);
    const float vrts[3] = {1.0f, 1.5f, 2.0f};
    const float vrbs[3] = {0.25f, 0.375f, 0.5f};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(table[i].adc_index, i);
        EXPECT_EQ(table[i].vrt, vrts[i / 3]) << i;
        EXPECT_EQ(table[i].vrb, vrbs[i % 3]) << i;
        EXPECT_EQ(table[i].range, table[i].vrt - table[i].vrb) << i;
        EXPECT_EQ(table[i].resolution, table[i].range * 10.0f) << i;
    }
    EXPECT_EQ(table[4].vrt, 1.5f);
    EXPECT_EQ(table[4].vrb, 0.375f);
}

TEST(AdcRange, VrbEndIsNotUsed) {
    oru_device_utils a, b;
    a.calc_adc_range(0.0f, 1.0f, 0.1f, 0.0f, 0.0f, 0.1f, 1.0f, 4);
    b.calc_adc_range(0.0f, 1.0f, 0.1f, 0.0f, -50.0f, 0.1f, 1.0f, 4);
    ASSERT_EQ(a.m_AdcRangeTable.size(), b.m_AdcRangeTable.size());
    ASSERT_EQ(a.m_AdcRangeTable.size(), 44u);
    for (size_t i = 0; i < a.m_AdcRangeTable.size(); ++i) EXPECT_EQ(a.m_AdcRangeTable[i].vrb, b.m_AdcRangeTable[i].vrb);
}

TEST(AdcRange, SizeIsComputedInSinglePrecisionAndRoundedHalfUp) {
    // In float, 1 / 0.4f + 1 is exactly 3.5, which rounds to 4; in double
    // it is just below 3.5 (3 rows), and truncation would also give 3.
    oru_device_utils utils;
    utils.calc_adc_range(0.0f, 1.0f, 0.4f, 0.0f, 0.0f, 0.0f, 1.0f, 1);
    ASSERT_EQ(utils.m_AdcRangeTable.size(), 4u);
    EXPECT_EQ(utils.m_AdcRangeTable[3].vrt, 3.0f * 0.4f);
    // (1 / 0.56f + 1) x 7 is 19.5 in float (20 rows) but just below it when
    // the sum or product is taken in double (19 rows).
    utils.calc_adc_range(0.0f, 1.0f, 0.56f, 0.0f, 0.0f, 0.0f, 1.0f, 7);
    EXPECT_EQ(utils.m_AdcRangeTable.size(), 20u);
    // 2.4 steps + 1 = 3.4 rounds down.
    utils.calc_adc_range(0.0f, 1.2f, 0.5f, 0.0f, 0.0f, 0.0f, 1.0f, 1);
    EXPECT_EQ(utils.m_AdcRangeTable.size(), 3u);
}

TEST(AdcRange, EndBelowStartOrNoRangeGivesEmptyTable) {
    oru_device_utils utils;
    utils.calc_adc_range(1.5f, 1.0f, 0.5f, 0.0f, 0.0f, 0.1f, 1.0f, 3);  // (-1 + 1) x 3 = 0
    EXPECT_TRUE(utils.m_AdcRangeTable.empty());
    utils.calc_adc_range(2.0f, 1.0f, 0.5f, 0.0f, 0.0f, 0.1f, 1.0f, 3);  // -3
    EXPECT_TRUE(utils.m_AdcRangeTable.empty());
    utils.calc_adc_range(1.0f, 2.0f, 0.5f, 0.0f, 0.0f, 0.1f, 1.0f, 0);
    EXPECT_TRUE(utils.m_AdcRangeTable.empty());
}

TEST(AdcRange, EachCallReplacesTheTable) {
    oru_device_utils utils;
    utils.calc_adc_range(0.0f, 10.0f, 1.0f, 0.0f, 0.0f, 0.1f, 1.0f, 5);
    ASSERT_EQ(utils.m_AdcRangeTable.size(), 55u);
    utils.calc_adc_range(3.0f, 3.0f, 1.0f, 0.5f, 0.0f, 0.1f, 2.0f, 2);
    ASSERT_EQ(utils.m_AdcRangeTable.size(), 2u);
    EXPECT_EQ(utils.m_AdcRangeTable[0].vrt, 3.0f);
    EXPECT_EQ(utils.m_AdcRangeTable[1].vrb, 0.1f + 0.5f);
    utils.calc_adc_range(3.0f, 2.0f, 1.0f, 0.5f, 0.0f, 0.1f, 2.0f, 2);
    EXPECT_TRUE(utils.m_AdcRangeTable.empty());
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
