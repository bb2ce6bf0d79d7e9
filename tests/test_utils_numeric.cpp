// Statistics and spectrum helpers, including the results they keep on
// purpose (integer median, maximum from 0.0, opposite polyval orders).
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <vector>

using U = oru_utils_interface;
using Doubles = std::vector<double>;

namespace {

template <typename Values>
std::string median_error(Values values) {
    try {
        U::find_median_value(values);
    } catch (const char* message) {
        return message;
    }
    return "no exception";
}

}  // namespace

TEST(Median, IntegerEvenSizeUsesTruncatingIntegerMean) {
    EXPECT_EQ(U::find_median_value(std::vector<int>{1, 2}), 1.0);
    EXPECT_EQ(U::find_median_value(std::vector<int>{4, 1, 3, 2}), 2.0);
    // Truncation goes toward zero: -3 / 2 is -1, not -2 and not -1.5.
    EXPECT_EQ(U::find_median_value(std::vector<int>{-1, -2}), -1.0);
}

TEST(Median, IntegerOddSizeIsTheMiddleOfTheSortedCopy) {
    EXPECT_EQ(U::find_median_value(std::vector<int>{9, 1, 5}), 5.0);
    EXPECT_EQ(U::find_median_value(std::vector<int>{-7}), -7.0);
}

TEST(Median, DoubleEvenSizeUsesTheRealMean) {
    EXPECT_DOUBLE_EQ(U::find_median_value(Doubles{1.0, 2.0}), 1.5);
    EXPECT_DOUBLE_EQ(U::find_median_value(Doubles{5.0, 1.0, 3.0, 2.0}), 2.5);
    EXPECT_DOUBLE_EQ(U::find_median_value(Doubles{0.25, -4.0, 8.0}), 0.25);
}

TEST(Median, EmptyInputThrowsText) {
    EXPECT_EQ(median_error(std::vector<int>{}), "median of an empty vector");
    EXPECT_EQ(median_error(Doubles{}), "median of an empty vector");
}

TEST(SortPairs, IntValuesAscendingAndDescending) {
    std::map<int, int> data{{1, 30}, {2, 10}, {3, 20}};
    std::vector<IntDataPair> up = U::sort(data, true);
    ASSERT_EQ(up.size(), 3u);
    EXPECT_EQ(up[0].key, 2);
    EXPECT_EQ(up[1].key, 3);
    EXPECT_EQ(up[2].key, 1);
    EXPECT_EQ(up[2].val, 30);
    std::vector<IntDataPair> down = U::sort(data, false);
    ASSERT_EQ(down.size(), 3u);
    EXPECT_EQ(down[0].key, 1);
    EXPECT_EQ(down[1].key, 3);
    EXPECT_EQ(down[2].key, 2);
}

TEST(SortPairs, DoubleValuesAscendingAndDescending) {
    std::map<int, double> data{{10, 0.5}, {20, -1.5}, {30, 2.25}, {40, 0.0}};
    std::vector<DoubleDataPair> up = U::sort(data, true);
    ASSERT_EQ(up.size(), 4u);
    EXPECT_EQ(up[0].key, 20);
    EXPECT_EQ(up[1].key, 40);
    EXPECT_EQ(up[2].key, 10);
    EXPECT_EQ(up[3].key, 30);
    EXPECT_EQ(up[3].val, 2.25);
    std::vector<DoubleDataPair> down = U::sort(data, false);
    EXPECT_EQ(down[0].key, 30);
    EXPECT_EQ(down[3].key, 20);
}

TEST(Normalize, DividesByTheMaximum) {
    Doubles in{1.0, 2.0, 4.0};
    Doubles out(3, -1.0);
    U::normalize(in, out);
    EXPECT_EQ(out, (Doubles{0.25, 0.5, 1.0}));
}

TEST(Normalize, MaximumStartsFromZero) {
    Doubles in{-1.0, -2.0};
    Doubles out(2, 0.0);
    U::normalize(in, out);
    EXPECT_TRUE(std::isinf(out[0]) && out[0] < 0);
    EXPECT_TRUE(std::isinf(out[1]) && out[1] < 0);
}

TEST(SpectrumInfo, FirstOfEqualPeaksAndItsWidth) {
    Doubles spectrum{0.0, 1.0, 3.0, 3.0, 1.0, 0.0};
    double wl = -1, power = -1, fwhm = -1;
    U::get_spectrum_info(spectrum, wl, power, fwhm);
    EXPECT_EQ(wl, 2.0);
    EXPECT_EQ(power, 3.0);
    // Borders are the first samples below 1.5 on each side: 1 and 4.
    EXPECT_EQ(fwhm, 4.0);
}

