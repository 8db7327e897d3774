#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/alerts.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "support/code_points.h"
#include "support/exact_block.h"
#include "support/formatting.h"
#include "support/temp_dir.h"

namespace {

using namespace wq::test;

using Bindings = std::vector<SnmpVarBindEMS>;

const std::vector<CodePoint> texts = {
    {1, 0xA001, "Type A"},  {2, 0xFE00, "Probable FE"}, {2, 0x2132, "Probable 21"},
    {3, 0x33C1, "User C1"}, {3, 0x3301, "User 01"},     {3, 0x33A0, "User A0"},
    {4, 0x0001, "Inst 1"},  {5, 0x0001, "Fail 1"},      {6, 0x2000, "Act 0"},
    {6, 0x20A0, "Act A"},   {7, 0x0010, "Id 10"},       {7, 0x0011, "Id 11"},
};

SnmpVarBindEMS n(const std::string& rest, uint32_t value) {
    return alert_number(rest, value);
}
SnmpVarBindEMS t(const std::string& rest, std::string_view text) {
    return alert_text(rest, text);
}

/* The alert that starts at `index`, behind the text `before`, in `size` bytes. */
std::string rendered(Bindings bindings, size_t size = 4000, const std::string& before = "",
                     int index = 0) {
    bindings.shrink_to_fit();
    ExactArray<char> buffer(size);
    std::memcpy(buffer.data(), before.c_str(), std::min(size, before.size() + 1));
    formatZYNcp(buffer.data(), static_cast<int>(size), bindings.data() + index,
                static_cast<int>(bindings.size()), index);
    return size == 0 ? "" : buffer.data();
}

class Alert : public testing::Test {
  protected:
    void SetUp() override {
        codeptpath(dir_.write("codepoint.cat", catalogue(texts)).c_str());
        ASSERT_EQ(codeptcatinit(), 0);
    }

