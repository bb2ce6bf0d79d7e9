// The fixture of the tools' tests that write files: a fresh directory under
// /tmp for each test, removed with all it holds afterwards.
#ifndef ORU_TOOLS_TESTS_TEMP_DIR_TEST_H
#define ORU_TOOLS_TESTS_TEMP_DIR_TEST_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/oru-tools-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string m_dir;
};

#endif
