#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "EMS/events/internal/text_scan.h"
#include "support/env_value.h"
#include "support/format_model.h"
#include "support/locales.h"
#include "support/random.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace {

using wq::test::CompiledFormat;
using wq::test::CtypeLocale;
using wq::test::EnvValue;
using wq::test::Random;
using wq::test::TempDir;
using wq::test::two_byte_encodings;
using wq::test::TwoByteEncoding;
using wq::test::TwoByteLocale;
using wq::test::utf8_locale;

/* An element and what it owns. */
class Element {
  public:
    ~Element() {
        doFree(element_.rawstring);
        doFree(element_.format);
    }
    Element() = default;
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    CompiledFormat compile(const std::string& raw) {
        makeFormatString(doStrdup(raw.c_str()), &element_);
        return wq::test::contents_of(element_);
    }
    trap_element* operator->() { return &element_; }
    trap_element* get() { return &element_; }

  private:
    trap_element element_{};
};

CompiledFormat compile(const std::string& raw) {
    Element element;
    return element.compile(raw);
}

/* Escapes interpreted into exactly as much room as the header asks for. */
std::string interpret(const std::string& in) {
    std::vector<char> out(2 * in.size() + 1, '?');
    interpret_esc_sequences(in.c_str(), out.data());
    return out.data();
}

class RawSwitch {
  public:
    explicit RawSwitch(int value) { trpFormatDontMallocRaw = value; }
    ~RawSwitch() { trpFormatDontMallocRaw = 0; }
    RawSwitch(const RawSwitch&) = delete;
    RawSwitch& operator=(const RawSwitch&) = delete;
};

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

