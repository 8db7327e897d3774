#include <gtest/gtest.h>
#include <wqevents/formatter.h>
#include <wqevents/trace.h>

#include <cwchar>
#include <cwctype>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/exact_block.h"
#include "support/locales.h"
#include "support/random.h"
#include "support/temp_dir.h"
#include "support/vectors.h"

namespace {

using namespace std::string_literals;

using wq::test::Bytes;
using wq::test::CtypeLocale;
using wq::test::ExactArray;
using wq::test::ExactBlock;
using wq::test::Random;
using wq::test::read_vectors;
using wq::test::TempDir;
using wq::test::to_hex;
using wq::test::TwoByteLocale;

class Strict {
  public:
    explicit Strict(bool is_strict) { strictHex = is_strict ? 1 : 0; }
    ~Strict() { strictHex = 0; }
    Strict(const Strict&) = delete;
    Strict& operator=(const Strict&) = delete;
};

std::string in_hex(std::string_view text) {
    return to_hex(Bytes(text.begin(), text.end()));
}

std::string text_of(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

/* The text's first `expected` bytes with the terminator, as rendered into exactly `size` bytes. */
std::string rendered(const Bytes& octets, size_t size, size_t expected) {
    const ExactBlock exact(octets);
    ExactArray<char> buffer(size);
    std::fill_n(buffer.data(), size, '\x55');
    formatOctetString(buffer.data(), buffer.length(), exact.data(), exact.length());
    return {buffer.data(), std::min(expected + 1, size)};
}

/* Runs a block in each of the locales "C", "UTF-8" and "two-byte" that there is. */
void in_locale(const std::string& name, const std::function<void()>& block) {
    if (name == "two-byte") {
        const TwoByteLocale locale;
        if (locale.is_set()) {
            block();
        }
        return;
    }
    const CtypeLocale locale(name == "UTF-8" ? wq::test::utf8_locale : "C");
    ASSERT_TRUE(locale.is_set());
    block();
}

TEST(FormatOctetString, ShowsTextOrHexadecimalByTheCharactersOfTheLocale) {
    for (const auto& row : read_vectors("value_octets.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Strict strict(row[1] == "1");
        const std::string expected = text_of(wq::test::ber(row[3]));
        in_locale(row[0], [&] {
            EXPECT_EQ(in_hex(rendered(wq::test::ber(row[2]), 4096, expected.size())),
                      in_hex(expected + '\0'));
        });
    }
}

TEST(FormatOctetString, NeedsATwoByteLocale) {
    REQUIRE_TWO_BYTE_LOCALE(locale);
    EXPECT_TRUE(locale.is_set());
}

struct CutCase {
    const char* octets;
    size_t size;
    const char* expected;
};

/* Text goes on while four bytes are left, and a character and the terminator fit. */
const CutCase text_cuts[] = {
    {"'abcdef'", 1, ""},
    {"'abcdef'", 3, ""},
    {"'abcdef'", 4, "'a'"},
    {"'abcdef'", 5, "'ab'"},
    {"'abcdef'", 8, "'abcde'"},
    {"'abcdef'", 9, "'abcdef'"},
    {"'abcdef'", 10, "'abcdef'"},
    {"c3a9 'b'", 3, ""},
    {"c3a9 'b'", 4, "c3a9"},
    {"c3a9 'b'", 5, "c3a9"},
    {"c3a9 'b'", 6, "c3a9 'b'"},
    {"e4b8ad 'b'", 4, "e4b8ad"},
    {"e4b8ad 'b'", 6, "e4b8ad"},
    {"e4b8ad 'b'", 7, "e4b8ad 'b'"},
    {"f09f9880 'b'", 4, ""},
    {"f09f9880 'b'", 5, "f09f9880"},
    {"f09f9880 'b'", 7, "f09f9880"},
    {"f09f9880 'b'", 8, "f09f9880 'b'"},
    {"'a' f09f9880", 5, "'a'"},
    {"'a' f09f9880", 6, "'a' f09f9880"},
};

TEST(FormatOctetString, CutsTextBetweenCharacters) {
    const CtypeLocale locale(wq::test::utf8_locale);
    for (const CutCase& row : text_cuts) {
        const std::string expected = text_of(wq::test::ber(row.expected));
        EXPECT_EQ(in_hex(rendered(wq::test::ber(row.octets), row.size, expected.size())),
                  in_hex(expected + '\0'))
            << row.octets << " in " << row.size;
    }
}

/* The prefix takes two bytes, each octet three, and a fourth has to be left. */
const CutCase hexadecimal_cuts[] = {
    {"010203", 1, ""},
    {"010203", 2, ""},
    {"010203", 3, "'0x'"},
    {"010203", 5, "'0x'"},
    {"010203", 6, "'0x01 '"},
    {"010203", 8, "'0x01 '"},
    {"010203", 9, "'0x01 02 '"},
    {"010203", 11, "'0x01 02 '"},
    {"010203", 12, "'0x01 02 03'"},
    {"010203", 13, "'0x01 02 03'"},
};

TEST(FormatOctetString, CutsHexadecimalBetweenOctets) {
    for (const CutCase& row : hexadecimal_cuts) {
        const std::string expected = text_of(wq::test::ber(row.expected));
        EXPECT_EQ(in_hex(rendered(wq::test::ber(row.octets), row.size, expected.size())),
                  in_hex(expected + '\0'))
            << row.octets << " in " << row.size;
    }
}

TEST(FormatOctetString, ShowsNoOctetsOfANegativeLength) {
    const uint8_t octet = 'a';
    for (int size = 1; size < 10; ++size) {
        ExactArray<char> buffer(static_cast<size_t>(size));
        formatOctetString(buffer.data(), size, &octet, -1);
        EXPECT_STREQ(buffer.data(), size > 2 ? "0x" : "");
    }
}

TEST(FormatOctetString, DoesNothingWithoutABuffer) {
    const uint8_t octet = 'a';
    char text = 'x';
    formatOctetString(&text, 0, &octet, 1);
    formatOctetString(&text, -1, &octet, 1);
    formatOctetString(&text, 1, nullptr, 1);
    EXPECT_EQ(text, 'x');
    formatOctetString(nullptr, 10, &octet, 1);
}

TEST(FormatOctetString, NeverChangesTheProgramsHexadecimalSwitch) {
    const wq::test::EnvValue variable("VORTD_STRICT_HEX_FORMAT", "1");
    EXPECT_EQ(rendered({'a', ' ', 'b'}, 20, 3), "a b"s + '\0');
    EXPECT_EQ(strictHex, 0);
}

/*
 * The same rules once more, one character after the other and each of them asked for in the locale.
 */
std::string model(const Bytes& octets, size_t room, bool strict) {
    size_t unprintable = 0;
    bool is_hexadecimal = false;
    std::vector<std::string> characters;
    for (size_t at = 0; at < octets.size();) {
        wchar_t wide = 0;
        std::mbstate_t state{};
        const size_t size = std::mbrtowc(&wide, reinterpret_cast<const char*>(&octets[at]),
                                         std::min<size_t>(MB_CUR_MAX, octets.size() - at), &state);
        if (size > MB_CUR_MAX) {
            is_hexadecimal = true;
            break;
        }
        const auto character = static_cast<std::wint_t>(wide);
        const bool is_print = std::iswprint(character) != 0;
        const bool is_space = std::iswspace(character) != 0;
        if (strict ? !is_print || is_space : !is_print && !is_space) {
            ++unprintable;
        }
        const size_t step = std::max<size_t>(size, 1);
        characters.emplace_back(octets.begin() + static_cast<ptrdiff_t>(at),
                                octets.begin() + static_cast<ptrdiff_t>(at + step));
        at += step;
    }
    if (unprintable != 0 && (unprintable > octets.size() / 2 || strict)) {
        is_hexadecimal = true;
    }
    std::string text;
    if (!is_hexadecimal) {
        for (const std::string& character : characters) {
            const size_t left = room - text.size();
            if (left < 4 || character.size() + 1 > left) {
                break;
            }
            text.append(character);
        }
        return text;
    }
    if (room > 2) {
        text.append("0x");
    }
    size_t left = room - text.size();
    for (size_t i = 0; i < octets.size() && left >= 4; ++i, left -= 3) {
        text.append(to_hex(std::span(&octets[i], 1)));
        if (i + 1 < octets.size()) {
            text.append(" ");
        }
    }
    return text;
}

Bytes random_octets(Random& random, const std::vector<std::string>& characters) {
    Bytes octets;
    const bool is_clean = random.one_in(2);
    const uint32_t pieces = random.between(0, 14);
    for (uint32_t i = 0; i < pieces; ++i) {
        const uint32_t kind = random.between(0, is_clean ? 6 : 8);
        if (kind < 3) {
            octets.insert(octets.end(), random.between(1, 9),
                          static_cast<uint8_t>(random.between(0x20, 0x7f)));
        } else if (kind < 5) {
            octets.push_back(static_cast<uint8_t>(random.between(0, 0x20)));
        } else if (kind < 7 && !characters.empty()) {
            const std::string& character =
                characters[random.between(0, static_cast<uint32_t>(characters.size()) - 1)];
            octets.insert(octets.end(), character.begin(), character.end());
        } else {
            octets.push_back(random.byte());
        }
    }
    return octets;
}

void compare_with_model(const std::vector<std::string>& characters) {
    Random random;
    SCOPED_TRACE(random.name());
    for (int round = 0; round < 400; ++round) {
        const Bytes octets = random_octets(random, characters);
        const bool is_strict = random.one_in(3);
        const Strict strict(is_strict);
        for (size_t size = 1; size <= 3 * octets.size() + 6; size += 1 + size / 8) {
            const std::string expected = model(octets, size, is_strict);
            ASSERT_EQ(in_hex(rendered(octets, size, expected.size())), in_hex(expected + '\0'))
                << to_hex(octets) << " in " << size << (is_strict ? ", strict" : "");
        }
    }
}

const std::vector<std::string> utf8_characters = {"\xc3\xa9",    "\xe4\xb8\xad", "\xf0\x9f\x98\x80",
                                                  "\xc2\x80",    "\xe3\x80\x80", "\xc2\xa0",
                                                  "\xef\xbb\xbf"};

TEST(FormatOctetString, AgreesWithThePlainWayInC) {
    in_locale("C", [] { compare_with_model({}); });
}

TEST(FormatOctetString, AgreesWithThePlainWayInUtf8) {
    in_locale("UTF-8", [] { compare_with_model(utf8_characters); });
}

TEST(FormatOctetString, AgreesWithThePlainWayInTwoByteEncodings) {
    for (const auto& encoding : wq::test::two_byte_encodings) {
        SCOPED_TRACE(encoding.name);
        const TwoByteLocale locale(encoding);
        if (locale.is_set()) {
            compare_with_model({encoding.backslash, encoding.bar, encoding.letter, "\x81\x40"});
        }
    }
}

void compare_each_octet() {
    for (const bool is_strict : {false, true}) {
        const Strict strict(is_strict);
        for (unsigned octet = 0; octet < 256; ++octet) {
            for (const size_t at : {0U, 3U, 7U, 8U, 15U, 16U, 31U, 32U, 39U}) {
                Bytes octets(40, 'a');
                octets[at] = static_cast<uint8_t>(octet);
                const std::string expected = model(octets, 100, is_strict);
                ASSERT_EQ(in_hex(rendered(octets, 100, expected.size())), in_hex(expected + '\0'))
                    << to_hex(octets);
                const Bytes alone{static_cast<uint8_t>(octet)};
                const std::string expected_alone = model(alone, 100, is_strict);
                ASSERT_EQ(in_hex(rendered(alone, 100, expected_alone.size())),
                          in_hex(expected_alone + '\0'));
            }
        }
    }
}

TEST(FormatOctetString, JudgesEachOctetInEachPlaceAsTheLocaleDoes) {
    for (const char* name : {"C", "UTF-8"}) {
        SCOPED_TRACE(name);
        in_locale(name, compare_each_octet);
    }
    for (const auto& encoding : wq::test::two_byte_encodings) {
        SCOPED_TRACE(encoding.name);
        const TwoByteLocale locale(encoding);
        if (locale.is_set()) {
            compare_each_octet();
        }
    }
}

/* What a trace holds of one rendering, without the time stamps. */
std::vector<std::string> traced(const Bytes& octets) {
    const TempDir folder;
    traceStartingAndStopping = 0;
    EXPECT_EQ(open_trace_log(folder.path("trace").c_str()), 0);
    rendered(octets, 100, 0);
    close_trace_log();
    traceStartingAndStopping = 1;
    std::vector<std::string> lines;
    std::ifstream file(folder.path("trace"));
    for (std::string line; std::getline(file, line);) {
        constexpr size_t stamp = 25;
        lines.push_back(line.substr(std::min(stamp, line.size())));
    }
    return lines;
}

const std::string strict_line =
    "formatOctetStr:: Environment variable VORTD_STRICT_HEX_FORMAT is set.";

std::string unprintable_line(const std::string& octet) {
    return "formatOctetStr::  " + octet + " not a printable character, converting to hex.";
}

std::string invalid_line(const std::string& octet) {
    return "formatOctetStr::  " + octet +
           " not a valid multi-byte character, converting entire string to hex; result = -1.";
}

std::string count_line(const std::string& count, const std::string& length) {
    return "formatOctetStr::  hexCount = " + count + ", string length = " + length +
           ", converting entire string to hex.";
}

using Lines = std::vector<std::string>;

/* The separators of lines and paragraphs are white space that no printer shows, the wide blank is
 * white space that is printable: none counts as unprintable, unless it is judged strictly. */
TEST(FormatOctetString, TakesTheSeparatorsOfLinesForWhiteSpace) {
    const CtypeLocale locale(wq::test::utf8_locale);
    ASSERT_TRUE(locale.is_set());
    ASSERT_TRUE(std::iswspace(0x2028) != 0 && std::iswprint(0x2028) == 0);
    for (const std::string separator : {"\u2028", "\u2029", "\u2003"}) {
        for (const std::string& text : {separator, "a" + separator, "a" + separator + "b"}) {
            const Bytes octets(text.begin(), text.end());
            EXPECT_EQ(rendered(octets, 100, text.size()), text + '\0') << in_hex(text);
            EXPECT_EQ(traced(octets), Lines{});
            const Strict strict(true);
            const std::string hex = "0x" + in_hex(text);
            EXPECT_EQ(rendered(octets, 100, hex.size()), hex + '\0');
        }
    }
}

TEST(FormatOctetString, TracesWhyItIsHexadecimal) {
    EXPECT_EQ(traced({'a', ' ', 'b'}), Lines{});
    EXPECT_EQ(traced({'a', 1, 'b'}), Lines{unprintable_line("01")});
    EXPECT_EQ(traced({'a', 1, 0x7f}),
              (Lines{unprintable_line("01"), unprintable_line("7f"), count_line("2", "3")}));
    EXPECT_EQ(traced({'a', 0xe9, 1}), Lines{invalid_line("e9")});
    /* What was counted before the invalid octet is judged all the same. */
    EXPECT_EQ(traced({1, 2, 0xe9}), (Lines{unprintable_line("01"), unprintable_line("02"),
                                           invalid_line("e9"), count_line("2", "3")}));
}

TEST(FormatOctetString, TracesThatItIsStrict) {
    const Strict strict(true);
    EXPECT_EQ(traced({'a', 'b'}), Lines{});
    EXPECT_EQ(traced({'a', ' ', 'b'}),
              (Lines{unprintable_line("20"), count_line("1", "3"), strict_line}));
    EXPECT_EQ(traced({'a', 0xe9}), Lines{invalid_line("e9")});
}

TEST(FormatOctetString, TracesTheFirstOctetOfACharacter) {
    const CtypeLocale locale(wq::test::utf8_locale);
    EXPECT_EQ(traced({0xc2, 0x80}), Lines{unprintable_line("c2")});
}

}  // namespace
