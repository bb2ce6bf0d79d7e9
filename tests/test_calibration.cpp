// Calibration files: what is written comes back whole, and every kind of
// damaged or foreign file is refused with one line and nothing loaded.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "oru_calibration.h"

namespace {

using CalPtr = std::unique_ptr<duCalibration, void (*)(duCalibration*)>;
constexpr int kW = 66;  // 350..1000 nm in 10 nm steps

std::string temp_path(const std::string& name) { return ::testing::TempDir() + "cal_" + name + ".h5"; }

// A filter of Gaussian response around 400 + filter / 2 nm, sigma 30 nm.
CalPtr sample_calibration(bool optional_parts) {
    CalPtr cal(duCalibrationCreate(kW), duCalibrationFree);
    for (int i = 0; i < kW; ++i) cal->wavelength_nm[i] = 350 + 10 * i;
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f)
        for (int i = 0; i < kW; ++i) {
            const double u = (cal->wavelength_nm[i] - (400 + f / 2.0)) / 30.0;
            cal->response[f * kW + i] = f == 1011 ? 0.0 : 0.3 * std::exp(-0.5 * u * u);
        }
    if (optional_parts) {
        duCalibrationAddDark(cal.get());
        duCalibrationAddValidFilters(cal.get());
        for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) cal->dark[f] = 64 + f % 7;
        cal->valid_filters[1011] = 0;
    }
    std::snprintf(cal->sensor_id, sizeof cal->sensor_id, "A4486-3-12-40-2");
    cal->adc_gain = 1;
    cal->adc_range = 132;
    std::snprintf(cal->source, sizeof cal->source, "sweep");
    std::snprintf(cal->description, sizeof cal->description, "lamp sweep, 10 nm");
    return cal;
}

std::string write_sample(const std::string& name) {
    const std::string path = temp_path(name);
    char error[256] = "";
    EXPECT_EQ(duCalibrationWrite(sample_calibration(true).get(), path.c_str(), error, sizeof error), 1) << error;
    return path;
}

TEST(CalibrationFile, RoundTripKeepsEverything) {
    for (bool optional_parts : {true, false}) {
        SCOPED_TRACE(optional_parts);
        const CalPtr out = sample_calibration(optional_parts);
        const std::string path = temp_path("roundtrip");
        char error[256] = "";
        ASSERT_EQ(duCalibrationWrite(out.get(), path.c_str(), error, sizeof error), 1) << error;
        const CalPtr in(duCalibrationRead(path.c_str(), error, sizeof error), duCalibrationFree);
        ASSERT_TRUE(in) << error;
        ASSERT_EQ(in->wavelength_count, kW);
        EXPECT_EQ(std::vector<double>(in->wavelength_nm, in->wavelength_nm + kW),
                  std::vector<double>(out->wavelength_nm, out->wavelength_nm + kW));
        EXPECT_EQ(std::vector<double>(in->response, in->response + kW * 1024),
                  std::vector<double>(out->response, out->response + kW * 1024));
        EXPECT_EQ(in->dark != nullptr, optional_parts);
        EXPECT_EQ(in->valid_filters != nullptr, optional_parts);
        if (optional_parts) {
            EXPECT_EQ(std::vector<double>(in->dark, in->dark + 1024), std::vector<double>(out->dark, out->dark + 1024));
            EXPECT_EQ(in->valid_filters[1011], 0);
            EXPECT_EQ(in->valid_filters[1010], 1);
        }
        EXPECT_STREQ(in->sensor_id, "A4486-3-12-40-2");
        EXPECT_EQ(in->master_clock, 1);
        EXPECT_EQ(in->adc_gain, 1);
        EXPECT_EQ(in->adc_range, 132);
        EXPECT_STREQ(in->created, out->created);
        EXPECT_STREQ(in->source, "sweep");
        EXPECT_STREQ(in->description, "lamp sweep, 10 nm");
    }
}