TEST(Fwhm, NoPeakHasNoWidth) {
    Doubles spectrum{1.0, 2.0};
    EXPECT_EQ(U::get_FWHM(spectrum, 1.0, -1), 0.0);
}

TEST(Fwhm, StopsAtTheEnds) {
    Doubles flat{5.0, 5.0, 5.0};
    EXPECT_EQ(U::get_FWHM(flat, 2.5, 0), 3.0);
    EXPECT_EQ(U::get_FWHM(flat, 2.5, 2), 3.0);
    Doubles single{4.0};
    EXPECT_EQ(U::get_FWHM(single, 2.0, 0), 1.0);
}

TEST(Fwhm, CountsBothBorderSamples) {
    Doubles spectrum{0.0, 0.0, 1.0, 4.0, 2.0, 2.0, 0.5, 0.0};
    // Half height 2: left border index 2 (1.0), right border index 6 (0.5).
    EXPECT_EQ(U::get_FWHM(spectrum, 2.0, 3), 5.0);
}

TEST(SpectrumDerivative, OtherDimensionsClearAndComplain) {
    for (int dim : {0, 3, -1}) {
        Doubles in{1.0, 2.0};
        Doubles out{9.0};
        testing::internal::CaptureStdout();
        U::get_spectrum_derivative(in, out, dim);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "[oru_utils_interface] Error: wrong derivative dimension. 1-D or 2-D only supported. (" +
                      std::to_string(dim) + ")\n");
        EXPECT_TRUE(out.empty());
    }
}

TEST(GaussianSpectrum, BandwidthOneIsASingleSample) {
    Doubles out{1.0};
    U::make_gaussian_spectrum(10, 4.0, 1.0, 2.5, out);
    Doubles expected(10, 0.0);
    expected[4] = 2.5;
    EXPECT_EQ(out, expected);
    // The centre is the integer part of the wavelength.
    U::make_gaussian_spectrum(10, 6.9, 1.0, 1.0, out);
    EXPECT_EQ(out[6], 1.0);
    EXPECT_EQ(out[7], 0.0);
}

TEST(GaussianSpectrum, CentreOutsideTheSpectrumWritesNoLine) {
    Doubles out;
    U::make_gaussian_spectrum(10, 20.0, 1.0, 2.5, out);
    EXPECT_EQ(out, Doubles(10, 0.0));
    U::make_gaussian_spectrum(10, -3.0, 1.0, 2.5, out);
    EXPECT_EQ(out, Doubles(10, 0.0));
}

TEST(GaussianSpectrum, TooWideOrEmptyGivesNothing) {
    Doubles out{1.0, 2.0};
    U::make_gaussian_spectrum(10, 4.0, 9.0, 1.0, out);  // 9 + 2 > 10
    EXPECT_TRUE(out.empty());
    out = {1.0};
    U::make_gaussian_spectrum(0, 0.0, 0.5, 1.0, out);
    EXPECT_TRUE(out.empty());
    U::make_gaussian_spectrum(-5, 0.0, 0.5, 1.0, out);
    EXPECT_TRUE(out.empty());
}

TEST(GaussianSpectrum, WidthLimitUsesTheIntegerPart) {
    Doubles out;
    U::make_gaussian_spectrum(10, 4.0, 8.0, 1.0, out);  // 10 is not more than 10
    EXPECT_EQ(out.size(), 10u);
    U::make_gaussian_spectrum(10, 4.0, 8.9, 1.0, out);  // integer part of 10.9 is 10
    EXPECT_EQ(out.size(), 10u);
}

TEST(GaussianSpectrum, BellShapeWithTheGivenHalfWidth) {
    Doubles out;
    U::make_gaussian_spectrum(40, 20.0, 8.0, 3.0, out);
    ASSERT_EQ(out.size(), 40u);
    EXPECT_EQ(out[20], 3.0);
    for (int d = 1; d < 20; ++d) {
        EXPECT_EQ(out[20 - d], out[20 + d]) << d;
        EXPECT_LT(out[20 + d], out[20 + d - 1]) << d;
    }
    // Half the height lies about half the bandwidth from the centre.
    EXPECT_NEAR(out[16] / 3.0, 0.5, 0.01);
}

