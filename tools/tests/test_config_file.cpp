// The configuration files: which file and section wins, the file and line a
// fault is reported at, and set --save editing the user's file in place.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "config_file.h"
#include "temp_dir_test.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kId = "A4486-3-12-40-2";

class ConfigFileTest : public TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        m_system = m_dir + "/system.conf";
        m_user = m_dir + "/xdg/oru-sensor/oru-sensor.conf";
        ::setenv("ORU_SENSOR_SYSTEM_CONFIG", m_system.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (m_dir + "/xdg").c_str(), 1);
    }
    static void put(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << text;
    }
    static std::string text_of(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::string m_system, m_user;
};

TEST_F(ConfigFileTest, ALaterFileWinsOverAnEarlierSectionAndASectionOverItsOwnFilesTop) {
    put(m_system, "shutter = 5\nrange = 7\n[A4486-3-12-40-2]\nshutter = 6\ngain = 0\n");
    put(m_user, "[A4486-3-12-40-2]\nrange = 8\n[A4486-3-13-40-2]\nshutter = 9\n");
    const std::string given = m_dir + "/given.conf";
    put(given, "gain = 1\ndark = \"/d/dark file.csv\"\n");
    ConfigFiles files;
    std::string error;
    ASSERT_TRUE(files.load(given, error)) << error;
    const SensorSettings s = files.for_sensor(kId);
    EXPECT_EQ(s.at("shutter").value, "6");
    EXPECT_EQ(s.at("shutter").origin, m_system + ":4");
    EXPECT_EQ(s.at("range").origin, m_user + ":2");
    EXPECT_EQ(s.at("gain").origin, given + ":1");
    EXPECT_EQ(s.at("dark").value, "/d/dark file.csv");
    EXPECT_EQ(files.for_sensor("A4486-3-13-40-2").at("shutter").value, "9");
    EXPECT_EQ(files.for_sensor("A4486-3-13-40-2").at("range").value, "7");
    EXPECT_EQ(files.sections(), (std::vector<std::string>{kId, "A4486-3-13-40-2"}));
}

TEST_F(ConfigFileTest, MissingFilesAreSkippedButOneGivenByNameIsAFault) {
    ConfigFiles files;
    std::string error;
    ASSERT_TRUE(files.load("", error)) << error;
    EXPECT_EQ(files.files(), (std::vector<std::string>{m_system + " (absent)", m_user + " (absent)"}));
    EXPECT_FALSE(files.load(m_dir + "/none.conf", error));
    EXPECT_EQ(error, m_dir + "/none.conf: No such file or directory");
}

struct SaveCase {
    const char* name;
    const char* before;  // nullptr: no file yet
    const char* after;
};

void PrintTo(const SaveCase& c, std::ostream* os) { *os << c.name; }

class SaveSettings : public ConfigFileTest, public ::testing::WithParamInterface<SaveCase> {};

TEST_P(SaveSettings, ReplacesInPlaceOrAddsToTheSensorsSectionKeepingEveryOtherLine) {
    const SaveCase& c = GetParam();
    if (c.before != nullptr) put(m_user, c.before);
    std::string error;
    ASSERT_TRUE(save_sensor_settings(m_user, kId, {{"shutter", "100"}, {"gain", "0"}}, error)) << error;
    EXPECT_EQ(text_of(m_user), c.after);
    EXPECT_FALSE(fs::exists(m_user + ".new"));
}

INSTANTIATE_TEST_SUITE_P(
    Files, SaveSettings,
    ::testing::Values(
        SaveCase{"no_file", nullptr, "[A4486-3-12-40-2]\ngain = 0\nshutter = 100\n"},
        SaveCase{"other_sections_only", "averages = 3\n[A4486-3-13-40-2]\nshutter = 7\n",
                 "averages = 3\n[A4486-3-13-40-2]\nshutter = 7\n\n[A4486-3-12-40-2]\ngain = 0\nshutter = 100\n"},
        SaveCase{"keys_replaced_where_they_stand",
                 "# lab\nshutter = 1\n[A4486-3-12-40-2]\nshutter = 5  # old\nrange = 9\n",
                 "# lab\nshutter = 1\n[A4486-3-12-40-2]\nshutter = 100\nrange = 9\ngain = 0\n"},
        SaveCase{"section_before_another",
                 "[A4486-3-12-40-2]\nrange = 9\n\n[A4486-3-13-40-2]\ngain = 1\n",
                 "[A4486-3-12-40-2]\nrange = 9\ngain = 0\nshutter = 100\n\n[A4486-3-13-40-2]\ngain = 1\n"}));

struct FaultCase {
    const char* text;
    const char* where_and_reason;  // after the file's path
};

void PrintTo(const FaultCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class BrokenFile : public ConfigFileTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(BrokenFile, IsRefusedNamingFileLineAndReason) {
    put(m_user, GetParam().text);
    ConfigFiles files;
    std::string error;
    EXPECT_FALSE(files.load("", error));
    EXPECT_EQ(error, m_user + GetParam().where_and_reason);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BrokenFile,
    ::testing::Values(FaultCase{"shutter = 3001\n", ":1: shutter needs a whole number 1..3000, got 3001"},
                      FaultCase{"averages = 0\n", ":1: averages needs a whole number 1..2147483647, got 0"},
                      FaultCase{"gain = 1x\n", ":1: gain needs a whole number 0..1, got 1x"},
                      FaultCase{"range = 99999999999999999999\n",
                                ":1: range needs a whole number 0..255, got 99999999999999999999"},
                      FaultCase{"[A4486-3-12-40-2]\nmode = \"\"\n", ":2: mode needs one value"},
                      FaultCase{"# shutter = 1\n[A4486-3-12-40-2]\nshutter = 1\nshutter = 0\n",
                                ":3: shutter needs one value"},
                      FaultCase{"[x]\nflavour = 2\n", ":2: unknown setting 'flavour'"}));

}  // namespace
