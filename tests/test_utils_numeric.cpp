// Statistics and spectrum helpers, including the results they keep on
// purpose (integer median, maximum from 0.0, opposite polyval orders).
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <vector>

using U = oru_utils_interface;
using Doubles = std::vector<double>;

TEST(Median, IntegerMeanTruncatesRealMeanDoesNot) {
    EXPECT_EQ(U::find_median_value(std::vector<int>{4, 1, 3, 2}), 2.0);
    EXPECT_EQ(U::find_median_value(std::vector<int>{-1, -2}), -1.0);  // -3 / 2 toward zero
    EXPECT_EQ(U::find_median_value(std::vector<int>{9, 1, 5}), 5.0);
    EXPECT_EQ(U::find_median_value(Doubles{5.0, 1.0, 3.0, 2.0}), 2.5);
    EXPECT_EQ(U::find_median_value(Doubles{0.25, -4.0, 8.0}), 0.25);
    for (bool as_int : {true, false}) {
        try {
            as_int ? U::find_median_value(std::vector<int>{}) : U::find_median_value(Doubles{});
            ADD_FAILURE() << "no exception";
        } catch (const char* message) {
            EXPECT_STREQ(message, "median of an empty vector");
        }
    }
}

// The extreme sits at every position in turn: the whole vector is scanned.
TEST(MinMax, ScanEveryElement) {
    for (std::size_t at = 0; at < 5; ++at) {
        Doubles values{3.0, 4.0, 3.5, 5.0, 4.5};
        values[at] = -7.0;
        EXPECT_EQ(U::find_min_value(values), -7.0) << at;
        values[at] = 9.0;
        EXPECT_EQ(U::find_max_value(values), 9.0) << at;
    }
}

TEST(SortPairs, ByValueBothWays) {
    std::map<int, int> ints{{1, 30}, {2, 10}, {3, 20}};
    std::vector<int> keys;
    for (const IntDataPair& p : U::sort(ints, true)) keys.push_back(p.key);
    EXPECT_EQ(keys, (std::vector<int>{2, 3, 1}));
    keys.clear();
    for (const IntDataPair& p : U::sort(ints, false)) keys.push_back(p.key);
    EXPECT_EQ(keys, (std::vector<int>{1, 3, 2}));
    std::map<int, double> reals{{10, 0.5}, {20, -1.5}, {30, 2.25}, {40, 0.0}};
    keys.clear();
    for (const DoubleDataPair& p : U::sort(reals, true)) keys.push_back(p.key);
    EXPECT_EQ(keys, (std::vector<int>{20, 40, 10, 30}));
    EXPECT_EQ(U::sort(reals, false).front().val, 2.25);
}

TEST(Normalize, DividesByTheMaximumWhichStartsFromZero) {
    Doubles in{1.0, 2.0, 4.0}, out(3, -1.0);
    U::normalize(in, out);
    EXPECT_EQ(out, (Doubles{0.25, 0.5, 1.0}));
    Doubles negative{-1.0, -2.0}, result(2, 0.0);
    U::normalize(negative, result);
    EXPECT_TRUE(std::isinf(result[0]) && result[0] < 0 && std::isinf(result[1]));
}

TEST(SpectrumInfo, FirstOfEqualPeaksAndItsWidth) {
    Doubles spectrum{0.0, 1.0, 3.0, 3.0, 1.0, 0.0};
    double wl = -1, power = -1, fwhm = -1;
    U::get_spectrum_info(spectrum, wl, power, fwhm);
    EXPECT_EQ(wl, 2.0);
    EXPECT_EQ(power, 3.0);
    EXPECT_EQ(fwhm, 4.0);  // borders: the first samples below 1.5, at 1 and 4
}

TEST(Fwhm, CountsBothBordersAndStopsAtTheEnds) {
    struct Case {
        Doubles spectrum;
        double half;
        int peak;
        double width;
    };
    for (const Case& c :
         {Case{{1.0, 2.0}, 1.0, -1, 0.0}, Case{{5.0, 5.0, 5.0}, 2.5, 0, 3.0}, Case{{5.0, 5.0, 5.0}, 2.5, 2, 3.0},
          Case{{4.0}, 2.0, 0, 1.0}, Case{{5.0, 5.0, 5.0}, 2.5, 3, 0.0}, Case{{5.0, 5.0, 5.0}, 2.5, -2, 0.0}, Case{{0.0, 0.0, 1.0, 4.0, 2.0, 2.0, 0.5, 0.0}, 2.0, 3, 5.0}}) {
        Doubles spectrum = c.spectrum;
        EXPECT_EQ(U::get_FWHM(spectrum, c.half, c.peak), c.width) << spectrum.size() << " at " << c.peak;
    }
}

TEST(SpectrumDerivative, OtherDimensionsClearAndComplain) {
    for (int dim : {0, 3, -1}) {
        Doubles in{1.0, 2.0}, out{9.0};
        testing::internal::CaptureStdout();
        U::get_spectrum_derivative(in, out, dim);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "[oru_utils_interface] Error: wrong derivative dimension. 1-D or 2-D only supported. (" +
                      std::to_string(dim) + ")\n");
        EXPECT_TRUE(out.empty());
    }
}