TEST(CalibrationFile, WriteRefusesWhatReadWouldRefuseAndLeavesTheOldFile) {
    const std::string path = write_sample("keep");
    CalPtr bad = sample_calibration(false);
    bad->wavelength_nm[5] = bad->wavelength_nm[4];
    char error[256] = "";
    EXPECT_LT(duCalibrationWrite(bad.get(), path.c_str(), error, sizeof error), 0);
    EXPECT_NE(std::string(error).find("ascending"), std::string::npos) << error;
    std::snprintf(bad->source, sizeof bad->source, "guess");
    bad->wavelength_nm[5] = 400;
    EXPECT_LT(duCalibrationWrite(bad.get(), path.c_str(), error, sizeof error), 0);
    EXPECT_LT(duCalibrationWrite(sample_calibration(false).get(), "/nonexistent/dir/x.h5", error, sizeof error), 0);
    EXPECT_NE(std::string(error).find("/nonexistent/dir/x.h5"), std::string::npos) << error;
    const CalPtr still(duCalibrationRead(path.c_str(), error, sizeof error), duCalibrationFree);
    EXPECT_TRUE(still && still->dark) << error;
}

// ---- damaged and foreign files -------------------------------------------

void with_file(const std::string& path, const std::function<void(hid_t)>& change) {
    const hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    ASSERT_GE(f, 0);
    change(f);
    H5Fclose(f);
}

void replace_dataset(hid_t f, const char* name, std::vector<hsize_t> dims, hid_t type, const void* data) {
    if (H5Lexists(f, name, H5P_DEFAULT) > 0) H5Ldelete(f, name, H5P_DEFAULT);
    const hid_t space = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
    const hid_t set = H5Dcreate2(f, name, type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    if (data) H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, data);
    H5Dclose(set);
    H5Sclose(space);
}

