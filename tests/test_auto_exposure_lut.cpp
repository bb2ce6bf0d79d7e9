// The auto-exposure look-up tables: read from ./config at initialisation,
// first non-empty line only, one size for both tables.
#include "efm32com/oru_device_interface_ae.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <future>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

const char* kIntensity = "./config/intensity_LUT.csv";
const char* kShutter = "./config/ss_LUT.csv";

class AeLookUpTables : public testing::Test {
protected:
    void SetUp() override {
        m_oldDir = fs::current_path();
        char dirTemplate[] = "/tmp/oru_ae_lut_XXXXXX";
        ASSERT_NE(mkdtemp(dirTemplate), nullptr);
        m_dir = dirTemplate;
        fs::current_path(m_dir);
        fs::create_directory("config");
        reset_tables();
    }

    void TearDown() override {
        fs::current_path(m_oldDir);
        fs::remove_all(m_dir);
        reset_tables();
    }

    static void reset_tables() {
        delete[] g_intensityLUT;
        delete[] g_ssLUT;
        g_intensityLUT = nullptr;
        g_ssLUT = nullptr;
        g_aeLUTSize = 0;
    }

    static void write(const char* path, const std::string& text) { std::ofstream(path) << text; }

    fs::path m_oldDir;
    fs::path m_dir;
};

}  // namespace

TEST_F(AeLookUpTables, FirstNonEmptyLineIsTheTableAndLaterLinesAreIgnored) {
    write(kIntensity, "\n\n\n1.5,2,3\n9,9,9,9\n");
    write(kShutter, "10,,20,\n30\n");
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    ASSERT_NE(g_intensityLUT, nullptr);
    EXPECT_EQ(g_intensityLUT[0], 1.5);
    EXPECT_EQ(g_intensityLUT[1], 2.0);
    EXPECT_EQ(g_intensityLUT[2], 3.0);
    ASSERT_NE(g_ssLUT, nullptr);
    EXPECT_EQ(g_ssLUT[0], 10.0);
    EXPECT_EQ(g_ssLUT[1], 20.0);
    EXPECT_EQ(g_aeLUTSize, 2) << "the shutter-speed table, read last, sets the one size";
}

TEST_F(AeLookUpTables, MissingOrEmptyFilesAreSkipped) {
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    EXPECT_EQ(g_intensityLUT, nullptr);
    EXPECT_EQ(g_ssLUT, nullptr);
    EXPECT_EQ(g_aeLUTSize, 0);

    write(kIntensity, "4,5,6,7\n");
    write(kShutter, "\n\n");
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    EXPECT_EQ(g_aeLUTSize, 4) << "an empty shutter file leaves the size of the intensity file";
    EXPECT_EQ(g_intensityLUT[3], 7.0);
    EXPECT_EQ(g_ssLUT, nullptr);

    // Not regular files: a FIFO (opening it would block until a writer
    // came) and a directory count as missing.
    fs::remove(kShutter);
    ASSERT_EQ(mkfifo(kShutter, 0600), 0);
    fs::remove(kIntensity);
    fs::create_directory(kIntensity);
    auto loading = std::async(std::launch::async, [] { return initialize_ae_module(kIntensity, kShutter); });
    ASSERT_EQ(loading.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "blocked on the FIFO";
    EXPECT_EQ(loading.get(), 1);
    EXPECT_EQ(g_aeLUTSize, 4);
    EXPECT_EQ(g_ssLUT, nullptr);
    fs::remove(kShutter);
    fs::remove(kIntensity);
}

TEST_F(AeLookUpTables, LoadingAgainReplacesTheTablesAndAFailedLoadKeepsThem) {
    write(kIntensity, "1,2\n");
    write(kShutter, "3,4,5\n");
    initialize_ae_module(kIntensity, kShutter);
    write(kIntensity, "8\n");
    fs::remove(kShutter);
    initialize_ae_module(kIntensity, kShutter);
    EXPECT_EQ(g_intensityLUT[0], 8.0);
    EXPECT_EQ(g_aeLUTSize, 1);
    ASSERT_NE(g_ssLUT, nullptr);
    EXPECT_EQ(g_ssLUT[2], 5.0) << "a missing file leaves its table as it was";
}
