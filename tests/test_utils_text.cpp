// Text helpers: tokenizer, trimming, case, path pieces, number lists and the
// sensor-ID parser.
#include "utils/oru_utils_interface.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

using U = oru_utils_interface;
using Strings = std::vector<std::string>;

namespace {

Strings parse(const std::string& text, const std::string& delimiters) {
    Strings fields;
    U::parse_sentense(text, delimiters, fields);
    return fields;
}

}  // namespace

TEST(ParseSentense, SplitsNumbersAtCommas) { EXPECT_EQ(parse("1.5,2,3", ","), (Strings{"1.5", "2", "3"})); }

TEST(ParseSentense, RunsOfDelimitersAndBothEndsGiveNoEmptyTokens) {
    EXPECT_EQ(parse(",,a,,b,", ","), (Strings{"a", "b"}));
    EXPECT_EQ(parse("x", ","), (Strings{"x"}));
}

TEST(ParseSentense, EmptyTextOrOnlyDelimitersAppendsNothing) {
    EXPECT_TRUE(parse("", ",").empty());
    EXPECT_TRUE(parse(",,,", ",").empty());
    EXPECT_TRUE(parse("\\ / /", "\\ /").empty());
}

TEST(ParseSentense, SensorIdGivesFiveTokens) {
    EXPECT_EQ(parse("A4486-3-12-40-2", "-"), (Strings{"A4486", "3", "12", "40", "2"}));
}

TEST(ParseSentense, AppendsAfterExistingEntries) {
    Strings fields{"old1", "old2"};
    U::parse_sentense("p,q", ",", fields);
    EXPECT_EQ(fields, (Strings{"old1", "old2", "p", "q"}));
    U::parse_sentense("", ",", fields);
    EXPECT_EQ(fields.size(), 4u);
}

TEST(TrimString, RemovesOnlySpacesAtBothEnds) {
    EXPECT_EQ(U::trim_string("  a b  "), "a b");
    EXPECT_EQ(U::trim_string("a"), "a");
    EXPECT_EQ(U::trim_string("\t a \n"), "\t a \n");
    EXPECT_EQ(U::trim_string(" \tx\r "), "\tx\r");
}

TEST(FileName, LastTokenAtBackslashSpaceOrSlash) {
    EXPECT_EQ(U::get_file_name("/tmp/x/name.txt"), "name.txt");
    EXPECT_EQ(U::get_file_name("C:\\dir\\f.csv"), "f.csv");
    EXPECT_EQ(U::get_file_name("dir/"), "dir");
    EXPECT_EQ(U::get_file_name("plain"), "plain");
}

TEST(FileName, SpaceCountsAsSeparator) {
    EXPECT_EQ(U::get_file_name("my file.txt"), "file.txt");
    EXPECT_EQ(U::get_file_name("/data/my file.txt"), "file.txt");
}

TEST(FilePath, KeepsTheLastSeparator) {
    EXPECT_EQ(U::get_file_path("/tmp/x/name.txt"), "/tmp/x/");
    EXPECT_EQ(U::get_file_path("C:\\a\\b.txt"), "C:\\a\\");
    EXPECT_EQ(U::get_file_path("/"), "/");
}

TEST(FilePath, BackslashWinsOverALaterSlash) {
    EXPECT_EQ(U::get_file_path("C:\\a\\b/c.txt"), "C:\\a\\");
    EXPECT_EQ(U::get_file_path("a/b\\c/d"), "a/b\\");
}

TEST(FileNameOnly, BetweenLastSeparatorAndLastDot) {
    EXPECT_EQ(U::get_file_name_only("/tmp/x/name.txt"), "name");
    EXPECT_EQ(U::get_file_name_only("C:\\d\\f.tar.gz"), "f.tar");
    EXPECT_EQ(U::get_file_name_only("name.txt"), "name");
    EXPECT_EQ(U::get_file_name_only("/tmp/.hidden"), "");
}

TEST(FileNameOnly, BackslashPathsUseOnlyBackslash) { EXPECT_EQ(U::get_file_name_only("a\\b/c.txt"), "b/c"); }

TEST(FileExtension, AfterTheLastDotOrWholePath) {
    EXPECT_EQ(U::get_file_extension("a.b.c"), "c");
    EXPECT_EQ(U::get_file_extension("/tmp/name.csv"), "csv");
    EXPECT_EQ(U::get_file_extension("archive"), "archive");
    EXPECT_EQ(U::get_file_extension("file."), "");
    EXPECT_EQ(U::get_file_extension(""), "");
}

TEST(IntegerVectorText, EveryValueFollowedByAComma) {
    EXPECT_EQ(U::integer_vector_to_string({1, 2, 3}), "1,2,3,");
    EXPECT_EQ(U::integer_vector_to_string({7}), "7,");
    EXPECT_EQ(U::integer_vector_to_string({}), "");
    EXPECT_EQ(U::integer_vector_to_string({-5, INT_MIN, INT_MAX}), "-5,-2147483648,2147483647,");
}

TEST(IntegerVectorText, ParsesCommaListsSkippingEmptyTokens) {
    EXPECT_EQ(U::string_to_integer_vector("1,2,3"), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(U::string_to_integer_vector(",,4,,-5,"), (std::vector<int>{4, -5}));
    EXPECT_TRUE(U::string_to_integer_vector("").empty());
}

struct DecodedId {
    char lot_char = 'Z';
    short lot_id = 11, wafer_id = 22, x_coord = 33, y_coord = 44;
    void decode(const std::string& text) {
        U::decode_sensor_ID(text, &lot_char, &lot_id, &wafer_id, &x_coord, &y_coord);
    }
};

TEST(DecodeSensorId, FullIdentity) {
    DecodedId id;
    testing::internal::CaptureStdout();
    id.decode("A4486-3-12-40-2");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(id.lot_char, 'A');
    EXPECT_EQ(id.lot_id, 4486);
    EXPECT_EQ(id.wafer_id, 3);
    EXPECT_EQ(id.x_coord, 12);
    EXPECT_EQ(id.y_coord, 40);
}

TEST(DecodeSensorId, FourTokensAreEnoughAndAFifthIsIgnored) {
    DecodedId id;
    id.decode("B7-1-2-3");
    EXPECT_EQ(id.lot_char, 'B');
    EXPECT_EQ(id.lot_id, 7);
    EXPECT_EQ(id.y_coord, 3);
    DecodedId more;
    more.decode("C1-2-3-4-5-6-7");
    EXPECT_EQ(more.y_coord, 4);
}

TEST(DecodeSensorId, LotNumberIsTheRestOfTheFirstToken) {
    DecodedId id;
    id.decode("Q-9-8-7");
    EXPECT_EQ(id.lot_char, 'Q');
    EXPECT_EQ(id.lot_id, 0);
    EXPECT_EQ(id.wafer_id, 9);

    // The lot number stops at its own token's end.
    DecodedId next;
    next.decode("R12-345-6-7");
    EXPECT_EQ(next.lot_id, 12);
    EXPECT_EQ(next.wafer_id, 345);
}

TEST(DecodeSensorId, ShortInputZeroesNumbersButLeavesLotCharacter) {
    for (const char* text : {"", "A4486-3-12", "----", "A4486"}) {
        DecodedId id;
        testing::internal::CaptureStdout();
        id.decode(text);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << text;
        EXPECT_EQ(id.lot_char, 'Z') << text;
        EXPECT_EQ(id.lot_id, 0) << text;
        EXPECT_EQ(id.wafer_id, 0) << text;
        EXPECT_EQ(id.x_coord, 0) << text;
        EXPECT_EQ(id.y_coord, 0) << text;
    }
}
