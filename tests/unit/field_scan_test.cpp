#include "EMS/events/internal/field_scan.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <tuple>

#include "support/random.h"

namespace wq::test {
namespace {

TEST(FieldScan, NumbersAreReadAsTheSystemReadsThem) {
    const struct {
        const char* text;
        int count;
        int value;
    } rows[] = {
        {"", -1, 77},
        {" \t\n\v\f\r", -1, 77},
        {"x", 0, 77},
        {"-", 0, 77},
        {"+", 0, 77},
        {"- 1", 0, 77},
        {"--1", 0, 77},
        {" \t\r\n12x", 1, 12},
        {"+7", 1, 7},
        {"-7", 1, -7},
        {"007", 1, 7},
        {"0x10", 1, 0},
        {"2147483647", 1, 2147483647},
        {"2147483648", 1, -2147483647 - 1},
        {"-2147483648", 1, -2147483647 - 1},
        {"-2147483649", 1, 2147483647},
        {"4294967295", 1, -1},
        {"4294967296", 1, 0},
        {"4294967301", 1, 5},
        {"9223372036854775807", 1, -1},
        {"9223372036854775808", 1, -1},
        {"99999999999999999999999999999999", 1, -1},
        {"-9223372036854775808", 1, 0},
        {"-9223372036854775809", 1, 0},
        {"-99999999999999999999999999999999", 1, 0},
    };
    for (const auto& row : rows) {
        int value = 77;
        EXPECT_EQ(FieldScan(row.text).number(value).count(), row.count) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
    }
}

TEST(FieldScan, AFailedStepEndsTheScanAndKeepsTheFields) {
    std::string_view word = "old";
    char c = '?';
    int number = 1;
    FieldScan scan("5 abc");
    scan.number(number).literal('"').word(word).character(c);
    EXPECT_EQ(scan.count(), 1);
    EXPECT_FALSE(scan.matches());
    EXPECT_EQ(number, 5);
    EXPECT_EQ(word, "old");
    EXPECT_EQ(c, '?');
    EXPECT_EQ(scan.rest(), " abc");
}

/* Texts at random, built from pieces that bring the pattern's steps to each of their ends. */
std::string random_text(Random& random, const std::string_view* pieces, size_t count) {
    std::string text;
    for (uint32_t n = random.between(0, 14); n != 0; --n) {
        text += pieces[random.between(0, static_cast<uint32_t>(count) - 1)];
    }
    return text;
}

constexpr std::string_view pieces[] = {
    " ",          " ",
    " ",          "\t",
    "\r",         "7",
    "-3",         "+12",
    "4294967296", "99999999999999999999",
    "\"a b\"",    "\"",
    "\"\"",       "{1.3.6}",
    "{",          "}",
    "{}",         "name",
    "x",          "-",
    "\"n\"",      "A",
    "\v",         "n {1.3} 6 1 A ",
    "1 0 \"c\"",
};

std::string any_text(Random& random) {
    if (random.one_in(3)) {
        std::string text("name {1.3.6} 6 1 A 1 0 \"cat\"");
        text.resize(random.between(0, static_cast<uint32_t>(text.size())));
        return text + random_text(random, pieces, std::size(pieces));
    }
    return random_text(random, pieces, std::size(pieces));
}

using Text = std::array<char, 512>;

std::string_view view(const Text& text) {
    return text.data();
}

class AgainstTheSystem : public testing::Test {
  protected:
    template <class Compare>
    void compare(Compare compare) {
        for (int i = 0; i < 30000 && !HasFailure(); ++i) {
            const std::string text = any_text(random_);
            SCOPED_TRACE(random_.name() + " \"" + text + "\"");
            compare(text);
        }
    }

    Random random_;
};

TEST_F(AgainstTheSystem, Category) {
    compare([](const std::string& text) {
        int slot = 0;
        Text name{};
        char extra = 0;
        const int count = sscanf(text.c_str(), "%d \"%[^\"]\" %c", &slot, name.data(), &extra);
        CategoryFields fields;
        EXPECT_EQ(scan_category(text, fields), count);
        EXPECT_EQ(fields.slot, slot);
        EXPECT_EQ(fields.name, view(name));
    });
}

TEST_F(AgainstTheSystem, Action) {
    compare([](const std::string& text) {
        int wait = 0;
        Text name{};
        int command = -1;
        const int count = sscanf(text.c_str(), "%d \"%[^\"]\" %n", &wait, name.data(), &command);
        ActionFields fields;
        EXPECT_EQ(scan_action(text, fields), count);
        EXPECT_EQ(fields.wait_time, wait);
        EXPECT_EQ(fields.name, view(name));
        EXPECT_EQ(fields.command, command < 0 ? "" : text.substr(static_cast<size_t>(command)));
    });
}

TEST_F(AgainstTheSystem, Enterprise) {
    compare([](const std::string& text) {
        Text name{};
        Text oid{};
        char extra = 0;
        const int count = sscanf(text.c_str(), "%s {%[^}]} %c", name.data(), oid.data(), &extra);
        EnterpriseFields fields;
        EXPECT_EQ(scan_enterprise(text, fields), count);
        EXPECT_EQ(fields.name, view(name));
        EXPECT_EQ(fields.oid, view(oid));
    });
}

TEST_F(AgainstTheSystem, Event) {
    compare([](const std::string& text) {
        Text name{};
        Text oid{};
        Text category{};
        std::array<int, 4> numbers{};
        char source = 0;
        char extra = 0;
        const int count = sscanf(text.c_str(), "%s {%[^}]} %d %d %c %d %d \"%[^\"]\" %c %c",
                                 name.data(), oid.data(), &numbers[0], &numbers[1], &source,
                                 &numbers[2], &numbers[3], category.data(), &extra, &extra);
        EventFields fields;
        EXPECT_EQ(scan_event(text, fields), count);
        EXPECT_EQ(fields.name, view(name));
        EXPECT_EQ(fields.oid, view(oid));
        EXPECT_EQ((std::array{fields.generic, fields.specific, fields.severity, fields.status}),
                  numbers);
        EXPECT_EQ(fields.source, source);
        EXPECT_EQ(fields.category, view(category));
    });
}

TEST(EventFields, TextBehindTheCategoryIsCounted) {
    const std::tuple<std::string, int> rows[] = {
        {"", 8}, {"\r", 8}, {" x", 9}, {"x", 9}, {" xy", 10}, {" x y", 10}, {" word more", 10},
    };
    for (const auto& [rest, count] : rows) {
        EventFields fields;
        EXPECT_EQ(scan_event(std::string("n {1} 6 1 A 1 0 \"c\"").append(rest), fields), count)
            << rest;
    }
}

}  // namespace
}  // namespace wq::test