TEST(GaussianSpectrum, SquaresAreSinglePrecision) {
    Doubles out;
    U::make_gaussian_spectrum(16, 5.0, 3.3, 1.7, out);
    ASSERT_EQ(out.size(), 16u);
    float s2 = powf(static_cast<float>(3.3 * 0.4253), 2.0f);
    for (int i = 0; i < 16; ++i) {
        float d2 = powf(static_cast<float>(i - 5), 2.0f);
        double expected = 1.7 * std::exp(-static_cast<double>(d2) / (2.0 * static_cast<double>(s2)));
        EXPECT_DOUBLE_EQ(out[i], expected) << i;
    }
    // A double-precision square of s gives a visibly different tail value.
    double s = 3.3 * 0.4253;
    double in_double = 1.7 * std::exp(-100.0 / (2.0 * s * s));
    EXPECT_NE(out[15], in_double);
}

TEST(GaussianSpectrum, DistanceSquaredIsSinglePrecisionToo) {
    // 4097 squared needs 25 bits and is rounded in float.
    Doubles out;
    U::make_gaussian_spectrum(5000, 0.0, 4000.0, 1.0, out);
    ASSERT_EQ(out.size(), 5000u);
    double s2 = static_cast<double>(powf(static_cast<float>(4000.0 * 0.4253), 2.0f));
    double d2_float = static_cast<double>(powf(4097.0f, 2.0f));
    EXPECT_NE(d2_float, 4097.0 * 4097.0);
    EXPECT_DOUBLE_EQ(out[4097], std::exp(-d2_float / (2.0 * s2)));
    EXPECT_NE(out[4097], std::exp(-(4097.0 * 4097.0) / (2.0 * s2)));
}

TEST(WavelengthList, InclusiveStepsWithIntegerCount) {
    Doubles out{1.0};
    U::get_wavelength_list(400, 410, 5, out);
    EXPECT_EQ(out, (Doubles{400, 405, 410}));
    U::get_wavelength_list(400, 411, 5, out);
    EXPECT_EQ(out, (Doubles{400, 405, 410}));
    U::get_wavelength_list(400, 414, 5, out);
    EXPECT_EQ(out, (Doubles{400, 405, 410}));
    U::get_wavelength_list(380, 381, 1, out);
    EXPECT_EQ(out, (Doubles{380, 381}));
}

TEST(WavelengthList, StartNotBelowEndClearsOnly) {
    Doubles out{1.0, 2.0};
    U::get_wavelength_list(410, 400, 5, out);
    EXPECT_TRUE(out.empty());
    out = {1.0};
    U::get_wavelength_list(400, 400, 5, out);
    EXPECT_TRUE(out.empty());
}

TEST(Polyval, VectorFormUsesAscendingPowers) {
    EXPECT_EQ(U::polyval(Doubles{1, 2}, Doubles{3}), Doubles{7});
    EXPECT_EQ(U::polyval(Doubles{1, 2, 3}, Doubles{2}), Doubles{17});
    EXPECT_EQ(U::polyval(Doubles{1, 2}, Doubles{0, 1, 3}), (Doubles{1, 3, 7}));
    EXPECT_TRUE(U::polyval(Doubles{1, 2}, Doubles{}).empty());
    EXPECT_EQ(U::polyval(Doubles{}, Doubles{5}), Doubles{0});
}

TEST(Polyval, ScalarFormUsesDescendingPowers) {
    EXPECT_EQ(U::polyval(Doubles{1, 2}, 3.0), 5.0);
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
}

TEST(Statistics, EmptyMeanIsZeroOverZero) {
    Doubles empty;
    EXPECT_TRUE(std::isnan(U::calculate_mean(empty)));
}

TEST(RandFloat, FollowsTheShiftOfTwoDraws) {
    int nonzero = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        srand(seed);
        std::uint64_t a = static_cast<unsigned>(rand());
        unsigned b = static_cast<unsigned>(rand());
        unsigned count = (b + 15u) % 256u;
        std::uint64_t bits = count < 32 ? ((a << count) & 0xFFFFFFu) : 0u;
        srand(seed);
        float value = U::generate_rand_float(-100.0f, 100.0f);
        ASSERT_EQ(value, static_cast<float>(bits) / 16777216.0f) << seed;
        ASSERT_GE(value, 0.0f);
        ASSERT_LT(value, 1.0f);
        if (value != 0.0f) ++nonzero;
    }
    // Only a count of 0 to 31 leaves bits: roughly one draw in eight.
    EXPECT_GT(nonzero, 100);
    EXPECT_LT(nonzero, 1000);
}
