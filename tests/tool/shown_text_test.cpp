#include "shown_text.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_line.h"
#include "octets.h"
#include "trap_lines.h"
#include "utf8.h"

namespace wq::command {
namespace {

std::string lines_of(std::string lines) {
    show_lines(lines);
    return lines;
}

bool is_printable(std::string_view text) {
    return command::is_printable(
        std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

// Each row: a text, and how it is shown in the middle of a line.
const struct {
    std::string_view text;
    std::string_view shown;
} rows[] = {
    {"", ""},
    {"plain ~ text \\x41", "plain ~ text \\x41"},
    {std::string_view("\0", 1), "\\x00"},
    {"\x01", "\\x01"},
    {"\a\b", "\\x07\\x08"},
    {"\t", "\t"},
    {"\n", "\\x0a"},
    {"\v\f\r", "\\x0b\\x0c\\x0d"},
    {"\x1B[2J", "\\x1b[2J"},
    {"\x1F\x20", "\\x1f "},
    {"\x7E\x7F", "~\\x7f"},
    // Octets on their own are no UTF-8, those of C1 among them.
    {"\x80", "\\x80"},
    {"\x9B"
     "2J",
     "\\x9b2J"},
    {"\x9F\xA0\xBF", "\\x9f\\xa0\\xbf"},
    {"\xC2", "\\xc2"},
    {"\xC2\x7F", "\\xc2\\x7f"},
    {"\xC2\x80", "\\xc2\\x80"},
    {"\xC2\x9B", "\\xc2\\x9b"},
    {"\xC2\x9F", "\\xc2\\x9f"},
    {"\xC2\xA0", "\xC2\xA0"},
    {"\xC2\xC0", "\\xc2\\xc0"},
    {"\xDF\xBF", "\xDF\xBF"},
    {"Stra\xC3\x9F"
     "e \xE6\x97\xA5 \xF0\x9F\x99\x82",
     "Stra\xC3\x9F"
     "e \xE6\x97\xA5 \xF0\x9F\x99\x82"},
    // Longer than need be.
    {"\xC0\x9B", "\\xc0\\x9b"},
    {"\xC1\xBF", "\\xc1\\xbf"},
    {"\xE0\x82\x9B", "\\xe0\\x82\\x9b"},
    {"\xE0\x9F\xBF", "\\xe0\\x9f\\xbf"},
    {"\xE0\xA0\x80", "\xE0\xA0\x80"},
    {"\xF0\x80\x82\x9B", "\\xf0\\x80\\x82\\x9b"},
    {"\xF0\x8F\xBF\xBF", "\\xf0\\x8f\\xbf\\xbf"},
    {"\xF0\x90\x80\x80", "\xF0\x90\x80\x80"},
    // Surrogates and what lies beyond the last character.
    {"\xED\x9F\xBF", "\xED\x9F\xBF"},
    {"\xED\xA0\x80", "\\xed\\xa0\\x80"},
    {"\xED\xBF\xBF", "\\xed\\xbf\\xbf"},
    {"\xEE\x80\x80", "\xEE\x80\x80"},
    {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
    {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    {"\xF5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
    {"\xF8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
    {"\xFE\xFF", "\\xfe\\xff"},
    // Cut, at the end and in the middle: the letter after it stays.
    {"\xE6\x97", "\\xe6\\x97"},
    {"\xF0\x9F\x99", "\\xf0\\x9f\\x99"},
    {"\xE6\x97"
     "a",
     "\\xe6\\x97a"},
    {"\xE6\xC3\xA9", "\\xe6\xC3\xA9"},
    {"\xF0\x9F\x1B\x82", "\\xf0\\x9f\\x1b\\x82"},
    // What starts a line or turns letters round; single marks of direction stay.
    {"\xE2\x80\xA7", "\xE2\x80\xA7"},
    {"\xE2\x80\xA8\xE2\x80\xA9", "\\xe2\\x80\\xa8\\xe2\\x80\\xa9"},
    {"\xE2\x80\xAA", "\\xe2\\x80\\xaa"},
    {"\xE2\x80\xAE", "\\xe2\\x80\\xae"},
    {"\xE2\x80\xAF", "\xE2\x80\xAF"},
    {"\xE2\x81\xA5", "\xE2\x81\xA5"},
    {"\xE2\x81\xA6", "\\xe2\\x81\\xa6"},
    {"\xE2\x81\xA9", "\\xe2\\x81\\xa9"},
    {"\xE2\x81\xAA", "\xE2\x81\xAA"},
    {"\xE2\x80\x8D\xE2\x80\x8E\xE2\x80\x8F", "\xE2\x80\x8D\xE2\x80\x8E\xE2\x80\x8F"},
};

TEST(ShownText, EscapesWhatATerminalWouldObey) {
    for (const auto& row : rows) {
        EXPECT_EQ(shown(row.text), row.shown);
        EXPECT_EQ(shown(std::string("a").append(row.text).append("z")),
                  std::string("a").append(row.shown).append("z"));
        EXPECT_EQ(shown(row.shown), row.shown) << "what is shown stays";
    }
}

TEST(ShownText, LinesKeepTheirNewlines) {
    for (const auto& row : rows) {
        if (row.text != "\n") {
            EXPECT_EQ(lines_of(std::string(row.text) + "\n"), std::string(row.shown) + "\n");
        }
    }
    EXPECT_EQ(lines_of("a\nb\tc\n\n"), "a\nb\tc\n\n");
    EXPECT_EQ(lines_of("a\nb\r\n"), "a\nb\\x0d\n");
}

TEST(ShownText, EveryOctetOfEachLongLineIsLookedAt) {
    for (std::size_t at = 0; at < 200; ++at) {
        std::string line(200, 'x');
        line[at] = '\x1B';
        const std::string expected = line.substr(0, at) + "\\x1b" + line.substr(at + 1);
        EXPECT_EQ(lines_of(line), expected);
    }
}

TEST(ShownText, FurtherLinesOfAMessageAreIndented) {
    EXPECT_EQ(indented("one"), "one");
    EXPECT_EQ(indented("one\ntwo\n\nthree"), "one\n\ttwo\n\t\n\tthree");
}

TEST(Utf8, PrintableTextHasNoControlCharacters) {
    for (const char* text : {"", "a\tb\r\n", "\xC2\xA0", "\xE2\x80\xAE", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(is_printable(text)) << text;
    }
    for (const char* text : {"\x1F", "\x7F", "\xC2\x80", "\xC2\x9F", "\xC2", "a\xE6\x97", "\x0B"}) {
        EXPECT_FALSE(is_printable(text)) << shown(text);
    }
}

TEST(JsonLine, StaysJsonAndHarmless) {
    const std::string text =
        "\x1B\x7F\xC2\x80\xC2\x9F\xC2\xA0\xE2\x80\xA8\xE2\x80\xAE\xC3\xA9\"\\\n";
    nlohmann::ordered_json object;
    object[text] = text;
    const std::string line = json_line(object);
    EXPECT_EQ(lines_of(line), line);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(nlohmann::ordered_json::parse(line), object);
    EXPECT_EQ(json_line("\x7F\xC3\xA9"), "\"\\u007f\xC3\xA9\"\n");
    EXPECT_EQ(json_line("a\xFF\xC2"), "\"a\xEF\xBF\xBD\xEF\xBF\xBD\"\n");
    EXPECT_EQ(json_line("plain"), "\"plain\"\n");
}

constexpr const char* date = "Sun Sep 09 01:46:40 2001 ";

TEST(TrapLines, BareContinuationsAreIndented) {
    for (const rtrap_user kind : {ZLEEVENT_USER, KMEVENTS_USER}) {
        const std::string first = std::string(date) + "gate            A one\n";
        EXPECT_EQ(trap_lines(kind, first, "gate"), first);
        EXPECT_EQ(trap_lines(kind, first + "two\nthree\n", "gate"), first + "\ttwo\n\tthree\n");
    }
    EXPECT_EQ(trap_lines(PRX_USER, "one\ntwo\n\tthree\n", "gate"), "one\n\ttwo\n\t\tthree\n");
    EXPECT_EQ(trap_lines(PRX_USER, "", "gate"), "");
}

TEST(TrapLines, OtherContinuationsStandAsTheyAre) {
    const std::string daemon = std::string("1000000000 3  ") + date +
                               "gate                      A one\n1000000000 3  " + date +
                               " gate                      A two\n";
    EXPECT_EQ(trap_lines(VORTD_USER, daemon, "gate"), daemon);
    EXPECT_EQ(trap_lines(OBU_USER, "gate: one\n\t\t\tgate: two\n", "gate"),
              "gate: one\n\t\t\tgate: two\n");
    EXPECT_EQ(trap_lines(OBU_USER, "one\n\t\t\ttwo\n", "<none>"), "one\n\t\t\ttwo\n");
}

TEST(TrapLines, AFirstLineIsNoContinuation) {
    EXPECT_EQ(trap_lines(PRX_USER, "\tone\n", "gate"), "\\x09one\n");
    EXPECT_EQ(trap_lines(PRX_USER, "\t\tone\ntwo\n", "gate"), "\\x09\tone\n\ttwo\n");
    EXPECT_EQ(trap_lines(OBU_USER, "\t\t\tx: one\n", "\t\t\tx"), "\\x09\t\tx: one\n");
}

// A host that a trap names may hold anything.
TEST(TrapLines, ANewlineInTheHostEndsNoLine) {
    const std::string host = "a\nb";
    for (const rtrap_user kind : {ZLEEVENT_USER, KMEVENTS_USER}) {
        EXPECT_EQ(trap_lines(kind, std::string(date) + "a\nb             A one\ntwo\n", host),
                  std::string(date) + "a\\x0ab             A one\n\ttwo\n");
    }
    const std::string wide = "0123456789abc\n\n\nfurther";  // 15 characters of it are shown
    EXPECT_EQ(trap_lines(KMEVENTS_USER, std::string(date) + "0123456789abc\n\n A one\n", wide),
              std::string(date) + "0123456789abc\\x0a\\x0a A one\n");
    EXPECT_EQ(trap_lines(OBU_USER, "a\nb: one\n\t\t\ta\nb: two\n", host),
              "a\\x0ab: one\n\t\t\ta\\x0ab: two\n");
    EXPECT_EQ(trap_lines(VORTD_USER,
                         std::string("1000000000 3  ") + date + "a\nb A one\n1000000000 3  " +
                             date + " a\nb A two\n",
                         host),
              std::string("1000000000 3  ") + date + "a\\x0ab A one\n1000000000 3  " + date +
                  " a\\x0ab A two\n");
    // Numbers that are wider than their columns.
    EXPECT_EQ(trap_lines(VORTD_USER, std::string("10000000000 123 ") + date + "a\nb A one\n", host),
              std::string("10000000000 123 ") + date + "a\\x0ab A one\n");
    EXPECT_EQ(trap_lines(VORTD_USER, std::string("7          63 ") + date + "\n A one\n", "\n"),
              std::string("7          63 ") + date + "\\x0a A one\n");
    EXPECT_EQ(trap_lines(PRX_USER, "one\ntwo\n", "\n"), "one\n\ttwo\n");
}

TEST(TrapLines, TextsOfNoLayoutAreTakenLineByLine) {
    for (const rtrap_user kind : {ZLEEVENT_USER, VORTD_USER, OBU_USER, KMEVENTS_USER, PRX_USER}) {
        for (const char* text : {"\n", "x", "x\ny", "1", "1 ", "\n\n", "1000000000 3  Sun"}) {
            EXPECT_TRUE(trap_lines(kind, text, "a\nb").ends_with("\n")) << kind << text;
        }
    }
}

}  // namespace
}  // namespace wq::command