TEST(GaussianSpectrum, SizeAndSingleSampleLines) {
    struct Case {
        int length;
        double centre, width;
        std::size_t size;
        int peak;  // sample holding the whole intensity, or -1
    };
    for (const Case& c : {Case{10, 4.0, 1.0, 10, 4}, Case{10, 6.9, 1.0, 10, 6}, Case{10, 20.0, 1.0, 10, -1},
                          Case{10, -3.0, 1.0, 10, -1}, Case{10, 4.0, 9.0, 0, -1}, Case{0, 0.0, 0.5, 0, -1},
                          Case{-5, 0.0, 0.5, 0, -1}, Case{10, 4.0, 8.0, 10, 4}, Case{10, 4.0, 8.9, 10, 4}}) {
        Doubles out{1.0, 2.0};
        U::make_gaussian_spectrum(c.length, c.centre, c.width, 2.5, out);
        ASSERT_EQ(out.size(), c.size) << c.length << "/" << c.centre << "/" << c.width;
        if (c.width == 1.0) {
            Doubles expected(c.size, 0.0);
            if (c.peak >= 0) expected[static_cast<std::size_t>(c.peak)] = 2.5;
            EXPECT_EQ(out, expected) << c.centre;
        }
    }
}

// Both squares are taken in single precision: 3.3 x 0.4253 squared, and
// distances like 4097 squared (25 bits) are rounded in float.
TEST(GaussianSpectrum, BellShapeWithSinglePrecisionSquares) {
    Doubles out;
    U::make_gaussian_spectrum(16, 5.0, 3.3, 1.7, out);
    ASSERT_EQ(out.size(), 16u);
    const float s2 = powf(static_cast<float>(3.3 * 0.4253), 2.0f);
    for (int i = 0; i < 16; ++i) {
        const float d2 = powf(static_cast<float>(i - 5), 2.0f);
        EXPECT_DOUBLE_EQ(out[i], 1.7 * std::exp(-static_cast<double>(d2) / (2.0 * static_cast<double>(s2)))) << i;
    }
    EXPECT_NE(out[15], 1.7 * std::exp(-100.0 / (2.0 * 3.3 * 0.4253 * 3.3 * 0.4253)));
    U::make_gaussian_spectrum(40, 20.0, 8.0, 3.0, out);
    for (int d = 1; d < 20; ++d) EXPECT_LT(out[20 + d], out[20 + d - 1]) << d;
    EXPECT_NEAR(out[16] / 3.0, 0.5, 0.01);  // half height about half the bandwidth away
    U::make_gaussian_spectrum(5000, 0.0, 4000.0, 1.0, out);
    const double wide = static_cast<double>(powf(static_cast<float>(4000.0 * 0.4253), 2.0f));
    EXPECT_DOUBLE_EQ(out[4097], std::exp(-static_cast<double>(powf(4097.0f, 2.0f)) / (2.0 * wide)));
    EXPECT_NE(out[4097], std::exp(-(4097.0 * 4097.0) / (2.0 * wide)));
}

TEST(WavelengthList, InclusiveStepsWithIntegerCount) {
    struct Case {
        int start, end, step;
        Doubles expected;
    };
    for (const Case& c : {Case{400, 410, 5, {400, 405, 410}}, Case{400, 414, 5, {400, 405, 410}},
                          Case{380, 381, 1, {380, 381}}, Case{410, 400, 5, {}}, Case{400, 400, 5, {}}}) {
        Doubles out{1.0};
        U::get_wavelength_list(c.start, c.end, c.step, out);
        EXPECT_EQ(out, c.expected) << c.start << ".." << c.end;
    }
}

TEST(Polyval, VectorFormAscendsScalarFormDescends) {
    EXPECT_EQ(U::polyval(Doubles{1, 2, 3}, Doubles{2}), Doubles{17});
    EXPECT_EQ(U::polyval(Doubles{1, 2}, Doubles{0, 1, 3}), (Doubles{1, 3, 7}));
    EXPECT_TRUE(U::polyval(Doubles{1, 2}, Doubles{}).empty());
    EXPECT_EQ(U::polyval(Doubles{}, Doubles{5}), Doubles{0});
    EXPECT_EQ(U::polyval(Doubles{1, 2, 3}, 2.0), 11.0);
    EXPECT_EQ(U::polyval(Doubles{4}, 100.0), 4.0);
    EXPECT_EQ(U::polyval(Doubles{}, 2.0), 0.0);
}

TEST(Statistics, MeanVarianceAndStandardDeviation) {
    Doubles values{2, 4, 4, 4, 5, 5, 7, 9};
    EXPECT_DOUBLE_EQ(U::calculate_mean(values), 5.0);
    EXPECT_DOUBLE_EQ(U::calculate_variance(values), 4.0);
    EXPECT_DOUBLE_EQ(U::calculate_std(values), 2.0);
    EXPECT_DOUBLE_EQ(U::calculate_sample_variance(values), 32.0 / 7.0);
    EXPECT_DOUBLE_EQ(U::calculate_sample_std(values), std::sqrt(32.0 / 7.0));
    Doubles empty;
    EXPECT_TRUE(std::isnan(U::calculate_mean(empty)));
}

TEST(RandFloat, FollowsTheShiftOfTwoDraws) {
    int nonzero = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        srand(seed);
        const std::uint64_t a = static_cast<unsigned>(rand());
        const unsigned count = (static_cast<unsigned>(rand()) + 15u) % 256u;
        const std::uint64_t bits = count < 32 ? ((a << count) & 0xFFFFFFu) : 0u;
        srand(seed);
        ASSERT_EQ(U::generate_rand_float(-100.0f, 100.0f), static_cast<float>(bits) / 16777216.0f) << seed;
        nonzero += bits != 0;
    }
    EXPECT_GT(nonzero, 100);  // only a count of 0 to 31 leaves bits: about one draw in eight
    EXPECT_LT(nonzero, 1000);
}
