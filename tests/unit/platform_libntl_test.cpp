#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <wqplatform.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/locales.h"

namespace {

using wq::test::CtypeLocale;
using wq::test::two_byte_encodings;
using wq::test::TwoByteEncoding;
using wq::test::TwoByteLocale;
using wq::test::utf8_locale;
using Tokens = std::vector<std::string>;
using Tokenizer = char* (*)(char*, const char*);
using Finder = char* (*)(const char*, int);

Tokens tokens(Tokenizer next, std::string text, const char* delimiters) {
    Tokens found;
    for (char* token = next(text.data(), delimiters); token != nullptr;
         token = next(nullptr, delimiters)) {
        found.emplace_back(token);
    }
    EXPECT_EQ(nullptr, next(nullptr, delimiters)) << "the end stays the end";
    return found;
}

/* Where `c` is found in `text`, -1 for nowhere. */
long found_at(Finder find, const std::string& text, char c) {
    const char* at = find(text.c_str(), c);
    return at != nullptr ? at - text.c_str() : -1;
}

const Tokenizer tokenizers[] = {_WQstrtok, nl_strtok_mod};
const Finder finders[] = {_WQstrchr, strchr_new};

/* What holds in every locale: plain text is treated as the namesakes treat it. */
void expect_plain_text_to_work() {
    for (const Finder find : finders) {
        EXPECT_EQ(2, found_at(find, "ab,c,d", ','));
        EXPECT_EQ(-1, found_at(find, "abc", ','));
        EXPECT_EQ(3, found_at(find, "abc", '\0'));
        EXPECT_EQ(0, found_at(find, "", '\0'));
        EXPECT_EQ(nullptr, find(nullptr, 'a'));
        EXPECT_EQ(1, found_at(find, "ab", static_cast<char>('b' + 256)));
    }
    for (const Tokenizer next : tokenizers) {
        EXPECT_EQ((Tokens{"a", "b c", "d"}), tokens(next, ",,a,;b c;d,", ",;"));
        EXPECT_EQ(Tokens{"abc"}, tokens(next, "abc", ",;"));
        EXPECT_EQ(Tokens{"a,b"}, tokens(next, "a,b", ""));
        EXPECT_EQ(Tokens{}, tokens(next, ",;,", ",;"));
        EXPECT_EQ(Tokens{}, tokens(next, "", ","));
    }
}

TEST(Multibyte, PlainTextInTheCLocale) {
    const CtypeLocale locale("C");
    ASSERT_TRUE(locale.is_set());
    expect_plain_text_to_work();
    for (const Finder find : finders) {
        EXPECT_EQ(1, found_at(find, "a\xE4z", '\xE4'));
    }
    for (const Tokenizer next : tokenizers) {
        EXPECT_EQ((Tokens{"a", "z"}), tokens(next, "a\xE4z", "\xE4"));
    }
}

TEST(Multibyte, TextInUtf8) {
    const CtypeLocale locale(utf8_locale);
    ASSERT_TRUE(locale.is_set());
    expect_plain_text_to_work();
    for (const Finder find : finders) {
        EXPECT_EQ(4, found_at(find, "äö|ü", '|'));
        EXPECT_EQ(-1, found_at(find, "äöü", '\xC3')) << "a part of a character is none";
        EXPECT_EQ(2, found_at(find, "ä\xC3|", '\xC3')) << "damaged text is a character a byte";
        EXPECT_EQ(1, found_at(find, "\xC3|", '|')) << "a character that breaks off";
        EXPECT_EQ(-1, found_at(find, "a\xE2\x82", '|')) << "text that breaks off";
    }
    for (const Tokenizer next : tokenizers) {
        EXPECT_EQ((Tokens{"ä", "ö"}), tokens(next, "ä|ö", "|"));
        EXPECT_EQ((Tokens{"a", "b", "c"}), tokens(next, "aöb€c", "€ö")) << "ö and ä share a byte";
        EXPECT_EQ(Tokens{"aäb"}, tokens(next, "aäb", "ö"));
    }
}

TEST(Multibyte, TokenizersKeepPositionsOfTheirOwn) {
    std::string first = "a,b,c";
    std::string second = "x,y,z";
    std::string third = "1,2,3";
    EXPECT_STREQ("a", _WQstrtok(first.data(), ","));
    EXPECT_STREQ("x", nl_strtok_mod(second.data(), ","));
    EXPECT_STREQ("1", strtok(third.data(), ","));
    EXPECT_STREQ("b", _WQstrtok(nullptr, ","));
    EXPECT_STREQ("y", nl_strtok_mod(nullptr, ","));
    EXPECT_STREQ("2", strtok(nullptr, ","));
    EXPECT_STREQ("c", _WQstrtok(nullptr, ";")) << "delimiters may change";
}

TEST(Multibyte, TokenizersSurviveNulls) {
    for (const Tokenizer next : tokenizers) {
        std::string text = "a,b";
        EXPECT_EQ(nullptr, next(text.data(), nullptr));
        EXPECT_STREQ("a", next(text.data(), ","));
        EXPECT_STREQ("b", next(nullptr, ","));
        EXPECT_EQ(nullptr, next(nullptr, ","));
    }
}

void expect_two_byte_text_to_work(const TwoByteEncoding& encoding) {
    const std::string bar = encoding.bar;
    const std::string backslash = encoding.backslash;
    const std::string text = bar + "|" + backslash + "," + bar;
    for (const Finder find : finders) {
        EXPECT_EQ(2, found_at(find, text, '|'));
        EXPECT_EQ(-1, found_at(find, text, '\\'));
        EXPECT_EQ(-1, found_at(find, text, bar[0]));
        EXPECT_EQ(8, found_at(find, text, '\0'));
        EXPECT_EQ(0, found_at(find, "|" + text, '|'));
    }
    for (const Tokenizer next : tokenizers) {
        EXPECT_EQ((Tokens{bar, backslash + "," + bar}), tokens(next, text, "|"));
        EXPECT_EQ((Tokens{bar, backslash, bar}), tokens(next, text, "\\|,"));
        EXPECT_EQ((Tokens{"a", "b", "|"}),
                  tokens(next, "a" + bar + "b" + bar + bar + "|", bar.c_str()))
            << "a delimiter of two bytes";
        EXPECT_EQ(Tokens{"a" + bar.substr(0, 1)}, tokens(next, "a" + bar.substr(0, 1), "|"))
            << "half a character at the end";
    }
}

TEST(Multibyte, TextOfTwoByteEncodings) {
    int tested = 0;
    for (const TwoByteEncoding& encoding : two_byte_encodings) {
        SCOPED_TRACE(encoding.name);
        const TwoByteLocale locale(encoding);
        if (!locale.is_set()) {
            continue;
        }
        expect_plain_text_to_work();
        expect_two_byte_text_to_work(encoding);
        ++tested;
    }
    if (tested == 0) {
        GTEST_SKIP() << "no locale can be built (Debian: package locales)";
    }
}

TEST(Strings, AreTheirNamesakes) {
    char buffer[16];
    EXPECT_EQ(5U, strlen_new("aäöb") - 1);
    EXPECT_EQ(buffer, strcpy_new(buffer, "abc"));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ(buffer, strcat_new(buffer, "def"));
    EXPECT_STREQ("abcdef", buffer);
    EXPECT_LT(strcmp_new("a", "b"), 0);
    EXPECT_GT(strcmp_new("b", "a"), 0);
    EXPECT_EQ(0, strcmp_new("a", "a"));
    EXPECT_EQ(0, strncmp_new("abc", "abd", 2));
    EXPECT_LT(strncmp_new("abc", "abd", 3), 0);
    EXPECT_EQ(0, strcoll_new("-", "-"));
    EXPECT_NE(0, strcoll_new("-", "a"));
    char* copy = strdup_new("text");
    EXPECT_STREQ("text", copy);
    std::free(copy);
}

TEST(Strings, CopyOfSoManyBytesIsPaddedAndNotEnded) {
    char buffer[] = "xxxxxxxx";
    EXPECT_EQ(buffer, strncpy_new(buffer, "ab", 5));
    EXPECT_EQ(0, std::memcmp(buffer, "ab\0\0\0xxx", 8));
    strncpy_new(buffer, "abcdef", 3);
    EXPECT_EQ(0, std::memcmp(buffer, "abc\0\0xxx", 8));
    strncpy_new(buffer, "zz", 0);
    EXPECT_EQ('a', buffer[0]);
}

TEST(Strings, SurviveNulls) {
    char buffer[] = "text";
    EXPECT_EQ(0U, strlen_new(nullptr));
    EXPECT_EQ(nullptr, strcpy_new(nullptr, "a"));
    EXPECT_EQ(nullptr, strcpy_new(buffer, nullptr));
    EXPECT_EQ(nullptr, strncpy_new(nullptr, "a", 1));
    EXPECT_EQ(nullptr, strncpy_new(buffer, nullptr, 1));
    EXPECT_EQ(nullptr, strcat_new(nullptr, "a"));
    EXPECT_EQ(nullptr, strcat_new(buffer, nullptr));
    EXPECT_STREQ("text", buffer);
    EXPECT_EQ(nullptr, strdup_new(nullptr));
    for (const auto compare : {strcmp_new, strcoll_new}) {
        EXPECT_EQ(0, compare(nullptr, nullptr));
        EXPECT_LT(compare(nullptr, ""), 0);
        EXPECT_GT(compare("", nullptr), 0);
    }
    EXPECT_LT(strncmp_new(nullptr, "a", 1), 0);
    EXPECT_GT(strncmp_new("a", nullptr, 1), 0);
}

}  // namespace
