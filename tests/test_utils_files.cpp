// File-system, system and time-stamp helpers.
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
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
    static bool is_directory(const std::string& path, mode_t* mode = nullptr) {
        struct stat st;
        if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
        if (mode != nullptr) *mode = st.st_mode & 07777;
        return true;
    }
    std::string root;
    char start_dir[PATH_MAX] = {};
};

}  // namespace

TEST_F(TempDir, MakeDirectoryCreatesEveryLevelOfAnAbsolutePath) {
    umask(022);
    std::string path = root + "/a/b/c";
    U::make_directory(path.c_str());
    mode_t mode = 0;
    EXPECT_TRUE(is_directory(root + "/a", &mode));
    EXPECT_EQ(mode, 0777u);
    EXPECT_TRUE(is_directory(root + "/a/b", &mode));
    EXPECT_EQ(mode, 0777u);
    EXPECT_TRUE(is_directory(path, &mode));
    EXPECT_EQ(mode, 0777u);
    // The process umask stays at 0 afterwards.
    EXPECT_EQ(umask(022), 0u);
}

TEST_F(TempDir, MakeDirectoryFromAGivenIndex) {
    // Levels before the index are not created: the search for '/' starts
    // one character after it.
    ASSERT_EQ(chdir(root.c_str()), 0);
    U::make_directory("m/n/o", 1);
    EXPECT_FALSE(is_directory(root + "/m/n"));
    EXPECT_FALSE(is_directory(root + "/m"));
    EXPECT_FALSE(is_directory(root + "/m/n/o"));
    ASSERT_TRUE(is_directory(root) && mkdir((root + "/m").c_str(), 0777) == 0);
    U::make_directory("m/n/o", 1);
    EXPECT_TRUE(is_directory(root + "/m/n/o"));
}

TEST_F(TempDir, FileExistence) {
    std::string file = root + "/present.csv";
    EXPECT_FALSE(U::is_file_exist(file));
    std::ofstream(file) << "1,2,3\n";
    EXPECT_TRUE(U::is_file_exist(file));
    EXPECT_FALSE(U::is_file_exist(""));
    EXPECT_FALSE(U::is_file_exist(root + "/missing/x.csv"));
}
