// The log directory: limits, rotation into complete files that never
// overwrite, and retention of the newest.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "log_limits.h"
#include "rotating_log.h"
#include "temp_dir_test.h"
#include "text_case_test.h"

namespace fs = std::filesystem;

namespace {

struct LimitCase {
    const char* text;
    bool ok;
    double seconds;
    uint64_t bytes;
};

// Names each case by its text in the test's output.
void PrintTo(const LimitCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class LogLimitParse : public TextCaseTest<LimitCase> {};

TEST_P(LogLimitParse, GivesTimeOrSizeOrRefuses) {
    const LimitCase& c = GetParam();
    LogLimit limit;
    if (!taken(limit, parse_log_limit)) return;
    EXPECT_DOUBLE_EQ(limit.seconds, c.seconds);
    EXPECT_EQ(limit.bytes, c.bytes);
}

INSTANTIATE_TEST_SUITE_P(Texts, LogLimitParse,
                         ::testing::Values(LimitCase{"", true, 0, 0}, LimitCase{"10s", true, 10, 0},
                                           LimitCase{"1.5min", true, 90, 0}, LimitCase{"1h", true, 3600, 0},
                                           LimitCase{"30d", true, 2592000, 0}, LimitCase{"100MB", true, 0, 100000000},
                                           LimitCase{"5GB", true, 0, 5000000000ULL}, LimitCase{"2KiB", true, 0, 2048},
                                           LimitCase{"10", false, 0, 0}, LimitCase{"0s", false, 0, 0},
                                           LimitCase{"-1h", false, 0, 0}, LimitCase{"5 GB", false, 0, 0},
                                           LimitCase{"nanh", false, 0, 0}, LimitCase{"1e30d", false, 0, 0},
                                           LimitCase{"0.1B", false, 0, 0}));

MeasurementApi linked_api() {
    MeasurementApi api;
    api.duFormatFileHeader = duFormatFileHeader;
    api.duFormatReadingRow = duFormatReadingRow;
    api.duExactExposureTimeUs = duExactExposureTimeUs;
    api.duGetLibraryVersion = duGetLibraryVersion;
    return api;
}

constexpr int64_t kStart = 1795000000LL * 1000000000LL;  // 2026-11-18T...Z

class RotatingLogTest : public TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        m_sensor.settings = {1, 1, 1, 132};
    }

    Measurement reading(int k, int64_t ns) const {
        Measurement m;
        m.sensor_id = m_sensor.sensor_id;
        m.shutter_speed = 1;
        m.averages = 10;
        m.realtime_ns = ns;
        m.first_sequence = 10 * k;
        m.last_sequence = 10 * k + 9;
        m.values.assign(DU_FILTER_COUNT, 100.0 + k);
        return m;
    }

    // Names in the directory, and the sequence numbers of every CSV row.
    std::set<std::string> names() const {
        std::set<std::string> out;
        for (const auto& e : fs::directory_iterator(m_dir)) out.insert(e.path().filename());
        return out;
    }
    std::vector<long> csv_sequences(const std::string& name) const {
        std::ifstream in(m_dir + "/" + name);
        std::vector<long> firsts;
        std::string line;
        bool header_seen = false;
        while (std::getline(in, line)) {
            if (line.rfind("#", 0) == 0) continue;
            if (!header_seen) {
                EXPECT_EQ(line.rfind("time,sensor_id,first_sequence", 0), 0u) << name;
                header_seen = true;
                continue;
            }
            std::stringstream row(line);
            std::string time, id, first;
            std::getline(row, time, ',');
            std::getline(row, id, ',');
            std::getline(row, first, ',');
            firsts.push_back(std::stol(first));
        }
        EXPECT_TRUE(header_seen) << name;
        return firsts;
    }

    duSensorMetadata m_sensor{"A4486-3-12-40-2", {}, 0, 0, 0, 0};
    MeasurementApi m_api = linked_api();
};

