// Reading files: what the writers put in a header and a row comes back
// through the loader in both formats, and every broken file is refused with
// a line that says why.
#include "oru_measurement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string temp_path(const std::string& name) {
    return testing::TempDir() + "/" + std::to_string(::getpid()) + "_" + name;
}

duFileHeader two_sensors(int mode) {
    duFileHeader h{};
    h.kind = DU_KIND_READINGS;
    h.mode = mode;
    h.sensor_count = 2;
    std::snprintf(h.sensors[0].sensor_id, 32, "A1-1-1-1-1");
    h.sensors[0].settings = {7, 1, 1, 132};
    std::snprintf(h.sensors[1].sensor_id, 32, "B2-2-2-2-2");
    h.sensors[1].settings = {9, 2, 0, 65};
    h.sensors[1].dark_taken_ns = 1764070000123000000;  // 2025-11-25T11:26:40.123Z
    h.sensors[1].dark_averages = 20;
    return h;
}

std::string format_header(int format, const duFileHeader& h) {
    const int n = duFormatFileHeader(format, &h, nullptr, 0);
    EXPECT_GT(n, 0);
    std::string text(static_cast<size_t>(n) + 1, '\0');
    EXPECT_EQ(duFormatFileHeader(format, &h, text.data(), n + 1), n);
    text.resize(static_cast<size_t>(n));
    return text;
}

std::string format_row(int format, const char* id, int shutter, int clock, const std::vector<double>& values,
                       int64_t seq) {
    duReadingRow r{id, 1764070000456000000 + seq * 1000000, seq, seq + 9, shutter, clock, 10, 3, 0.25, values.data()};
    const int n = duFormatReadingRow(format, &r, nullptr, 0);
    std::string text(static_cast<size_t>(n) + 1, '\0');
    EXPECT_EQ(duFormatReadingRow(format, &r, text.data(), n + 1), n);
    text.resize(static_cast<size_t>(n));
    return text;
}

std::vector<double> ramp(double offset) {
    std::vector<double> v(DU_FILTER_COUNT);
    for (int i = 0; i < DU_FILTER_COUNT; ++i) v[static_cast<size_t>(i)] = offset + i * 1.5;
    return v;
}

