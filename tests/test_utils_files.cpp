// File-system helpers.
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using U = oru_utils_interface;

namespace {

class TempDir : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/oru_utils_test_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root = pattern;
        ASSERT_NE(getcwd(start_dir, sizeof(start_dir)), nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(chdir(start_dir), 0);
        std::filesystem::remove_all(root);
    }
    // Permission bits of a directory, or -1.
    static int directory_mode(const std::string& path) {
        struct stat st;
        return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? static_cast<int>(st.st_mode & 07777) : -1;
    }
    std::string root;
    char start_dir[PATH_MAX] = {};
};

}  // namespace

TEST_F(TempDir, MakeDirectoryCreatesEveryLevelWithFullModeAndLeavesUmaskZero) {
    umask(022);
    U::make_directory((root + "/a/b/c").c_str());
    for (const char* level : {"/a", "/a/b", "/a/b/c"}) EXPECT_EQ(directory_mode(root + level), 0777) << level;
    EXPECT_EQ(umask(022), 0u);
}

// Levels before the index are not created: the search for '/' starts one
// character after it.
TEST_F(TempDir, MakeDirectoryFromAGivenIndex) {
    ASSERT_EQ(chdir(root.c_str()), 0);
    U::make_directory("m/n/o", 1);
    EXPECT_EQ(directory_mode(root + "/m"), -1);
    ASSERT_EQ(mkdir((root + "/m").c_str(), 0777), 0);
    U::make_directory("m/n/o", 1);
    EXPECT_NE(directory_mode(root + "/m/n/o"), -1);
}

TEST_F(TempDir, FileExistence) {
    const std::string file = root + "/present.csv";
    EXPECT_FALSE(U::is_file_exist(file));
    std::ofstream(file) << "1,2,3\n";
    EXPECT_TRUE(U::is_file_exist(file));
    EXPECT_FALSE(U::is_file_exist(""));
}