TEST_F(RotatingLogTest, PeriodsGiveCompleteFilesWithEveryReadingOnceAndNoOverwrite) {
    // Someone else's file already has the first name: it gets a suffix.
    const std::string taken = m_dir + "/A4486-3-12-40-2_20261118T110640Z.csv";
    std::ofstream(taken) << "not ours\n";
    RotatingLog log({m_dir, LogFormat::Csv, {2.0, 0}, {}, 1.0}, m_api);
    for (int k = 0; k < 10; ++k) ASSERT_TRUE(log.write(m_sensor, reading(k, kStart + k * 500000000LL))) << log.error();
    ASSERT_TRUE(log.close()) << log.error();
    EXPECT_EQ(names(),
              (std::set<std::string>{"A4486-3-12-40-2_20261118T110640Z.csv", "A4486-3-12-40-2_20261118T110640Z_2.csv",
                                     "A4486-3-12-40-2_20261118T110642Z.csv", "A4486-3-12-40-2_20261118T110644Z.csv"}));
    std::ifstream in(taken);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "not ours\n");
    std::vector<long> all;
    for (const char* name : {"A4486-3-12-40-2_20261118T110640Z_2.csv", "A4486-3-12-40-2_20261118T110642Z.csv",
                             "A4486-3-12-40-2_20261118T110644Z.csv"}) {
        const auto rows = csv_sequences(name);
        EXPECT_LE(rows.size(), 4u) << name;
        all.insert(all.end(), rows.begin(), rows.end());
    }
    EXPECT_EQ(all, (std::vector<long>{0, 10, 20, 30, 40, 50, 60, 70, 80, 90}));
    EXPECT_EQ(log.files_closed(), 3u);
}

TEST_F(RotatingLogTest, SizeLimitAndChangedSettingsStartNewFiles) {
    RotatingLog log({m_dir, LogFormat::JsonLines, {0, 12000}, {}, 1.0}, m_api);
    for (int k = 0; k < 6; ++k) ASSERT_TRUE(log.write(m_sensor, reading(k, kStart + k))) << log.error();
    m_sensor.settings.shutter_speed = 100;  // a new header for the new settings
    ASSERT_TRUE(log.write(m_sensor, reading(6, kStart + 6)));
    ASSERT_TRUE(log.close());
    std::size_t lines = 0, headers = 0;
    for (const std::string& name : names()) {
        std::ifstream in(m_dir + "/" + name);
        std::string line;
        for (bool first = true; std::getline(in, line); first = false) {
            ++lines;
            headers += line.find("\"format\"") != std::string::npos;
            EXPECT_EQ(first, line.find("\"format\"") != std::string::npos) << name;
        }
    }
    // A reading is about 6.3 kB of JSON: two a file, then the file of the
    // new settings.
    EXPECT_EQ(names().size(), 4u);
    EXPECT_EQ(lines - headers, 7u);
}

TEST_F(RotatingLogTest, RetentionDeletesTheOldestClosedFilesOnly) {
    const std::vector<std::string> files = {"S_20261118T000000Z.csv", "S_20261118T000100Z.h5",
                                            "S_20261118T000200Z_2.jsonl", "S_20261118T000300Z.csv"};
    for (std::size_t i = 0; i < files.size(); ++i) {
        std::ofstream(m_dir + "/" + files[i]) << std::string(1000, 'x');
        const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(1700000000 + 60 * i), 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (m_dir + "/" + files[i]).c_str(), times, 0), 0);
    }
    std::ofstream(m_dir + "/notes.txt") << std::string(5000, 'y');  // not a log file: kept
    const std::string open = m_dir + "/" + files[0];
    EXPECT_EQ(prune_log_dir(m_dir, {0, 2500}, {open}),
              (std::vector<std::string>{m_dir + "/" + files[1], m_dir + "/" + files[2]}));
    EXPECT_EQ(names(), (std::set<std::string>{files[0], files[3], "notes.txt"}));
    EXPECT_EQ(prune_log_dir(m_dir, {86400, 0}, {}),
              (std::vector<std::string>{m_dir + "/" + files[0], m_dir + "/" + files[3]}));
    EXPECT_TRUE(prune_log_dir(m_dir, {}, {}).empty());
}

TEST_F(RotatingLogTest, AnUnwritableDirectoryIsAnErrorThatSaysWhere) {
    const std::string no_hdf5 = "not in this build";
    for (const auto& [format, suffix] : {std::pair{LogFormat::Csv, ".csv"}, std::pair{LogFormat::Hdf5, ".h5"}}) {
        RotatingLog log({m_dir + "/missing", format, {}, {}, 1.0}, m_api);
        EXPECT_FALSE(log.write(m_sensor, reading(0, kStart)));
        // Builds without libhdf5 (arm) refuse HDF5 files whatever the directory.
        if (format == LogFormat::Hdf5 && log.error().find(no_hdf5) != std::string::npos) continue;
        EXPECT_NE(log.error().find(m_dir + "/missing/A4486-3-12-40-2_20261118T110640Z" + suffix), std::string::npos)
            << log.error();
    }
}

}  // namespace