/* First of all: the catalogue is opened once a process, and a child begins as its parent is. */
TEST(AReplacedFormat, IsTranslatedAndCompiled) {
    const TempDir folder;
    folder.write("events.msg", "$quote \"\n$set 1\n6 \"$A: zu lang\\\\t100%\"\n");
    const std::string catalogue = folder.path("events.cat");
    const std::string command =
        std::string("gencat '").append(catalogue).append("' '").append(folder.path("events.msg"));
    ASSERT_EQ(std::system((command + "'").c_str()), 0);
    const int result = wq::test::sandbox::run_in_child([&] {
        const EnvValue path("NLSPATH", catalogue);
        EXPECT_EQ(compile(std::string(5000, 'x')),
                  (CompiledFormat{"%s: zu lang\t100%%", {{0, 0}}}));
        return ::testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(result, 0);
}

struct EscapeRow {
    const char* in;
    const char* out;
};

TEST(Escapes, AreInterpreted) {
    const EscapeRow rows[] = {
        {"", ""},
        {"plain text of more than eight bytes", "plain text of more than eight bytes"},
        {R"(\")", "\""},
        {R"(\')", "'"},
        {R"(\\)", "\\"},
        {R"(\a\b\f\n\r\t\v)", "\x07\x08\x0C\x0A\x0D\x09\x0B"},
        {R"(\x41\x4a\x4A\xfF)", "AJJ\xFF"},
        {R"(\x410)", "A0"},
        {R"(\101\012)", "A\n"},
        {R"(\077\177\0011)", "?\x7F\x01\x31"},
        {R"(a\nb)", "a\nb"},
        {R"(a long text\tand one more\n)", "a long text\tand one more\n"},
        {R"(\\n)", "\\n"},
        {R"(\\\n)", "\\\n"},
        {R"(\A\q\z\ \2\7\8\$\-)", ""},
        {R"(1\ 2)", "12"},
        {R"(\201)", "01"},
        {R"(\X41)", "41"},
        {"\\", ""},
        {"ab\\", "ab"},
        {"100%", "100%%"},
        {"100%%", "100%%"},
        {"%%%", "%%%%"},
        {"%%%%", "%%%%"},
        {"%s%d", "%%s%%d"},
        {R"(\%)", ""},
        {R"(\%%)", "%%"},
        {R"(%\%)", "%%"},
        {R"(\x25)", "%"},
        {R"(\x25\x25)", "%%"},
        {R"(\x25%)", "%%%"},
        {R"(\045)", "%"},
        {"$1 $$", "$1 $$"},
        {"\x80\xFF", "\x80\xFF"},
    };
    for (const EscapeRow& row : rows) {
        EXPECT_EQ(interpret(row.in), row.out) << row.in;
    }
}

/* Too few digits: the pair is dropped as any other unknown one, and what follows is text. */
TEST(Escapes, WithoutTheirDigitsAreUnknown) {
    const EscapeRow rows[] = {
        {R"(\x)", ""},   {R"(\x4)", "4"}, {R"(\x4g)", "4g"},   {R"(\xg4)", "g4"}, {R"(\x@1)", "@1"},
        {R"(\0)", ""},   {R"(\1)", ""},   {R"(\01)", "1"},     {R"(\08)", "8"},   {R"(\018)", "18"},
        {R"(\1a)", "a"}, {R"(\17)", "7"}, {R"(\x4\n)", "4\n"},
    };
    for (const EscapeRow& row : rows) {
        EXPECT_EQ(interpret(row.in), row.out) << row.in;
    }
}

/* At each offset of a word, at each distance from the end. */
TEST(Escapes, AreFoundWhereverTheyStand) {
    for (int before = 0; before < 20; ++before) {
        for (int behind = 0; behind < 20; ++behind) {
            const std::string head(static_cast<std::size_t>(before), 'x');
            const std::string tail(static_cast<std::size_t>(behind), 'y');
            EXPECT_EQ(interpret(head + "\\t" + tail), head + "\t" + tail);
            EXPECT_EQ(interpret(head + "%" + tail), head + "%%" + tail);
        }
    }
}

TEST(Escapes, OfNulGoOnBehindIt) {
    char out[16];
    std::memset(out, '?', sizeof out);
    interpret_esc_sequences(R"(a\x00b\000c)", out);
    EXPECT_EQ(std::string(out, 7), std::string("a\0b\0c\0?", 7));
}

TEST(Escapes, NeedNoMoreThanTheResult) {
    for (const std::string in : {"abcdefghijk", R"(\n\n\n\n\n\n\n\n\n)", R"(a\tbcdefghi)"}) {
        const std::string expected = wq::test::interpreted(in);
        std::vector<char> out(expected.size() + 1);
        interpret_esc_sequences(in.c_str(), out.data());
        EXPECT_EQ(out.data(), expected);
    }
}

TEST(Escapes, SurviveNulls) {
    char out[] = "kept";
    interpret_esc_sequences(nullptr, out);
    interpret_esc_sequences("text", nullptr);
    EXPECT_STREQ(out, "kept");
}

struct FormatRow {
    const char* raw;
    CompiledFormat expected;
};

TEST(Format, TokensAreRecorded) {
    const FormatRow rows[] = {
        {"", {"", {}}},
        {"no token at all", {"no token at all", {}}},
        {"Link $1 on $A is down", {"Link %s on %s is down", {{13, 1}, {0, 0}}}},
        {"$A", {"%s", {{0, 0}}}},
        {"$a", {"%s", {{1, 0}}}},
        {"$C", {"%s", {{2, 0}}}},
        {"$E", {"%s", {{3, 0}}}},
        {"$e", {"%s", {{4, 0}}}},
        {"$G", {"%s", {{5, 0}}}},
        {"$S", {"%s", {{6, 0}}}},
        {"$s", {"%s", {{7, 0}}}},
        {"$c", {"%s", {{8, 0}}}},
        {"$l", {"%s", {{9, 0}}}},
        {"$d", {"%s", {{10, 0}}}},
        {"$T", {"%s", {{11, 0}}}},
        {"$*", {"%s", {{12, 0}}}},
        {"$7", {"%s", {{13, 7}}}},
        {"$-7", {"%s", {{14, 7}}}},
        {"$+7", {"%s", {{15, 7}}}},
        {"$=7", {"%s", {{16, 7}}}},
        {"$I7", {"%s", {{17, 7}}}},
        {"$i7", {"%s", {{18, 7}}}},
        {"$t7", {"%s", {{19, 7}}}},
        {"$#", {"%s", {{20, 0}}}},
        {"$L7", {"%s", {{21, 7}}}},
        {R"($\x257)", {"%s", {{22, 7}}}},
        {R"($\0457)", {"%s", {{22, 7}}}},
        {"$+5", {"%s", {{15, 5}}}},
        {"$-12", {"%s", {{14, 12}}}},
        {"$10", {"%s", {{13, 10}}}},
        {"$80", {"%s", {{13, 80}}}},
        {"$L80 $t10", {"%s %s", {{21, 80}, {19, 10}}}},
        {"$A$a$1$2", {"%s%s%s%s", {{0, 0}, {1, 0}, {13, 1}, {13, 2}}}},
        {"$Ab$1a", {"%sb%sa", {{0, 0}, {13, 1}}}},
        {R"(\x241 \0442)", {"%s %s", {{13, 1}, {13, 2}}}},
        {R"($\x31\x32)", {"%s", {{13, 12}}}},
        {R"($1\x00$2)", {"%s", {{13, 1}}}},
        {R"($1\n"$2")", {"%s\n\"%s\"", {{13, 1}, {13, 2}}}},
        {"NO FMT IN VORTD.CONF: $E ($e) generic:$G specific:$S args($#): $*",
         {"NO FMT IN VORTD.CONF: %s (%s) generic:%s specific:%s args(%s): %s",
          {{3, 0}, {4, 0}, {5, 0}, {6, 0}, {20, 0}, {12, 0}}}},
    };
    for (const FormatRow& row : rows) {
        EXPECT_EQ(compile(row.raw), row.expected) << row.raw;
    }
}

TEST(Format, WhatIsNoTokenStays) {
    const FormatRow rows[] = {
        {"$", {"$", {}}},
        {"cost: 5 $", {"cost: 5 $", {}}},
        {"$0", {"$0", {}}},
        {"$01", {"$01", {}}},
        {"$x", {"$x", {}}},
        {"$+", {"$+", {}}},
        {"$-0", {"$-0", {}}},
        {"$L", {"$L", {}}},
        {"$t x", {"$t x", {}}},
        {"$B$D$N$n$ $.", {"$B$D$N$n$ $.", {}}},
        {"$+-1", {"$+-1", {}}},
        {"$+$A", {"$+%s", {{0, 0}}}},
        {"$i$i1", {"$i%s", {{18, 1}}}},
        {"$\x80\x31", {"$\x80\x31", {}}},
        {"$$", {"$", {}}},
        {"$$A", {"$A", {}}},
        {"$$$A", {"$%s", {{0, 0}}}},
        {"$$$$1", {"$$1", {}}},
        {"$$1$1", {"$1%s", {{13, 1}}}},
        {"a$$", {"a$", {}}},
        {"100%", {"100%%", {}}},
        {R"(\%)", {"", {}}},
        {R"(5\%1)", {"51", {}}},
        {"$%1", {"$%%1", {}}},
        {"$%%1", {"$%%1", {}}},
        {R"($\x25\x251)", {"$%%1", {}}},
        {R"($\x250)", {"$%0", {}}},
        {"%s", {"%%s", {}}},
    };
    for (const FormatRow& row : rows) {
        EXPECT_EQ(compile(row.raw), row.expected) << row.raw;
    }
}

/* Of a number that is too large only the last digit is left, and no sign or letter. */
TEST(Format, LargeNumbersAreShortened) {
    const FormatRow rows[] = {
        {"$81", {"$1", {}}},
        {"$+123", {"$3", {}}},
        {"$100", {"$0", {}}},
        {"$t90x", {"$0x", {}}},
        {"$-81$1", {"$1%s", {{13, 1}}}},
        {R"(a$\x2599)", {"a$9", {}}},
        {"$800", {"$0", {}}},
        {"$4294967297", {"$7", {}}},
        {"$18446744073709551617", {"$7", {}}},
        {"$=99999999999999999999999999999999999999999999999999999999999998.", {"$8.", {}}},
    };
    for (const FormatRow& row : rows) {
        EXPECT_EQ(compile(row.raw), row.expected) << row.raw;
    }
}

TEST(Format, SeventyNineTokensAreRecorded) {
    CompiledFormat expected{repeated("%s,", 79) + repeated("$2,", 6)};
    expected.args.assign(79, {13, 2});
    EXPECT_EQ(compile(repeated("$2,", 85)), expected);

    expected.format = repeated("%s", 79) + "$$ $A $+123";
    expected.args.assign(79, {0, 0});
    EXPECT_EQ(compile(repeated("$A", 79) + "$$ $A $+123"), expected) << "nothing is looked at";

    expected.format = "$" + repeated("%s", 79) + "$0$x";
    EXPECT_EQ(compile("$$" + repeated("$A", 79) + "$0$x"), expected);

    expected.format = repeated("%s", 78) + "$0$x$%s$A";
    EXPECT_EQ(compile(repeated("$A", 78) + "$0$x$$$A$A"), expected) << "what is not counted";
}

TEST(Format, TextsOf4094BytesFit) {
    const std::string text(4094, 'a');
    EXPECT_EQ(compile(text), CompiledFormat{text});
    const std::string percents = repeated("%x", 2047);
    EXPECT_EQ(compile(percents), CompiledFormat{repeated("%%x", 2047)});
    EXPECT_EQ(compile(std::string(4093, 'b') + "%"), CompiledFormat{std::string(4093, 'b') + "%%"});
}

TEST(Format, LongerTextsAreReplaced) {
    for (const std::size_t length : {4095U, 4096U, 10000U}) {
        Element element;
        EXPECT_EQ(element.compile(repeated("$A", 2047) + std::string(length - 4094, 'a')),
                  CompiledFormat{"Format string too long"});
        EXPECT_STREQ(element->rawstring, "Format string too long");
    }
    EXPECT_EQ(compile(repeated("\\n", 2048)), CompiledFormat{"Format string too long"})
        << "the length is that of the text as written";
}

TEST(Format, TheElementOwnsTheText) {
    Element element;
    char* raw = doStrdup("$A");
    makeFormatString(raw, element.get());
    EXPECT_EQ(element->rawstring, raw);
    EXPECT_STREQ(raw, "$A") << "as the user wrote it";
    EXPECT_EQ(element->num_args, 1);
}

TEST(Format, CompilingAgainReplacesEverything) {
    Element element;
    element.compile("$A and $1");
    EXPECT_EQ(element.compile("only $2"), (CompiledFormat{"only %s", {{13, 2}}}));
    EXPECT_STREQ(element->rawstring, "only $2");
    EXPECT_EQ(element.compile(""), CompiledFormat{""});
}

TEST(Format, AnElementMayBeCompiledFromItsOwnText) {
    Element element;
    element.compile("$A and $1");
    makeFormatString(element->rawstring, element.get());
    EXPECT_STREQ(element->rawstring, "$A and $1");
    EXPECT_STREQ(element->format, "%s and %s");
}

TEST(Format, TheTextIsNotKeptWhereItIsNotWanted) {
    const RawSwitch switched(1);
    Element element;
    EXPECT_EQ(element.compile("$A"), (CompiledFormat{"%s", {{0, 0}}}));
    EXPECT_EQ(element->rawstring, nullptr);
    element.compile("$1");
    EXPECT_EQ(element->rawstring, nullptr);
}

TEST(Format, AKeptTextGoesWhenItIsNoLongerWanted) {
    Element element;
    element.compile("$A");
    const RawSwitch switched(1);
    element.compile("$1");
    EXPECT_EQ(element->rawstring, nullptr);
}

TEST(Format, SurvivesNulls) {
    Element element;
    element.compile("$A");
    makeFormatString(nullptr, element.get());
    EXPECT_STREQ(element->format, "%s");
    char raw[] = "text";
    makeFormatString(raw, nullptr);
    EXPECT_STREQ(raw, "text");
}

TEST(Format, Utf8IsWalkedByCharactersOfTwoBytes) {
    const CtypeLocale locale(utf8_locale);
    ASSERT_TRUE(locale.is_set());
    EXPECT_EQ(compile("Störung: $1 für $A äöü"),
              (CompiledFormat{"Störung: %s für %s äöü", {{13, 1}, {0, 0}}}));
    EXPECT_EQ(compile("ä$ä$äö\\nö"), CompiledFormat{"ä$ä$äö\nö"});
    EXPECT_EQ(compile("a\\äb"), CompiledFormat{"ab"}) << "both bytes are the character";
    EXPECT_EQ(compile("a\\€b"), CompiledFormat{"a\x82\xAC"
                                               "b"})
        << "a byte is a character";
    EXPECT_EQ(compile("\\ä"), CompiledFormat{""});
    EXPECT_EQ(compile("\xC3"), CompiledFormat{"\xC3"}) << "a character that breaks off";
    EXPECT_EQ(compile("\\\xC3"), CompiledFormat{""});
    EXPECT_EQ(compile("\xC3$1\xE2\x82$2"),
              (CompiledFormat{"\xC3%s\xE2\x82%s", {{13, 1}, {13, 2}}}));
    EXPECT_EQ(compile("日本語$1"), (CompiledFormat{"日本語%s", {{13, 1}}}));
}

TEST(Format, BytesAreCharactersInTheCLocale) {
    EXPECT_EQ(compile("a\\\xC3\xA4z"), CompiledFormat{"a\xA4z"});
    EXPECT_EQ(compile("\x81\\n"), CompiledFormat{"\x81\n"});
}

/* In no such encoding can the second byte be a dollar or a percent sign. */
TEST(Format, SecondBytesAreNoDelimiters) {
    int tested = 0;
    for (const TwoByteEncoding& encoding : two_byte_encodings) {
        SCOPED_TRACE(encoding.name);
        const TwoByteLocale locale(encoding);
        if (!locale.is_set()) {
            continue;
        }
        const std::string backslash = encoding.backslash;
        const std::string letter = encoding.letter;
        EXPECT_EQ(compile(backslash + "n$1"), (CompiledFormat{backslash + "n%s", {{13, 1}}}));
        EXPECT_EQ(compile(backslash + "\\n"), CompiledFormat{backslash + "\n"});
        EXPECT_EQ(compile("\\" + backslash + "n"), CompiledFormat{"n"})
            << "an unknown escape, both bytes of it";
        EXPECT_EQ(compile("$" + letter + "$A"), (CompiledFormat{"$" + letter + "%s", {{0, 0}}}));
        EXPECT_EQ(compile("$+" + letter), CompiledFormat{"$+" + letter});
        EXPECT_EQ(compile(letter + "$" + letter.substr(1)),
                  (CompiledFormat{letter + "%s", {{0, 0}}}));
        EXPECT_EQ(compile(letter.substr(0, 1)), CompiledFormat{letter.substr(0, 1)});
        EXPECT_EQ(compile("\\" + letter.substr(0, 1)), CompiledFormat{""});
        ++tested;
    }
    if (tested == 0) {
        GTEST_SKIP() << "no locale can be built (Debian: package locales)";
    }
}

/* A random text, rich in what means something. */
std::string random_text(Random& random, const char* high) {
    const std::vector<std::string> pieces{
        "$",     "$$",    "\\",    "%",    "$1",  "$+1",   "$-80",
        "$81",   "0",     "9",     "12",   "A",   "s",     "*",
        "#",     "L",     "t",     "I",    "i",   "=",     "\\x2",
        "\\x5",  "4",     "\\0",   "\\10", "\\n", "text",  "long words of text",
        "\x80",  "\xFF",  high,    "ä",    "€",   "\\x24", "\\x25",
        "\\x81", "\\xC3", "\\xA4",
    };
    std::string text;
    const uint32_t count = random.any_size() % (random.one_in(50) ? 2000 : 40);
    for (uint32_t i = 0; i < count; ++i) {
        text += random.one_in(8)
                    ? std::string(1, static_cast<char>(random.between(1, 255)))
                    : pieces[random.between(0, static_cast<uint32_t>(pieces.size()) - 1)];
    }
    return text;
}

void compare_random_texts_with_the_model(const char* high) {
    Random random;
    Element element;
    for (int i = 0; i < 10000; ++i) {
        const std::string text = random_text(random, high);
        ASSERT_EQ(element.compile(text), wq::test::compiled(text)) << random.name() << '\n' << text;
        ASSERT_LE(element->num_args, EMS_ARGS_MAX - 1);
        if (text.size() <= 4094) {
            ASSERT_EQ(interpret(text), wq::test::interpreted(text).c_str()) << random.name();
        }
    }
}

TEST(Format, RandomTextsInTheCLocale) {
    compare_random_texts_with_the_model("\x81\\");
}

TEST(Format, RandomTextsInUtf8) {
    const CtypeLocale locale(utf8_locale);
    ASSERT_TRUE(locale.is_set());
    compare_random_texts_with_the_model("ö");
}

TEST(Format, RandomTextsInATwoByteEncoding) {
    REQUIRE_TWO_BYTE_LOCALE(locale);
    compare_random_texts_with_the_model(locale.encoding().backslash);
}

std::string sucked(std::string text, std::size_t at) {
    suck_a_char(text.data() + at);
    return text.c_str();
}

TEST(SuckAChar, RemovesOneCharacter) {
    EXPECT_EQ(sucked("abc", 0), "bc");
    EXPECT_EQ(sucked("abc", 1), "ac");
    EXPECT_EQ(sucked("abc", 2), "ab");
    EXPECT_EQ(sucked("abc", 3), "abc") << "the terminator stays";
    EXPECT_EQ(sucked("", 0), "");
    suck_a_char(nullptr);
}

TEST(SuckAChar, RemovesCharactersOfTwoBytesWhole) {
    EXPECT_EQ(sucked("\xC3\xA4z", 0), "\xA4z");
    const CtypeLocale utf8(utf8_locale);
    ASSERT_TRUE(utf8.is_set());
    EXPECT_EQ(sucked("aäb", 1), "ab");
    EXPECT_EQ(sucked("aä", 1), "a");
    EXPECT_EQ(sucked("a\xC3", 1), "a");
    EXPECT_EQ(sucked("€", 0), "\x82\xAC") << "one byte of three";
}

TEST(SuckAChar, RemovesCharactersOfATwoByteEncodingWhole) {
    REQUIRE_TWO_BYTE_LOCALE(locale);
    EXPECT_EQ(sucked(std::string(locale.encoding().backslash) + "n", 0), "n");
    EXPECT_EQ(sucked("x" + std::string(locale.encoding().letter), 1), "x");
}

TEST(TextScan, TellsSizesAndCodes) {
    EXPECT_EQ(wq::character_size(""), 1);
    EXPECT_EQ(wq::character_size("ä"), 1) << "the locale has bytes only";
    EXPECT_EQ(wq::character_code("$"), '$');
    EXPECT_EQ(wq::character_code("\xFF"), 0xFF);
    const CtypeLocale utf8(utf8_locale);
    ASSERT_TRUE(utf8.is_set());
    EXPECT_EQ(wq::character_size("ä"), 2);
    EXPECT_EQ(wq::character_size("€"), 1);
    EXPECT_EQ(wq::character_size("\xC3"), 1) << "the terminator is never a second byte";
    EXPECT_EQ(wq::character_code("ä"), 0xC3A4);
    EXPECT_EQ(wq::character_code("€"), 0xE2);
    EXPECT_EQ(wq::character_code("a"), 'a');
    EXPECT_EQ(wq::character_code(""), 0);
}

}  // namespace
