// The fixture of the logger's tables of texts that a parser takes or refuses
// (limits, broker addresses): each case has `text` and `ok`.
#ifndef ORU_TOOLS_TESTS_TEXT_CASE_TEST_H
#define ORU_TOOLS_TESTS_TEXT_CASE_TEST_H

#include <gtest/gtest.h>

#include <string>

template <class Case>
class TextCaseTest : public ::testing::TestWithParam<Case> {
protected:
    // Runs parse(text, out, error). True when the text was taken, as the case
    // expects, so that the test compares what it gave; a refused text must be
    // one the case expects refused, and the reason must name it.
    template <class Out, class Parse>
    bool taken(Out& out, Parse parse) {
        const Case& c = this->GetParam();
        std::string error;
        const bool ok = parse(c.text, out, error);
        EXPECT_EQ(ok, c.ok) << c.text << ": " << error;
        if (!ok) {
            EXPECT_NE(error.find(c.text), std::string::npos) << error;
        }
        return ok && c.ok;
    }
};

#endif