std::string write(const std::string& name, const std::string& text) {
    const std::string path = temp_path(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

class ReadingFileRoundTrip : public ::testing::TestWithParam<int> {};

TEST_P(ReadingFileRoundTrip, SecondSensorComesBackWithItsHeaderSettings) {
    const int format = GetParam();
    const std::string text = format_header(format, two_sensors(DU_MODE_RAW)) +
                             format_row(format, "A1-1-1-1-1", 7, 1, ramp(100.0), 0) +
                             format_row(format, "B2-2-2-2-2", 9, 2, ramp(200.00004), 5) +
                             format_row(format, "B2-2-2-2-2", 9, 2, ramp(999.0), 15);
    const std::string path = write(format == DU_FILE_CSV ? "rt.csv" : "rt.jsonl", text);

    duStoredReading stored{};
    char id[32] = {}, error[256] = {};
    ASSERT_EQ(duLoadStoredReading(path.c_str(), "B2-2-2-2-2", &stored, id, error, sizeof error), 1) << error;
    EXPECT_STREQ(id, "B2-2-2-2-2");
    EXPECT_EQ(stored.settings.shutter_speed, 9);
    EXPECT_EQ(stored.settings.master_clock, 2);
    EXPECT_EQ(stored.settings.adc_gain, 0);
    EXPECT_EQ(stored.settings.adc_range, 65);
    EXPECT_EQ(stored.averages, 10);
    EXPECT_EQ(stored.saturated_filters, 3);
    EXPECT_EQ(stored.taken_realtime_ns, 1764070000461000000);  // the first row of B2, to the millisecond
    EXPECT_DOUBLE_EQ(stored.values[0], 200.0);                 // four decimals
    EXPECT_DOUBLE_EQ(stored.values[1023], 200.0 + 1023 * 1.5);

    // Without an ID: the first reading of the file.
    ASSERT_EQ(duLoadStoredReading(path.c_str(), nullptr, &stored, id, error, sizeof error), 1) << error;
    EXPECT_STREQ(id, "A1-1-1-1-1");
    EXPECT_EQ(stored.settings.adc_range, 132);
    std::remove(path.c_str());
}

INSTANTIATE_TEST_SUITE_P(Formats, ReadingFileRoundTrip, ::testing::Values(DU_FILE_CSV, DU_FILE_JSONL),
                         [](const auto& info) { return info.param == DU_FILE_CSV ? "csv" : "jsonl"; });

TEST(ReadingFileHeader, SaysHowTheReadingsWereTaken) {
    const std::string csv = format_header(DU_FILE_CSV, two_sensors(DU_MODE_TRANSMITTANCE));
    for (const char* line :
         {"# oru-sensor readings\n", "# mode: transmittance\n", "# unit: %\n",
          "# sensor: B2-2-2-2-2 master_clock=2 adc_gain=0 adc_range=65 dark=2025-11-25T11:26:40.123Z/20 "
          "reference=none\n",
          "\ntime,sensor_id,first_sequence,last_sequence,shutter_speed,exposure_us,averages,saturated,gap,f0,f1,"})
        EXPECT_NE(csv.find(line), std::string::npos) << line;
    EXPECT_NE(csv.find(std::string("# library_version: ") + duGetLibraryVersion() + "\n"), std::string::npos);

    // Exact exposure per row: shutter 9 at clock 2 is (9 * 912 + 160) / 2 us.
    const std::string row = format_row(DU_FILE_CSV, "B2-2-2-2-2", 9, 2, ramp(0), 5);
    EXPECT_NE(row.find(",B2-2-2-2-2,5,14,9,4184.000,10,3,0.250,0.0000,1.5000,"), std::string::npos) << row.substr(0, 80);

    // A NaN (ratio against a dead reference filter) is null in JSON.
    std::vector<double> values = ramp(0);
    values[2] = std::nan("");
    const std::string json = format_row(DU_FILE_JSONL, "B2-2-2-2-2", 9, 2, values, 5);
    EXPECT_NE(json.find("\"values\":[0.0,1.5,null,4.5"), std::string::npos) << json.substr(0, 200);
    EXPECT_NE(json.find("\"exposure_us\":4184.0"), std::string::npos);

    duFileHeader bad = two_sensors(DU_MODE_RAW);
    bad.mode = 17;
    EXPECT_EQ(duFormatFileHeader(DU_FILE_CSV, &bad, nullptr, 0), -24);
    const duFileHeader good = two_sensors(DU_MODE_RAW);
    EXPECT_EQ(duFormatFileHeader(3, &good, nullptr, 0), -24);
}

struct Broken {
    const char* name;
    std::string text;
    const char* why;
};

TEST(ReadingFileLoad, BrokenFilesAreRefusedWithAReason) {
    const std::string csv = format_header(DU_FILE_CSV, two_sensors(DU_MODE_RAW));
    const std::string row = format_row(DU_FILE_CSV, "A1-1-1-1-1", 7, 1, ramp(1), 0);
    const std::string jsonl = format_header(DU_FILE_JSONL, two_sensors(DU_MODE_RAW));
    std::string short_row = row.substr(0, row.rfind(',')) + "\n";
    std::string letters = row;
    letters.replace(letters.rfind(',') + 1, 4, "abcd");
    const Broken rows[] = {
        {"no_magic", "time,sensor_id\n1,2\n", "not a reading file"},
        {"empty", "", "not a reading file"},
        {"not_raw", format_header(DU_FILE_CSV, two_sensors(DU_MODE_DARK)) + row, "must be a raw reading"},
        {"no_rows", csv, "no reading"},
        {"short_row", csv + short_row, "cells where the column row has"},
        {"letters", csv + letters, "not a number"},
        {"other_sensor_only", csv + format_row(DU_FILE_CSV, "C3-3-3-3-3", 7, 1, ramp(1), 0),
         "no reading of sensor A1"},
        {"sensor_without_header", csv + format_row(DU_FILE_CSV, "C3-3-3-3-3", 7, 1, ramp(1), 0), "no header line"},
        {"jsonl_truncated", jsonl + "{\"time\":", "malformed JSON Lines"},
        {"jsonl_short", jsonl + "{\"time\":\"2025-11-25T11:26:40.123Z\",\"sensor_id\":\"A1-1-1-1-1\",\"shutter_speed\":7,"
                                "\"averages\":1,\"saturated\":0,\"values\":[1,2]}\n",
         "2 values, not 1024"},
        {"jsonl_no_header", format_row(DU_FILE_JSONL, "A1-1-1-1-1", 7, 1, ramp(1), 0), "no header object"},
    };
    for (const Broken& b : rows) {
        const std::string path = write(std::string(b.name) + ".txt", b.text);
        duStoredReading stored{};
        stored.averages = -5;
        char error[256] = {};
        const char* wanted = std::string(b.name) == "other_sensor_only" ? "A1-1-1-1-1"
                             : std::string(b.name) == "sensor_without_header" ? "C3-3-3-3-3"
                                                                               : nullptr;
        EXPECT_EQ(duLoadStoredReading(path.c_str(), wanted, &stored, nullptr, error, sizeof error), -24) << b.name;
        EXPECT_NE(std::string(error).find(b.why), std::string::npos) << b.name << ": " << error;
        EXPECT_EQ(stored.averages, -5) << b.name << ": nothing half-loaded";
        std::remove(path.c_str());
    }
    char error[256] = {};
    duStoredReading stored{};
    EXPECT_EQ(duLoadStoredReading(temp_path("missing.csv").c_str(), nullptr, &stored, nullptr, error, sizeof error),
              -27);
    EXPECT_NE(std::string(error).find("No such file"), std::string::npos) << error;
}

}  // namespace
