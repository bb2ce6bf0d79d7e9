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

// First non-empty line only, empty fields skipped; the shutter-speed table,
// read last, sets the one size, unless its file is empty.
TEST_F(AeLookUpTables, FirstNonEmptyLineIsTheTableAndTheShutterTableSetsTheSize) {
    write(kIntensity, "\n\n\n1.5,2,3\n9,9,9,9\n");
    write(kShutter, "10,,20,\n30\n");
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    ASSERT_TRUE(g_intensityLUT && g_ssLUT);
    EXPECT_EQ(std::vector<double>(g_intensityLUT, g_intensityLUT + 3), (std::vector<double>{1.5, 2, 3}));
    EXPECT_EQ(std::vector<double>(g_ssLUT, g_ssLUT + 2), (std::vector<double>{10, 20}));
    EXPECT_EQ(g_aeLUTSize, 2);
    write(kIntensity, "4,5,6,7\n");
    write(kShutter, "\n\n");
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    EXPECT_EQ(g_aeLUTSize, 4);
    EXPECT_EQ(g_intensityLUT[3], 7.0);
    EXPECT_EQ(g_ssLUT[1], 20.0) << "an empty file leaves its table as it was";
}

// Missing files, a FIFO (opening it would block until a writer came) and a
// directory are skipped.
TEST_F(AeLookUpTables, MissingOrIrregularFilesAreSkipped) {
    EXPECT_EQ(initialize_ae_module(kIntensity, kShutter), 1);
    EXPECT_EQ(g_intensityLUT, nullptr);
    EXPECT_EQ(g_ssLUT, nullptr);
    EXPECT_EQ(g_aeLUTSize, 0);
    ASSERT_EQ(mkfifo(kShutter, 0600), 0);
    fs::create_directory(kIntensity);
    auto loading = std::async(std::launch::async, [] { return initialize_ae_module(kIntensity, kShutter); });
    ASSERT_EQ(loading.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "blocked on the FIFO";
    EXPECT_EQ(loading.get(), 1);
    EXPECT_EQ(g_aeLUTSize, 0);
    EXPECT_EQ(g_ssLUT, nullptr);
    fs::remove(kShutter);
    fs::remove(kIntensity);
}
