// The moving-average ring: filling, wrapping and the period check.
#undef NDEBUG  // the period check is an assert(); keep it active here
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <deque>
#include <numeric>

TEST(SMA, EmptyHasNoSizeAndZeroAverage) {
    SMA sma(5);
    EXPECT_EQ(sma.size(), 0u);
    EXPECT_EQ(sma.avg(), 0.0);
}

TEST(SMA, FillsThenDropsTheOldestValue) {
    SMA sma(3);
    sma.add(1.0);
    EXPECT_EQ(sma.size(), 1u);
    EXPECT_EQ(sma.avg(), 1.0);
    sma.add(2.0);
    EXPECT_EQ(sma.size(), 2u);
    EXPECT_EQ(sma.avg(), 1.5);
    sma.add(3.0);
    EXPECT_EQ(sma.size(), 3u);
    EXPECT_EQ(sma.avg(), 2.0);
    sma.add(4.0);  // drops 1
    EXPECT_EQ(sma.size(), 3u);
    EXPECT_EQ(sma.avg(), 3.0);
    sma.add(11.0);  // drops 2
    EXPECT_EQ(sma.size(), 3u);
    EXPECT_EQ(sma.avg(), 6.0);
}

TEST(SMA, MatchesAWindowedAverageOverManyWraps) {
    for (unsigned period : {2u, 4u, 9u}) {
        SMA sma(period);
        std::deque<double> window;
        for (int i = 0; i < 200; ++i) {
            double value = static_cast<double>((i * 7919) % 101) - 50.0;
            sma.add(value);
            window.push_back(value);
            if (window.size() > period) window.pop_front();
            ASSERT_EQ(sma.size(), window.size()) << "period " << period << " step " << i;
            double expected = std::accumulate(window.begin(), window.end(), 0.0) / window.size();
            ASSERT_NEAR(sma.avg(), expected, 1e-9) << "period " << period << " step " << i;
        }
    }
}

TEST(SMADeathTest, ZeroPeriodFailsTheAssertion) {
    EXPECT_DEATH({ SMA sma(0); }, "period >= 1");
}
