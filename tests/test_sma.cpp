// The moving-average ring: filling, wrapping and the period check.
#undef NDEBUG  // the period check is an assert(); keep it active here
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <deque>
#include <numeric>

TEST(SMA, MatchesAWindowedAverageOverManyWraps) {
    for (unsigned period : {1u, 3u, 9u}) {
        SMA sma(period);
        EXPECT_EQ(sma.size(), 0u);
        EXPECT_EQ(sma.avg(), 0.0);
        std::deque<double> window;
        for (int i = 0; i < 200; ++i) {
            const double value = static_cast<double>((i * 7919) % 101) - 50.0;
            sma.add(value);
            window.push_back(value);
            if (window.size() > period) window.pop_front();
            ASSERT_EQ(sma.size(), window.size()) << "period " << period << " step " << i;
            ASSERT_NEAR(sma.avg(), std::accumulate(window.begin(), window.end(), 0.0) / window.size(), 1e-9)
                << "period " << period << " step " << i;
        }
    }
}

TEST(SMADeathTest, ZeroPeriodFailsTheAssertion) {
    EXPECT_DEATH({ SMA sma(0); }, "period >= 1");
}
