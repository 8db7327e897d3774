#include <gtest/gtest.h>
#include <wqevents/status.h>

#include <string>

#include "support/locales.h"

namespace {

using wq::test::CtypeLocale;
using wq::test::two_byte_encodings;
using wq::test::TwoByteEncoding;
using wq::test::TwoByteLocale;
using wq::test::utf8_locale;

std::string stripped(std::string text, int mode) {
    _WQstrip_whitespace(text.data(), mode);
    return text.c_str();
}

struct Row {
    const char* text;
    const char* without_leading;
    const char* without_trailing;
    const char* without_both;
};

const Row rows[] = {
    {"  a b  ", "a b  ", "  a b", "a b"},
    {"", "", "", ""},
    {" ", "", "", ""},
    {" \t\n\v\f\r", "", "", ""},
    {"a", "a", "a", "a"},
    {"a b", "a b", "a b", "a b"},
    {"a ", "a ", "a", "a"},
    {" a", "a", " a", "a"},
    {"\t a\n b\t\n", "a\n b\t\n", "\t a\n b", "a\n b"},
    {" a  b  c ", "a  b  c ", " a  b  c", "a  b  c"},
    {"\x01 \x01", "\x01 \x01", "\x01 \x01", "\x01 \x01"},
};

void expect_plain_text_to_be_stripped() {
    for (const Row& row : rows) {
        EXPECT_EQ(stripped(row.text, 0), row.without_leading) << row.text;
        EXPECT_EQ(stripped(row.text, 1), row.without_trailing) << row.text;
        EXPECT_EQ(stripped(row.text, 2), row.without_both) << row.text;
    }
}

TEST(StripWhitespace, ByMode) {
    expect_plain_text_to_be_stripped();
}

TEST(StripWhitespace, OtherModesChangeNothing) {
    for (const int mode : {-1, 3, 4, 1000, -2147483647}) {
        EXPECT_EQ(stripped("  a b  ", mode), "  a b  ") << mode;
    }
}

TEST(StripWhitespace, SurvivesNull) {
    for (const int mode : {0, 1, 2, 3}) {
        _WQstrip_whitespace(nullptr, mode);
    }
}

/* U+0085 and U+00A0 end in bytes that are white space in some encodings of one byte. */
TEST(StripWhitespace, InUtf8) {
    const CtypeLocale locale(utf8_locale);
    ASSERT_TRUE(locale.is_set());
    expect_plain_text_to_be_stripped();
    EXPECT_EQ(stripped(" ä b ö ", 2), "ä b ö");
    EXPECT_EQ(stripped(" \xC2\x85 ", 2), "\xC2\x85") << "no white space: two bytes";
    EXPECT_EQ(stripped(" \xC2\xA0 ", 2), "\xC2\xA0");
    EXPECT_EQ(stripped(" € ", 2), "€");
    EXPECT_EQ(stripped(" \xC3 ", 2), "\xC3") << "a character that breaks off";
    EXPECT_EQ(stripped(" a\xC3", 1), " a\xC3");
}

TEST(StripWhitespace, InTwoByteEncodings) {
    int tested = 0;
    for (const TwoByteEncoding& encoding : two_byte_encodings) {
        SCOPED_TRACE(encoding.name);
        const TwoByteLocale locale(encoding);
        if (!locale.is_set()) {
            continue;
        }
        expect_plain_text_to_be_stripped();
        for (const std::string character : {encoding.backslash, encoding.bar, encoding.letter}) {
            EXPECT_EQ(stripped(" " + character + " ", 2), character);
            EXPECT_EQ(stripped(character + " " + character + "\t", 1), character + " " + character);
            EXPECT_EQ(stripped(character.substr(0, 1) + " ", 1), character.substr(0, 1));
        }
        ++tested;
    }
    if (tested == 0) {
        GTEST_SKIP() << "no locale can be built (Debian: package locales)";
    }
}

}  // namespace