void replace_text_attribute(hid_t f, const char* name, const char* text) {
    H5Adelete(f, name);
    const hid_t type = H5Tcopy(H5T_C_S1);
    H5Tset_size(type, std::strlen(text) + 1);
    const hid_t space = H5Screate(H5S_SCALAR);
    const hid_t a = H5Acreate2(f, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(a, type, text);
    H5Aclose(a);
    H5Sclose(space);
    H5Tclose(type);
}

struct BadFile {
    const char* name;
    std::function<void(const std::string& path)> spoil;
    const char* says;  // part of the error line
};

void PrintTo(const BadFile& c, std::ostream* os) { *os << c.name; }

class CalibrationBadFile : public ::testing::TestWithParam<BadFile> {};

TEST_P(CalibrationBadFile, IsRefusedWithOneLine) {
    const BadFile& c = GetParam();
    const std::string path = write_sample(c.name);
    c.spoil(path);
    char error[256] = "untouched";
    duCalibration* cal = duCalibrationRead(path.c_str(), error, sizeof error);
    EXPECT_EQ(cal, nullptr);
    duCalibrationFree(cal);
    EXPECT_NE(std::string(error).find(c.says), std::string::npos) << error;
    EXPECT_EQ(std::string(error).find('\n'), std::string::npos) << error;
}

std::vector<double> filled(size_t n, double v) { return std::vector<double>(n, v); }

INSTANTIATE_TEST_SUITE_P(
    Table, CalibrationBadFile,
    ::testing::Values(
        BadFile{"missing", [](const std::string& p) { std::remove(p.c_str()); }, "not a readable HDF5 file"},
        BadFile{"text", [](const std::string& p) { std::ofstream(p) << "wavelength_nm,response\n"; },
                "not a readable HDF5 file"},
        BadFile{"truncated",
                [](const std::string& p) {
                    std::ifstream in(p, std::ios::binary);
                    std::string bytes((std::istreambuf_iterator<char>(in)), {});
                    std::ofstream(p, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
                },
                "truncated"},
        BadFile{"no_wavelengths", [](const std::string& p) { with_file(p, [](hid_t f) { H5Ldelete(f, "wavelength_nm", H5P_DEFAULT); }); },
                "no dataset wavelength_nm"},
        BadFile{"no_response", [](const std::string& p) { with_file(p, [](hid_t f) { H5Ldelete(f, "response", H5P_DEFAULT); }); },
                "no dataset response"},
        BadFile{"response_rows",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_dataset(f, "response", {1000, kW}, H5T_NATIVE_DOUBLE, filled(1000 * kW, 1).data()); });
                },
                "response is 1000x66, expected 1024x66"},
        BadFile{"response_columns",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_dataset(f, "response", {1024, 65}, H5T_NATIVE_DOUBLE, filled(1024 * 65, 1).data()); });
                },
                "response is 1024x65, expected 1024x66"},
        BadFile{"response_text",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) {
                        const hid_t t = H5Tcopy(H5T_C_S1);
                        H5Tset_size(t, 4);
                        replace_dataset(f, "response", {1024, kW}, t, nullptr);
                        H5Tclose(t);
                    });
                },
                "response does not hold numbers"},
        BadFile{"response_nan",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) {
                        std::vector<double> r = filled(1024 * kW, 0.1);
                        r[5000] = std::nan("");
                        replace_dataset(f, "response", {1024, kW}, H5T_NATIVE_DOUBLE, r.data());
                    });
                },
                "not a number"},
        BadFile{"wavelengths_descending",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) {
                        std::vector<double> w(kW);
                        for (int i = 0; i < kW; ++i) w[i] = 1000 - 10 * i;
                        replace_dataset(f, "wavelength_nm", {kW}, H5T_NATIVE_DOUBLE, w.data());
                    });
                },
                "not strictly ascending"},
        BadFile{"wavelengths_2d",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_dataset(f, "wavelength_nm", {2, 33}, H5T_NATIVE_DOUBLE, filled(kW, 1).data()); });
                },
                "wavelength_nm is 2x33"},
        BadFile{"dark_length",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_dataset(f, "dark", {1000}, H5T_NATIVE_DOUBLE, filled(1000, 64).data()); });
                },
                "dark is 1000, expected 1024"},
        BadFile{"valid_filters_length",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_dataset(f, "valid_filters", {1023}, H5T_NATIVE_DOUBLE, filled(1023, 1).data()); });
                },
                "valid_filters is 1023, expected 1024"},
        BadFile{"no_sensor_id", [](const std::string& p) { with_file(p, [](hid_t f) { H5Adelete(f, "sensor_id"); }); },
                "no attribute sensor_id"},
        BadFile{"no_created", [](const std::string& p) { with_file(p, [](hid_t f) { H5Adelete(f, "created"); }); },
                "no attribute created"},
        BadFile{"clock_as_text", [](const std::string& p) { with_file(p, [](hid_t f) { replace_text_attribute(f, "master_clock", "1"); }); },
                "master_clock is not a whole number"},
        BadFile{"clock_zero",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) {
                        const int zero = 0;
                        const hid_t a = H5Aopen(f, "master_clock", H5P_DEFAULT);
                        H5Awrite(a, H5T_NATIVE_INT, &zero);
                        H5Aclose(a);
                    });
                },
                "master_clock must be at least 1"},
        BadFile{"unknown_source", [](const std::string& p) { with_file(p, [](hid_t f) { replace_text_attribute(f, "source", "guess"); }); },
                "source 'guess'"},
        BadFile{"long_sensor_id",
                [](const std::string& p) {
                    with_file(p, [](hid_t f) { replace_text_attribute(f, "sensor_id", std::string(40, 'A').c_str()); });
                },
                "sensor_id is longer than 31"}));

// ---- per-filter summary ----------------------------------------------------

TEST(CalibrationBands, CentroidAndHalfMaximumOfKnownCurves) {
    const CalPtr cal = sample_calibration(false);
    std::vector<double> c(1024), lo(1024), hi(1024);
    EXPECT_EQ(duCalibrationFilterBands(cal.get(), c.data(), lo.data(), hi.data()), 1023);
    const double half_width = 30.0 * std::sqrt(2 * std::log(2.0));  // of a Gaussian, sigma 30 nm
    for (int f : {0, 200, 511, 1000}) {
        const double centre = 400 + f / 2.0;
        EXPECT_NEAR(c[f], centre, f < 100 ? 8.0 : 0.5) << f;  // clipped at 350 nm on the left
        EXPECT_NEAR(hi[f], centre + half_width, 1.0) << f;  // linear between 10 nm samples
        if (f >= 100) {
            EXPECT_NEAR(lo[f], centre - half_width, 1.0) << f;
        }
    }
    EXPECT_TRUE(std::isnan(c[1011]) && std::isnan(lo[1011]) && std::isnan(hi[1011]));
    EXPECT_EQ(duCalibrationFilterBands(nullptr, c.data(), lo.data(), hi.data()), -1);
}

}  // namespace
