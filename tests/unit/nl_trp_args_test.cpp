#include <gtest/gtest.h>
#include <wqevents/alerts.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "EMS/events/nl_trp_format.h"
#include "support/formatting.h"
#include "support/locales.h"
#include "support/random.h"

namespace {

using namespace wq::test;

/* 1000000000 seconds after 1970, on the clock of date bindings. */
constexpr uint32_t date = 2209032000U + 1000000000U;

const Oid if_index = {1, 3, 6, 1, 2, 1, 2, 2, 1, 1, 5};
const Oid if_descr = {1, 3, 6, 1, 2, 1, 2, 2, 1, 2, 5};
const Oid own_variable = {1, 3, 6, 1, 4, 1, 4242, 1, 4};

const char* const if_index_name = "mgmt.mib-2.interfaces.ifTable.ifEntry.ifIndex.5";
const char* const if_descr_name = "mgmt.mib-2.interfaces.ifTable.ifEntry.ifDescr.5";
const char* const own_name = "private.enterprises.4242.1.4";

/* What the tree's tests name. */
constexpr const char* labels =
    "1.3.6.1.2.1.2.2.1.1=\"index\"\n"
    "1.3.6.1.2.1.2.2.1.1.5.5=\"five\"\n"
    "1.3.6.1.4.1.4242=\"the makers\"\n"
    "1.3.6.1.4.1.4242.5=\"fifth\"\n"
    "1.3.6.1.4.1.4242.7=\"seventh\"\n";

Trap sample_trap() {
    Trap trap = received_trap(acme, 300);
    add(trap, integer_binding(if_index, 5));
    add(trap, text_binding(if_descr, "eth0"));
    add(trap, objid_binding({1, 3, 6, 1, 2, 1, 1, 2, 0}, {1, 3, 6, 1, 4, 1, 4242, 7}));
    add(trap, number_binding(own_variable, ASN_TIMETICKS09, 8640000));
    add(trap, number_binding(own_variable, ASN_IPADDR09, wire(10, 9, 8, 7)));
    add(trap, number_binding(own_variable, ASN_COUNTER09, 4294967295U));
    add(trap, binding(own_variable, ASN_NULL09));
    add(trap, number_binding(own_variable, ASN_INTEGER09, date));
    return trap;
}

class TrapSprintf : public Formatting {
  protected:
    TrapSprintf() { WQmib_load_mib(); }

    void read_labels() { ASSERT_NE(parseOidFile(dir_.write("labels", labels).c_str()), nullptr); }

