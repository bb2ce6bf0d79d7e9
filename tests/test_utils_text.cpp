// Text helpers: tokenizer, trimming, path pieces, number lists and the
// sensor-ID parser.
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <regex>
#include <string>
#include <vector>

using U = oru_utils_interface;
using Strings = std::vector<std::string>;

TEST(ParseSentense, DropsEmptyTokensAndAppends) {
    struct Case {
        const char* text;
        const char* delimiters;
        Strings expected;
    };
    for (const Case& c : {Case{"1.5,2,3", ",", {"1.5", "2", "3"}}, Case{",,a,,b,", ",", {"a", "b"}},
                          Case{"x", ",", {"x"}}, Case{"", ",", {}}, Case{",,,", ",", {}}, Case{"\\ / /", "\\ /", {}},
                          Case{"A4486-3-12-40-2", "-", {"A4486", "3", "12", "40", "2"}}}) {
        Strings fields{"old"};
        U::parse_sentense(c.text, c.delimiters, fields);
        Strings expected{"old"};
        expected.insert(expected.end(), c.expected.begin(), c.expected.end());
        EXPECT_EQ(fields, expected) << c.text;
    }
}

// Each helper against its inputs and the results it keeps on purpose: only
// spaces are trimmed, a space separates like a slash, a backslash wins over a
// later slash, a path without a dot is its own extension.
TEST(PathAndTrim, Table) {
    struct Case {
        std::function<std::string(std::string)> helper;
        const char* input;
        const char* expected;
    };
    const auto name = U::get_file_name, path = U::get_file_path, only = U::get_file_name_only;
    const auto ext = [](std::string s) { return U::get_file_extension(s); };
    for (const Case& c :
         {Case{U::trim_string, "  a b  ", "a b"}, Case{U::trim_string, "\t a \n", "\t a \n"},
          Case{U::trim_string, " \tx\r ", "\tx\r"}, Case{name, "/tmp/x/name.txt", "name.txt"},
          Case{name, "C:\\dir\\f.csv", "f.csv"}, Case{name, "dir/", "dir"}, Case{name, "/data/my file.txt", "file.txt"},
          Case{path, "/tmp/x/name.txt", "/tmp/x/"}, Case{path, "/", "/"}, Case{path, "C:\\a\\b/c.txt", "C:\\a\\"},
          Case{path, "a/b\\c/d", "a/b\\"}, Case{only, "/tmp/x/name.txt", "name"},
          Case{only, "C:\\d\\f.tar.gz", "f.tar"}, Case{only, "/tmp/.hidden", ""}, Case{only, "a\\b/c.txt", "b/c"},
          Case{ext, "a.b.c", "c"}, Case{ext, "archive", "archive"}, Case{ext, "file.", ""}, Case{ext, "", ""}}) {
        EXPECT_EQ(c.helper(c.input), c.expected) << c.input;
    }
}

TEST(IntegerVectorText, EveryValueFollowedByACommaAndBack) {
    EXPECT_EQ(U::integer_vector_to_string({-5, INT_MIN, INT_MAX}), "-5,-2147483648,2147483647,");
    EXPECT_EQ(U::integer_vector_to_string({}), "");
    EXPECT_EQ(U::string_to_integer_vector(",,4,,-5,"), (std::vector<int>{4, -5}));
    EXPECT_TRUE(U::string_to_integer_vector("").empty());
}

// Lot letter, then the rest of the first token as the lot number; four
// tokens are enough, a fifth is ignored; fewer zero the numbers but keep the
// letter as it was.
TEST(DecodeSensorId, Table) {
    struct Case {
        const char* text;
        char lot_char;
        short lot_id, wafer_id, x_coord, y_coord;
    };
    for (const Case& c :
         {Case{"A4486-3-12-40-2", 'A', 4486, 3, 12, 40}, Case{"C1-2-3-4-5-6-7", 'C', 1, 2, 3, 4},
          Case{"Q-9-8-7", 'Q', 0, 9, 8, 7}, Case{"R12-345-6-7", 'R', 12, 345, 6, 7}, Case{"", 'Z', 0, 0, 0, 0},
          Case{"A4486-3-12", 'Z', 0, 0, 0, 0}, Case{"----", 'Z', 0, 0, 0, 0}, Case{"A4486", 'Z', 0, 0, 0, 0}}) {
        char lot_char = 'Z';
        short lot_id = 11, wafer_id = 22, x_coord = 33, y_coord = 44;
        testing::internal::CaptureStdout();
        U::decode_sensor_ID(c.text, &lot_char, &lot_id, &wafer_id, &x_coord, &y_coord);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << c.text;
        EXPECT_EQ(lot_char, c.lot_char) << c.text;
        EXPECT_EQ(std::vector<short>({lot_id, wafer_id, x_coord, y_coord}),
                  std::vector<short>({c.lot_id, c.wafer_id, c.x_coord, c.y_coord}))
            << c.text;
    }
}

// asctime of the local time now: 24 characters and a newline, the same from
// all three.
TEST(TimeStamp, AsctimeTextOfNow) {
    const std::string stamp = U::get_time_stamp();
    EXPECT_TRUE(std::regex_match(stamp, std::regex("(Sun|Mon|Tue|Wed|Thu|Fri|Sat) [A-Z][a-z]{2} [ 1-3][0-9] "
                                                   "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] [0-9]{4}\n")))
        << stamp;
    EXPECT_EQ(U::get_time_stamp_simple().substr(0, 10), stamp.substr(0, 10));
    EXPECT_EQ(U::get_time_stamp_complex().substr(0, 10), stamp.substr(0, 10));
}