    TempDir dir_;
};

/* In a process of its own, which has not rendered an alert yet. */
TEST(AlertFirstUse, LoadsTheCatalogueOnce) {
    const TempDir dir;
    const pid_t child = fork();
    if (child == 0) {
        codeptpath(dir.path("codepoint.cat").c_str());
        const bool digits = rendered({n("11.3", 0x0A01)}) == "0A01";
        dir.write("codepoint.cat", catalogue({{1, 0x0A01, "too late"}}));
        const bool still = rendered({n("11.3", 0x0A01)}) == "0A01";
        codeptcatinit();
        _exit(digits && still && rendered({n("11.3", 0x0A01)}) == "too late" ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(AlertFirstUse, ARefusedCatalogueLeavesDigits) {
    const TempDir dir;
    codeptpath(dir.write("codepoint.cat", catalogue_header(0)).c_str());
    EXPECT_EQ(codeptcatinit(), -2);
    EXPECT_EQ(rendered({n("13.1.1.1", 0x0A01), n("13.2.1.1", 0x1)}),
              "0A01\nRecommended Actions: 0001");
}

struct Row {
    const char* title;
    Bindings bindings;
    std::string text;
};

std::vector<Row> rows() {
    const auto cause = [](uint32_t point) { return n("13.1.1.1", point); };
    const auto action = [](uint32_t point) { return n("13.2.1.1", point); };
    const auto identifier = [](uint32_t point) { return n("13.3.1.2", point); };
    const auto encoding = [](uint32_t number) { return n("13.3.1.3", number); };
    const auto value = [](uint32_t number) { return n("13.3.1.4", number); };
    return {
        {"generic alert", {n("11.3", 0xA001)}, "Type A"},
        {"a line for each", {n("11.3", 0xA001), n("11.3.0", 0xA002)}, "Type A\nA002"},
        {"only .3", {n("11.1", 1), n("11.3", 0xA001), n("11.33", 2), n("11", 3)}, "Type A"},
        {"an empty text is an item", {n("11.3", 0xFFFF), n("11.3", 0xA001)}, "\nType A"},
        {"a text is no code point", {t("11.3", "abc")}, "0000"},
        {"probable causes",
         {n("12.1.1.1.1", 0xFE00), n("12.1.1.2.1", 7), n("12.1.1.1.2", 0x2132)},
         "Probable FE\nProbable 21"},
        {"product set",
         {t("3.1.1.2", "none"), t("3.1.1.3", "3174"), t("3.1.1.4", "1L"), t("3.1.1.5", "Essen"),
          t("3.1.1.6", "0815"), t("3.1.1.7", "B2"), t("3.1.1.8", "Controller"),
          t("3.1.1.9", "Acme"), t("3.1.1.10", "none")},
         "\nMachine Type: 3174\nModel Number: 1L\nPlant of Manufacture: Essen\n"
         "Sequence Number: 0815\nMicrocode EC Level: B2\n"
         "Hardware Product Common Name: Controller\nVendor ID Hardware: Acme"},
        {"product set, any order",
         {t("3.1.1.9", "Acme"), n("3.1.1.4", 5), t("3.1.1.3", "")},
         "\nVendor ID Hardware: Acme\nModel Number: \nMachine Type: "},
        {"self-defining data",
         {n("7.2.1.2", 0x10), n("7.2.1.3", 17), t("7.2.1.4", "abc"), n("7.2.1.3", 1),
          n("7.2.1.4", 42), n("7.2.1.3", 0), n("7.2.1.4", 0xABCD), n("7.2.1.2", 0x11),
          n("7.2.1.4", 1)},
         "Id 10 abcId 10 42Id 10 abcdId 11 1"},
        {"detailed data",
         {n("17.1.1.2", 0x10), n("17.1.1.3", 17), t("17.1.1.4", "abc"), n("17.1.1.2", 0x11),
          n("17.1.1.3", 1), n("17.1.1.4", 0xFFFFFFFB)},
         "Id 10 abc\nId 11 -5"},
        {"hexadecimal of negative numbers",
         {n("17.1.1.3", 0), n("17.1.1.4", 0xFFFFFFFF)},
         "ffffffff"},
        {"unknown encodings",
         {n("17.1.1.2", 0x10), n("17.1.1.3", 2), n("17.1.1.4", 5), n("17.1.1.3", 0xFFFFFFFF),
          n("17.1.1.4", 5), n("17.1.1.3", 16), t("17.1.1.4", "abc")},
         "Id 10 "},
        {"a number as a text, a text as a number",
         {n("17.1.1.3", 17), n("17.1.1.4", 5), n("17.1.1.3", 1), t("17.1.1.4", "abc")},
         "0"},
        {"user causes", {cause(0x3301), cause(0x33A0)}, "User 01\nUser A0"},
        {"install causes", {n("14.1.1.1", 1)}, "Inst 1"},
        {"failure causes", {n("15.1.1.1", 1)}, "Fail 1"},
        {"actions behind the causes",
         {action(0x2000), cause(0x3301), action(0x20A0)},
         "User 01\nRecommended Actions: Act 0\nAct A"},
        {"actions alone", {action(0x2000)}, "\nRecommended Actions: Act 0"},
        {"an action without a text", {action(0xFFFF)}, "\nRecommended Actions: "},
        {"two details of a cause, a third writes the actions",
         {cause(0x33C1), action(0x2000), encoding(1), identifier(0x10), value(1), value(2),
          value(3)},
         "User C1 Id 10 1 Id 10 2\nRecommended Actions: Act 0"},
        {"details of the actions",
         {cause(0x33C1), action(0x20A0), encoding(1), identifier(0x10), value(1), value(2),
          identifier(0x11), value(3), value(4)},
         "User C1 Id 10 1 Id 10 2\nRecommended Actions: Act A Id 11 3"},
        {"details between the causes",
         {cause(0x33A0), identifier(0x10), value(255), cause(0x3301), action(0x2000)},
         "User A0 Id 10 ff\nUser 01\nRecommended Actions: Act 0"},
        {"details for two causes at once",
         {cause(0x33A0), cause(0x33A0), identifier(0x10), value(1), value(2), value(3)},
         "User A0\nUser A0 Id 10 1 Id 10 2"},
        {"actions that come behind written ones",
         {cause(0x3301), action(0x20A0), identifier(0x10), value(1), action(0x2000), value(2),
          action(0x20A0), value(3)},
         "User 01\nRecommended Actions: Act A Id 10 1\nRecommended Actions: Act 0"
         "\nRecommended Actions: Act A Id 10 3"},
        {"a cause behind written actions",
         {cause(0x3301), action(0x20A0), value(1), cause(0x3301)},
         "User 01\nRecommended Actions: Act A 0000 1\nUser 01"},
        {"a detail that nobody expects", {value(1)}, ""},
        {"points with three details",
         {cause(0x33D0), identifier(0x10), value(1), value(2), value(3), value(4)},
         "33D0 Id 10 1 Id 10 2 Id 10 3"},
        {"points with one detail",
         {cause(0x00BF), identifier(0x10), value(1), value(2)},
         "00BF Id 10 1"},
        {"a text as a detail",
         {cause(0x33A0), encoding(17), identifier(0x10), t("13.3.1.4", "abc")},
         "User A0 Id 10 abc"},
        {"a text up to its NUL, and all that follows it",
         {t("3.1.1.3", std::string_view("31\0 74", 6)), t("3.1.1.4", std::string_view("\0", 1)),
          t("3.1.1.5", "Essen")},
         "\nMachine Type: 31\nModel Number: \nPlant of Manufacture: Essen"},
        {"self-defining data up to a NUL",
         {n("7.2.1.2", 0x10), n("7.2.1.3", 17), t("7.2.1.4", std::string_view("ab\0c", 4)),
          n("7.2.1.2", 0x11), t("7.2.1.4", "d")},
         "Id 10 abId 11 d"},
        {"detailed data up to a NUL",
         {n("17.1.1.2", 0x10), n("17.1.1.3", 17), t("17.1.1.4", std::string_view("ab\0c", 4)),
          n("17.1.1.2", 0x11), t("17.1.1.4", "d")},
         "Id 10 ab\nId 11 d"},
        {"a detail up to a NUL",
         {cause(0x33A0), action(0x20A0), encoding(17), identifier(0x10),
          t("13.3.1.4", std::string_view("ab\0c", 4)), t("13.3.1.4", "d")},
         "User A0 Id 10 ab\nRecommended Actions: Act A Id 10 d"},
        {"other parts of the subvector", {n("13.1.1.2", 1), n("13.4", 2), n("13", 3)}, ""},
        {"up to a foreign binding",
         {n("11.3", 0xA001), n("12.1.1.1", 0xFE00), n("11.3", 0xA002)},
         "Type A"},
        {"no subvector", {n("4.3", 1)}, ""},
        {"another tree", {number_binding(oid("1.3.6.1.4.1.2.5.2.11.3"), 2, 1)}, ""},
        {"too short a name", {number_binding(oid("1.3.6.1.4.1.2.5.1"), 2, 1)}, ""},
    };
}

TEST_F(Alert, IsRenderedByItsSubvector) {
    for (const Row& row : rows()) {
        EXPECT_EQ(rendered(row.bindings), row.text) << row.title;
    }
}

TEST_F(Alert, IsAppended) {
    for (const Row& row : rows()) {
        EXPECT_EQ(rendered(row.bindings, 4000, "before: "), "before: " + row.text) << row.title;
    }
}

TEST_F(Alert, KeepsWithinAnyRoom) {
    for (const Row& row : rows()) {
        for (const std::string before : {"", "xy"}) {
            const std::string whole = before + row.text;
            for (size_t size = before.size() + 1; size < whole.size() + 3; ++size) {
                ASSERT_EQ(rendered(row.bindings, size, before), whole.substr(0, size - 1))
                    << row.title << ' ' << size;
            }
        }
        rendered(row.bindings, 0);
    }
}

TEST_F(Alert, LeavesATextThatDoesNotEndAlone) {
    for (const Row& row : rows()) {
        ExactArray<char> full(4);
        std::memcpy(full.data(), "full", 4);
        Bindings bindings = row.bindings;
        formatZYNcp(full.data(), 4, bindings.data(), static_cast<int>(bindings.size()), 0);
        ASSERT_EQ(std::string(full.data(), 4), "full") << row.title;
    }
}

TEST_F(Alert, StartsWhereItIsTold) {
    const Bindings bindings{n("11.3", 0xA001), n("11.3", 0xA002), n("11.3", 0xA003)};
    EXPECT_EQ(rendered(bindings, 100, "", 1), "A002\nA003");
    EXPECT_EQ(rendered(bindings, 100, "", 2), "A003");
}

TEST_F(Alert, StopsAtTheLastBinding) {
    Bindings bindings{n("11.3", 0xA001), n("11.3", 0xA002), n("11.3", 0xA003)};
    const auto counted = [&](int count, int index) {
        char text[100] = "";
        formatZYNcp(text, sizeof text, &bindings[0], count, index);
        return std::string(text);
    };
    EXPECT_EQ(counted(2, 0), "Type A\nA002");
    EXPECT_EQ(counted(2, 1), "Type A");
    EXPECT_EQ(counted(2, 2), "");
    EXPECT_EQ(counted(0, 0), "");
    EXPECT_EQ(counted(-1, 0), "");
    EXPECT_EQ(counted(INT_MIN, INT_MIN), "");
    EXPECT_EQ(counted(2, -5), "Type A\nA002");
}

TEST_F(Alert, LengthsBeyondTheArraysCountAsTheirs) {
    SnmpVarBindEMS name = n("11.3", 0xA001);
    name.oid_length = 0xFFFFFFFF;
    EXPECT_EQ(rendered({name}), "Type A");
    SnmpVarBindEMS text = t("3.1.1.3", std::string(EMS_STRING_MAX, 'x'));
    text.val_len = 0xFFFFFFFF;
    EXPECT_EQ(rendered({text}), "\nMachine Type: " + std::string(EMS_STRING_MAX, 'x'));
}

/* What stands in the record after the text is none of it. */
TEST_F(Alert, TextsEndAtTheirLength) {
    SnmpVarBindEMS text = t("3.1.1.3", "abcdef");
    text.val_len = 3;
    EXPECT_EQ(rendered({text}), "\nMachine Type: abc");
    text.val_len = 0;
    EXPECT_EQ(rendered({text}), "\nMachine Type: ");
}

/* ---- the renderers by themselves */

using SetRenderer = decltype(&formatsv);
using Renderer = decltype(&formatsvsdc);

TEST_F(Alert, RenderersTakeAnySubvector) {
    const Oid prefix = oid("1.3.9");
    const auto under = [&](std::initializer_list<uint32_t> rest, uint32_t value) {
        Oid name = prefix;
        name.insert(name.end(), rest);
        return number_binding(name, ASN_INTEGER09, value);
    };
    const auto with = [&](SetRenderer render, Bindings bindings, int set) {
        char text[100] = "=";
        render(text, sizeof text, bindings.data(), prefix.data(), 12, set,
               static_cast<int>(bindings.size()), 0);
        return std::string(text);
    };
    const auto without = [&](Renderer render, Bindings bindings) {
        char text[100] = "=";
        render(text, sizeof text, bindings.data(), prefix.data(), 12,
               static_cast<int>(bindings.size()), 0);
        return std::string(text);
    };
    EXPECT_EQ(with(formatsv, {under({1, 1, 1}, 1)}, 5), "=Fail 1");
    EXPECT_EQ(with(formatsvga, {under({3}, 0xFE00)}, 2), "=Probable FE");
    EXPECT_EQ(with(formatsvpc, {under({1, 1, 1}, 0xA001)}, 1), "=Type A");
    EXPECT_EQ(with(formatsvpc, {under({1, 1, 1}, 0xA001)}, 9), "=-");
    EXPECT_EQ(with(formatsvdd, {under({1, 1, 2}, 0x10), under({1, 1, 4}, 16)}, 7), "=Id 10 10");
    EXPECT_EQ(without(formatsvsdc, {under({2, 1, 2}, 0x10), under({2, 1, 4}, 16)}), "=Id 10 10");
    EXPECT_EQ(without(formatsvpsid, {under({1, 1, 3}, 0)}), "=\nMachine Type: ");
}

TEST_F(Alert, NullsDoNothing) {
    Bindings bindings{n("11.3", 0xA001)};
    const Oid prefix = alert_oid("11");
    char text[32] = "same";
    formatZYNcp(nullptr, 32, bindings.data(), 1, 0);
    formatZYNcp(text, 32, nullptr, 1, 0);
    formatZYNcp(text, -1, bindings.data(), 1, 0);
    call_formatZYNcp(nullptr, 32, bindings.data(), 1, 0);
    call_formatZYNcp(text, 32, nullptr, 1, 0);
    for (const SetRenderer render : {formatsv, formatsvga, formatsvpc, formatsvdd}) {
        render(nullptr, 32, bindings.data(), prefix.data(), 40, 1, 1, 0);
        render(text, 32, nullptr, prefix.data(), 40, 1, 1, 0);
        render(text, 32, bindings.data(), nullptr, 40, 1, 1, 0);
    }
    for (const Renderer render : {formatsvsdc, formatsvpsid}) {
        render(nullptr, 32, bindings.data(), prefix.data(), 40, 1, 0);
        render(text, 32, nullptr, prefix.data(), 40, 1, 0);
        render(text, 32, bindings.data(), nullptr, 40, 1, 0);
    }
    EXPECT_STREQ(text, "same");
}

TEST_F(Alert, OddLengthsOfTheSubvectorAreHarmless) {
    Bindings bindings{n("11.3", 0xA001)};
    const Oid prefix = alert_oid("11");
    for (const int octets : {INT_MIN, -1, 0, 3, 39, 40}) {
        char text[100] = "";
        formatsvga(text, sizeof text, bindings.data(), prefix.data(), octets, 1, 1, 0);
        EXPECT_STREQ(text, octets == 40 ? "Type A" : "") << octets;
    }
}

/* ---- in a format */

TEST_F(Alert, IsAnArgumentOfAFormat) {
    Trap trap = received_trap(acme, 1);
    add(trap, text_binding(acme, "first"));
    add(trap, n("13.1.1.1", 0x3301));
    add(trap, n("13.2.1.1", 0x2000));
    const auto expanded = [&](const std::string& format) {
        Element element(format);
        char text[1000];
        trap_sprintf(text, sizeof text, element.get(), &trap.info, trap.vars.data(), "", "", "");
        return std::string(text);
    };
    EXPECT_EQ(expanded("alert: $\\x252."), "alert: User 01\nRecommended Actions: Act 0.");
    EXPECT_EQ(expanded("$\\x253|$\\x251|$2"), "\nRecommended Actions: Act 0||13057");
    EXPECT_EQ(expanded("$%2"), "$%2") << "a plain percent sign stays one";
}

TEST_F(Alert, OfAnArgumentIsCutToItsRoom) {
    Trap trap = received_trap(acme, 1);
    add(trap, n("11.3", 0xA001));
    for (size_t size = 1; size < 9; ++size) {
        ExactArray<char> text(size);
        format_arg(1, ARG_NUM_ZYN, &trap.info, text.data(), static_cast<int>(size),
                   trap.vars.data());
        EXPECT_EQ(std::string(text.data()), std::string("Type A").substr(0, size - 1));
    }
}

}  // namespace