    static std::string expand(trap_element* element, Trap& trap, size_t size = 5000) {
        ExactArray<char> buffer(size);
        trap_sprintf(buffer.data(), static_cast<int>(size), element, &trap.info, trap.vars.data(),
                     nullptr, nullptr, nullptr);
        return buffer.data();
    }
    static std::string expand(const std::string& format, Trap trap = sample_trap(),
                              size_t size = 5000) {
        Element element(format);
        return expand(element.get(), trap, size);
    }
    static std::string argument(int number, int kind, size_t size = 500,
                                Trap trap = sample_trap()) {
        ExactArray<char> buffer(size);
        format_arg(number, kind, &trap.info, buffer.data(), static_cast<int>(size),
                   trap.vars.data());
        return buffer.data();
    }
};

struct Row {
    const char* format;
    std::string text;
};

TEST_F(TrapSprintf, RendersEachKind) {
    known_hosts()[wire(10, 1, 2, 3)] = "gate.example";
    const std::vector<Row> rows = {
        {"$A", "gate.example"},
        {"$a", "10.1.2.3"},
        {"$C", "public"},
        {"$E", "private.enterprises.4242"},
        {"$e", "1.3.6.1.4.1.4242"},
        {"$G", "6"},
        {"$S", "300"},
        {"$s", "12c"},
        {"$c$l$d", ""},
        {"$T", "12345"},
        {"$#", "8"},
        {"$1", "5"},
        {"$2", "eth0"},
        {"$3", "private.enterprises.4242.7"},
        {"$4", "8640000"},
        {"$5", "10.9.8.7"},
        {"$6", "4294967295"},
        {"$7", ""},
        {"$-1", std::string("[1] ").append(if_index_name).append(" (Integer): 5")},
        {"$-2", std::string("[2] ").append(if_descr_name).append(" (OctetString): eth0")},
        {"$-7", std::string("[7] ").append(own_name).append(" (Empty): ")},
        {"$+1", std::string(if_index_name).append(" 5")},
        {"$+7", std::string(own_name).append(" ")},
        {"$=1", if_index_name},
        {"$I3", "7"},
        {"$I1", "$0 not OBJECT IDENTIFIER"},
        {"$I8", "$7 not OBJECT IDENTIFIER"},
        {"$i1", "5"},
        {"$i4", "4"},
        {"$t4", "1d"},
        {"$t1", "0s"},
        {"$L8", "09/09/01 01:46:40"},
        {"$L2", std::string(" Type not INTEGER, cannot do LANtern time format [2] ")
                    .append(if_descr_name)
                    .append(" (OctetString): eth0")},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(expand(row.format), row.text) << row.format;
    }
}

TEST_F(TrapSprintf, RendersNamesOfTheTree) {
    read_labels();
    const std::vector<Row> rows = {
        {"$E", "the makers"},
        {"$1", "five"},
        {"$3", "the makers"},
        {"$-1", "[1] index"},
        {"$+1", "index"},
        {"$=1", "index"},
        {"$+2", std::string(if_descr_name).append(" eth0")},
        {"$i1", "fifth"},
        {"$i4", "4"},
        {"$I3", "seventh"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(expand(row.format), row.text) << row.format;
    }
}

TEST_F(TrapSprintf, TheConfiguredEnterpriseNamesItself) {
    insert_enterprise(acme.data(), static_cast<uint32_t>(acme.size()), "acme");
    EXPECT_EQ(expand("$E $e"), "acme 1.3.6.1.4.1.4242");
}

TEST_F(TrapSprintf, AStarIsALineForEachBinding) {
    Trap trap = received_trap(acme, 1);
    EXPECT_EQ(expand("<$*>", trap), "<>");
    add(trap, integer_binding(if_index, 5));
    add(trap, text_binding(if_descr, "eth0"));
    EXPECT_EQ(expand("<$*>", trap), std::string("< [1] ")
                                        .append(if_index_name)
                                        .append(" (Integer): 5\n [2] ")
                                        .append(if_descr_name)
                                        .append(" (OctetString): eth0\n>"));
    read_labels();
    EXPECT_EQ(
        expand("$*", trap),
        std::string(" [1] index\n [2] ").append(if_descr_name).append(" (OctetString): eth0\n"));
}

TEST_F(TrapSprintf, ATextEndsAtItsFirstNul) {
    Trap trap = received_trap(acme, 300);
    add(trap, string_binding(own_variable, {'e', 't', 'h', '0', 0, 'x'}));
    add(trap, integer_binding(own_variable, 5));
    EXPECT_EQ(expand("<$1> is $2", trap), "<eth0> is 5");
    EXPECT_EQ(expand("$*.", trap), std::string(" [1] ")
                                       .append(own_name)
                                       .append(" (OctetString): eth0\n [2] ")
                                       .append(own_name)
                                       .append(" (Integer): 5\n."));
}

TEST_F(TrapSprintf, NumbersOfTheTrapAreSigned) {
    Trap trap = sample_trap();
    trap.info.gen = trap.info.specific = trap.info.time = 0xFFFFFFFE;
    EXPECT_EQ(expand("$G $S $s $T", trap), "-2 -2 fffffffe -2");
    add(trap, integer_binding({1, 3, 4000000000U}, 7));
    EXPECT_EQ(expand("$i9", trap), "-294967296");
}

TEST_F(TrapSprintf, TheCallersTexts) {
    Element element("<$c|$l|$d>");
    Trap trap = sample_trap();
    ExactArray<char> buffer(100);
    trap_sprintf(buffer.data(), buffer.length(), element.get(), &trap.info, trap.vars.data(), "Ann",
                 "Hall 3", "a %s text");
    EXPECT_STREQ(buffer.data(), "<Ann|Hall 3|a %s text>");
    trap_sprintf(buffer.data(), buffer.length(), element.get(), &trap.info, trap.vars.data(),
                 nullptr, "Hall 3", nullptr);
    EXPECT_STREQ(buffer.data(), "<|Hall 3|>");
}

TEST_F(TrapSprintf, BindingsThatBeginNoAlertAreEmpty) {
    EXPECT_EQ(expand("<$\\x251>"), "<>");
}

TEST_F(TrapSprintf, MissingBindingsAreTold) {
    for (const char* kind : {"$9", "$-9", "$+9", "$=9", "$I9", "$i9", "$t9", "$L9", "$\\x259"}) {
        EXPECT_EQ(expand(kind), "FMT ERROR: accessing element #9, only 8 available") << kind;
    }
    EXPECT_EQ(expand("[$80]", received_trap(acme, 1)),
              "[FMT ERROR: accessing element #80, only 0 available]");
    EXPECT_EQ(expand("$8 $7"), "-1085935296 ") << "the last ones are there";
}

TEST_F(TrapSprintf, UnknownKindsReplaceTheWholeText) {
    for (const int kind : {23, 24, INT_MAX, -1, INT_MIN}) {
        Element element("text $1 and $2");
        element.get()->arg_list[1].arg_type = kind;
        Trap trap = sample_trap();
        const std::string text = "bad arg_type:" + std::to_string(kind) + "\n";
        EXPECT_EQ(expand(element.get(), trap), text);
        EXPECT_EQ(expand(element.get(), trap, 8), text.substr(0, 7));
    }
}

TEST_F(TrapSprintf, FormatsAreNotHandedToPrintf) {
    Element element("$1");
    std::string format = "%s-%s-%%-%d-%5s-%n-%";
    doFree(element.get()->format);
    element.get()->format = doStrdup(format.c_str());
    Trap trap = sample_trap();
    EXPECT_EQ(expand(element.get(), trap), "5--%-%d-%5s-%n-%");
    EXPECT_EQ(expand("100% of $2, \\x25s, \\x25d"), "100% of eth0, , %d");
}

TEST_F(TrapSprintf, AMissingFormatIsEmpty) {
    trap_element element{};
    Trap trap = sample_trap();
    EXPECT_EQ(expand(&element, trap), "");
}

TEST_F(TrapSprintf, CountsOfArgumentsAreBounded) {
    Element element("$2");
    Trap trap = sample_trap();
    element.get()->num_args = -1;
    EXPECT_EQ(expand(element.get(), trap), "");
    for (const int count : {EMS_ARGS_MAX, EMS_ARGS_MAX + 1, INT_MAX}) {
        element.get()->num_args = count;
        EXPECT_EQ(expand(element.get(), trap), "eth0");
    }
    element.get()->num_args = INT_MIN;
    EXPECT_EQ(expand(element.get(), trap), "");
}

TEST_F(TrapSprintf, SaysWhenTheTextIsTooLong) {
    EXPECT_EQ(expand("$2!", sample_trap(), 6), "eth0!");
    const std::string said = "FMT ERROR: size (5) exceeded 5)\n";
    EXPECT_EQ(expand("$2!", sample_trap(), 5), said.substr(0, 4));
    Trap trap = received_trap(acme, 1);
    add(trap, text_binding(own_variable, std::string(1000, 'x')));
    EXPECT_EQ(expand("$1$1$1$1$1", trap, 5001), std::string(5000, 'x'));
    EXPECT_EQ(expand("$1$1$1$1$1", trap, 5000), "FMT ERROR: size (5000) exceeded 5000)\n");
    EXPECT_EQ(expand("$1$1$1$1$1$1-", trap, 5000), "FMT ERROR: size (5000) exceeded 6001)\n");
    EXPECT_EQ(expand("$1", trap, 1), "");
}

/* The text, or how long it would have been: never one that was made for less room. */
TEST_F(TrapSprintf, TheRoomNeverShowsInTheText) {
    codeptpath(dir_.path("none").c_str());
    codeptcatinit();
    Trap trap = sample_trap();
    add(trap, text_binding(own_variable, "Stra\u00dfe \u4e2d\u56fd"));
    add(trap, text_binding(own_variable, std::string("\x01\x02\xff", 3)));
    add(trap, text_binding(own_variable, std::string_view("ab\0cd", 5)));
    add(trap, text_binding(own_variable, std::string_view("\0\0\0", 3)));
    add(trap, objid_binding({1, 3, 6, 1, 4, 1, 4242, 7}, {1, 3, 6, 1, 4, 1, 4242, 1000000, 70}));
    add(trap, number_binding(oid("1.3.6.1.4.1.2.5.1.13.1.1.1"), ASN_INTEGER09, 0x33C1));
    add(trap, number_binding(oid("1.3.6.1.4.1.2.5.1.13.2.1.1"), ASN_INTEGER09, 0x2000));
    std::vector<std::string> formats = {"$*", "$c$l$d", "", "100%", "$A$a$C$E$e$G$S$s$T$#"};
    for (int number = 1; number <= trap.info.vars + 1; ++number) {
        for (const char* kind : {"$", "$-", "$+", "$=", "$i", "$I", "$t", "$L", "$\\x25"}) {
            formats.push_back(kind + std::to_string(number));
            formats.push_back("a " + formats.back() + " and more of it " + formats.back() + "%");
        }
    }
    const CtypeLocale locale(utf8_locale);
    for (const bool has_tree : {false, true}) {
        if (has_tree) {
            read_labels();
            ASSERT_EQ(insert_enterprise(acme.data(), 7, "a name of the configuration"), 0);
        }
        for (const std::string& format : formats) {
            Element element(format);
            const std::string whole = expand(element.get(), trap, 30000);
            for (size_t size = 1; size <= whole.size() + 60; ++size) {
                const std::string said = "FMT ERROR: size (" + std::to_string(size) +
                                         ") exceeded " + std::to_string(whole.size()) + ")\n";
                ASSERT_EQ(expand(element.get(), trap, size),
                          whole.size() < size ? whole : said.substr(0, size - 1))
                    << format << ' ' << size;
            }
        }
    }
}

TEST_F(TrapSprintf, ArgumentsShareAScratchArea) {
    Trap trap = received_trap(acme, 1);
    add(trap, text_binding(own_variable, std::string(1024, 'x')));
    std::string format;
    for (int i = 0; i < 79; ++i) {
        format.append("$1");
    }
    /* 39 texts with their terminators leave 25 bytes of 40000. */
    ExactArray<char> rest(25);
    formatValue(rest.data(), 25, trap.vars.data());
    const size_t last = std::string(rest.data()).size();
    ASSERT_GT(last, 0U);
    EXPECT_EQ(expand(format, trap, 70000), std::string(39 * 1024 + last, 'x'));
}

TEST_F(TrapSprintf, FormatsLongerThanAnyCompiledOneAreWholeOrRefused) {
    const std::string text(60000, 'x');
    Element element("$2");
    doFree(element.get()->format);
    element.get()->format = doStrdup(std::string(text).append("%s").c_str());
    Trap trap = sample_trap();
    EXPECT_EQ(expand(element.get(), trap, 60005), text + "eth0");
    EXPECT_EQ(expand(element.get(), trap, 60004), "FMT ERROR: size (60004) exceeded 60004)\n");
    EXPECT_EQ(expand(element.get(), trap, 5000).substr(0, 35),
              "FMT ERROR: size (5000) exceeded 600");
}

TEST_F(TrapSprintf, CountsOfBindingsAreBounded) {
    Trap trap = sample_trap();
    trap.info.vars = -5;
    EXPECT_EQ(expand("$# $1", trap), "0 FMT ERROR: accessing element #1, only 0 available");
    trap.info.vars = 100;
    trap.info.maxvars = 8;
    EXPECT_EQ(expand("$# $9", trap), "8 FMT ERROR: accessing element #9, only 8 available");
    trap.info.vars = 2;
    EXPECT_EQ(expand("$#", trap), "2");
}

TEST_F(TrapSprintf, LengthsInRecordsAreBounded) {
    Trap trap = sample_trap();
    trap.info.elen = INT_MAX;
    trap.info.clen = INT_MAX;
    for (SnmpVarBindEMS& var : trap.vars) {
        var.oid_length = UINT32_MAX;
        var.val_len = UINT32_MAX;
    }
    EXPECT_FALSE(expand("$*$E$e$C$i1$I3$L8", trap).empty());
    read_labels();
    EXPECT_EQ(expand("$i1$I3", trap), "00");
    trap.info.elen = trap.info.clen = INT_MIN;
    EXPECT_EQ(expand("<$C>", trap), "<>");
    EXPECT_EQ(expand("$i1$I3", trap), "00");
}

TEST_F(TrapSprintf, IdentifiersOfNoLengthHaveNoLastPart) {
    Trap trap = received_trap(acme, 1);
    add(trap, objid_binding({}, {}));
    EXPECT_EQ(expand("<$i1><$I1>", trap), "<><>");
    read_labels();
    EXPECT_EQ(expand("<$i1><$I1>", trap), "<><>");
}

TEST_F(TrapSprintf, NullPointersDoNothing) {
    Element element("$1");
    Trap trap = sample_trap();
    char buffer[8] = "as was";
    trap_sprintf(nullptr, 8, element.get(), &trap.info, trap.vars.data(), "", "", "");
    trap_sprintf(buffer, 8, nullptr, &trap.info, trap.vars.data(), "", "", "");
    trap_sprintf(buffer, 8, element.get(), nullptr, trap.vars.data(), "", "", "");
    trap_sprintf(buffer, 8, element.get(), &trap.info, nullptr, "", "", "");
    for (const int size : {0, -1, INT_MIN}) {
        trap_sprintf(buffer, size, element.get(), &trap.info, trap.vars.data(), "", "", "");
    }
    EXPECT_STREQ(buffer, "as was");
    trap.info.vars = 0;
    Element text("text");
    trap_sprintf(buffer, 8, text.get(), &trap.info, nullptr, "", "", "");
    EXPECT_STREQ(buffer, "text") << "a trap without bindings needs no array";
}

using FormatArg = TrapSprintf;

TEST_F(FormatArg, KindsWithoutANumberDescribeTheBinding) {
    const std::string described =
        std::string("[2] ").append(if_descr_name).append(" (OctetString): eth0");
    for (const int kind : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 20, 23, 99, -1, INT_MIN}) {
        EXPECT_EQ(argument(2, kind), described) << kind;
    }
}

TEST_F(FormatArg, MissingBindingsAreTold) {
    const struct {
        int number;
        const char* text;
    } rows[] = {
        {9, "Format Error: dont have arg #8, only 8 args\n"},
        {10, "Format Error: dont have arg #9, only 8 args\n"},
        {81, "Format Error: dont have arg #80, only 8 args\n"},
        {INT_MAX, "Format Error: dont have arg #2147483646, only 8 args\n"},
        {0, "Format Error: dont have arg #-1, only 8 args\n"},
        {-7, "Format Error: dont have arg #-8, only 8 args\n"},
    };
    for (const auto& row : rows) {
        for (const int kind : {ARG_NUM, ARG_NUM_DEF, ARG_NUM_L, ARG_NUM_ZYN}) {
            EXPECT_EQ(argument(row.number, kind), row.text);
        }
        EXPECT_EQ(argument(row.number, ARG_NUM, 10), std::string(row.text).substr(0, 9));
    }
}

TEST_F(FormatArg, ANameOfTheTreeIsWholeOrNotThere) {
    read_labels();
    EXPECT_EQ(argument(1, ARG_NUM_PLUS, 6), "index");
    EXPECT_EQ(argument(1, ARG_NUM_PLUS, 5), "");
    EXPECT_EQ(argument(1, ARG_NUM_EQ, 6), "index");
    EXPECT_EQ(argument(1, ARG_NUM_EQ, 5), "");
    EXPECT_EQ(argument(1, ARG_NUM_DEF, 10), "[1] index");
    EXPECT_EQ(argument(1, ARG_NUM_DEF, 9), "[1] ");
    EXPECT_EQ(argument(1, ARG_NUM, 5), "five");
    EXPECT_EQ(argument(1, ARG_NUM, 4), "");
    EXPECT_EQ(argument(1, ARG_NUM_i, 3), "fi") << "the last part's name is cut";
    EXPECT_EQ(argument(3, ARG_NUM_I, 3), "se");
}

TEST_F(FormatArg, TypeAndValueFollowWhereMoreThanTenBytesRemain) {
    /* "[4] " and the name take 32 bytes. */
    const std::string name = std::string("[4] ").append(own_name);
    EXPECT_EQ(argument(4, ARG_NUM_DEF, 32 + 10), name);
    EXPECT_EQ(argument(4, ARG_NUM_DEF, 32 + 11), name + " (): 86400");
    EXPECT_EQ(argument(4, ARG_NUM_DEF, 34 + 29), name + " (): 8640000");
    EXPECT_EQ(argument(4, ARG_NUM_DEF, 34 + 30), name + " (Ticks): 8640000");
}

TEST_F(FormatArg, DatesNeedThirtyBytes) {
    EXPECT_EQ(argument(8, ARG_NUM_L, 29), "");
    EXPECT_EQ(argument(8, ARG_NUM_L, 30), "09/09/01 01:46:40");
}

TEST_F(FormatArg, DatesCountWithoutASign) {
    const auto told = [](uint32_t value) {
        Trap trap = received_trap(acme, 1);
        add(trap, number_binding(own_variable, ASN_INTEGER09, value));
        return argument(1, ARG_NUM_L, 100, trap);
    };
    EXPECT_EQ(told(2209032000U), "01/01/70 00:00:00");
    EXPECT_EQ(told(0), "02/06/36 18:28:16") << "4294967296 - 2209032000 = 2085935296";
    const EnvValue zone("TZ", "XYZ+1");
    EXPECT_EQ(told(2209032000U), "12/31/69 23:00:00");
}

TEST_F(FormatArg, StaysInItsRoom) {
    for (const bool with_tree : {false, true}) {
        if (with_tree) {
            read_labels();
        }
        for (int kind = -1; kind <= 24; ++kind) {
            for (int number = 0; number <= 9; ++number) {
                const size_t whole = argument(number, kind).size();
                for (size_t size = 1; size <= std::min<size_t>(whole + 3, 120); ++size) {
                    ASSERT_LT(argument(number, kind, size).size(), size);
                }
            }
        }
    }
}

TEST_F(FormatArg, NullPointersDoNothing) {
    Trap trap = sample_trap();
    char buffer[8] = "as was";
    format_arg(1, ARG_NUM, nullptr, buffer, 8, trap.vars.data());
    format_arg(1, ARG_NUM, &trap.info, nullptr, 8, trap.vars.data());
    format_arg(1, ARG_NUM, &trap.info, buffer, 8, nullptr);
    for (const int size : {0, -1, INT_MIN}) {
        format_arg(1, ARG_NUM, &trap.info, buffer, size, trap.vars.data());
    }
    EXPECT_STREQ(buffer, "as was");
}

std::string message(std::string_view text, const std::vector<wq::MessageArgument>& arguments) {
    char buffer[100];
    wq::TextSink sink(buffer, sizeof buffer);
    wq::append_message(sink, text, arguments.data(), arguments.size());
    return buffer;
}

TEST(AppendMessage, ATranslationCannotReadWhatIsNotThere) {
    const auto seven = wq::message_number(7);
    const auto file = wq::message_text("file");
    EXPECT_EQ(message("#%d of %d", {seven, wq::message_number(-1)}), "#7 of -1");
    EXPECT_EQ(message("'%s'\n", {file}), "'file'\n");
    EXPECT_EQ(message("100%% %s", {file}), "100% file");
    EXPECT_EQ(message("%d %s %n %5d %", {seven}), "7 %s %n %5d %");
    EXPECT_EQ(message("%s", {seven}), "%s");
    EXPECT_EQ(message("%d", {file}), "%d");
    EXPECT_EQ(message("none", {seven}), "none");
    EXPECT_EQ(message("", {}), "");
}

TEST(AppendMessage, ATranslationMayNumberItsConversions) {
    const auto one = wq::message_number(1);
    const auto two = wq::message_number(2);
    const auto file = wq::message_text("file");
    EXPECT_EQ(message("%2$d after %1$d", {one, two}), "2 after 1");
    EXPECT_EQ(message("%1$d, %1$d, %2$d", {one, two}), "1, 1, 2");
    EXPECT_EQ(message("%2$s: %1$d%%", {one, file}), "file: 1%");
    EXPECT_EQ(message("%2$d %d", {one, two}), "2 1") << "a number does not count on";
}

TEST(AppendMessage, ANumberedConversionOfNothingStays) {
    const auto one = wq::message_number(1);
    const auto file = wq::message_text("file");
    for (const char* text : {"%2$d", "%9$d", "%0$d", "%1$s", "%1$n", "%1$", "%1", "%", "%1$*2$d",
                             "%10$d", "%-1$d", "%1$5d", "%1$ld", "%%1$d", "%$d", "%1$%"}) {
        const std::string whole = text;
        EXPECT_EQ(message(whole, {one}), whole == "%%1$d" ? "%1$d" : whole);
    }
    EXPECT_EQ(message("%1$d", {file}), "%1$d");
    EXPECT_EQ(message("%1$d %2$s", {}), "%1$d %2$s");
}

TEST(AppendMessage, NoTextReadsOrWritesBeyondWhatIsThere) {
    const std::vector<wq::MessageArgument> arguments = {wq::message_number(-2147483648LL),
                                                        wq::message_text("file")};
    constexpr std::string_view alphabet = "%12$dsn*%";
    Random random;
    for (int round = 0; round < 20000; ++round) {
        std::vector<char> text(random.between(0, 12));
        for (char& c : text) {
            c = alphabet[random.between(0, alphabet.size() - 1)];
        }
        const ExactArray<char> exact{std::span<const char>(text)};
        ExactArray<char> buffer(random.between(1, 20));
        wq::TextSink sink(buffer.data(), buffer.size());
        wq::append_message(sink, {exact.data(), exact.size()}, arguments.data(), arguments.size());
        ASSERT_LT(strnlen(buffer.data(), buffer.size()), buffer.size()) << random.name();
    }
}

}  // namespace
