#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "binding_text.h"
#include "command.h"
#include "octets.h"
#include "oid_text.h"
#include "sample_traps.h"
#include "totals.h"
#include "trap_json.h"
#include "trap_text.h"
#include "undecodable.h"

namespace wq::command {
namespace {

using test::Bytes;
using test::from_hex;
using test::small_trap;
using Oid = std::vector<std::uint32_t>;

/* The text of the UsageError of a call, "" where there is none. */
template <typename Call>
std::string usage_error(Call call) {
    try {
        call();
    } catch (const UsageError& error) {
        return error.what();
    }
    return "";
}

std::string times(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

TEST(OidText, ReadsDottedNumbers) {
    EXPECT_EQ(parse_oid("x", "1.3.6.1"), (Oid{1, 3, 6, 1}));
    EXPECT_EQ(parse_oid("x", ".1.3.6.1"), (Oid{1, 3, 6, 1}));
    EXPECT_EQ(parse_oid("x", "0.0"), (Oid{0, 0}));
    EXPECT_EQ(parse_oid("x", "2.47.4294967295"), (Oid{2, 47, 4294967295U}));
    EXPECT_EQ(parse_oid("x", "1.3" + times(".1", 126)).size(), 128U);
}

TEST(OidText, SaysWhatIsWrong) {
    const struct {
        std::string text;
        const char* part;
    } rows[] = {
        {"", "dotted numbers"},
        {"1", "2 to 128 numbers"},
        {"1.", "dotted numbers"},
        {"1..3", "dotted numbers"},
        {"..1.3", "dotted numbers"},
        {"1.3.x", "dotted numbers"},
        {"1.-3", "dotted numbers"},
        {"1.+3", "dotted numbers"},
        {"1. 3", "dotted numbers"},
        {"iso.3", "dotted numbers"},
        {"1.3.4294967296", "dotted numbers"},
        {"3.1", "must begin with"},
        {"2.48", "must begin with"},
        {"1.88", "must begin with"},
        {"0.128", "must begin with"},
        {"2.4294967295", "must begin with"},
        {"1.3" + times(".1", 127), "2 to 128 numbers"},
        {"1.3" + times(".4294967295", 26), "128 octets"},
    };
    for (const auto& row : rows) {
        const std::string message = usage_error([&] { parse_oid("the name", row.text); });
        EXPECT_NE(message.find(row.part), std::string::npos) << row.text << ": " << message;
        EXPECT_EQ(message.find("the name '" + row.text + "'"), 0U) << message;
    }
}

TEST(OidText, WritesDottedNumbers) {
    EXPECT_EQ(oid_to_text(Oid{1, 3, 4294967295U}), "1.3.4294967295");
    EXPECT_EQ(oid_to_text(Oid{}), "");
}

TEST(Octets, OnlyWellFormedTextIsPrintable) {
    const struct {
        const char* hex;
        bool printable;
    } rows[] = {
        {"", true},
        {"61 7e 20", true},
        {"09 0a 0d", true},
        {"00", false},
        {"1b 5b 32 4a", false},
        {"7f", false},
        {"80", false},
        {"c3 a4", true},
        {"c3", false},
        {"c3 28", false},
        {"c0 80", false},
        {"c2 9b", false},
        {"c2 a0", true},
        {"e2 82 ac", true},
        {"e0 80 80", false},
        {"ed a0 80", false},
        {"e2 82", false},
        {"f0 9f 98 80", true},
        {"f0 80 80 80", false},
        {"f4 90 80 80", false},
        {"f5 80 80 80", false},
        {"ff", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(is_printable(from_hex(row.hex)), row.printable) << row.hex;
    }
}

TEST(Octets, ReadsAndWritesHexadecimalDigits) {
    EXPECT_EQ(to_hex(from_hex("00 fF 1a")), "00 ff 1a");
    EXPECT_EQ(to_hex({}), "");
    EXPECT_EQ(parse_hex("f", "30 2A\n02", " \n"), (Octets{0x30, 0x2a, 0x02}));
    EXPECT_EQ(parse_hex("f", "", " "), Octets{});
    EXPECT_NE(usage_error([] { parse_hex("f", "30 2", " "); }).find("f: no pair"),
              std::string::npos);
    EXPECT_NE(usage_error([] { parse_hex("f", "30 zz", " "); }).find("position 4"),
              std::string::npos);
}

SnmpVarBindEMS parsed(const char* letter, const std::string& value) {
    SnmpVarBindEMS binding{};
    parse_binding("1.3.6.1", letter, value, binding);
    EXPECT_EQ(binding.oid_length, 4U);
    return binding;
}

TEST(BindingText, IntegersByLetter) {
    const struct {
        const char* letter;
        const char* value;
        std::uint8_t type;
        std::uint32_t integer;
    } rows[] = {
        {"i", "-2147483648", 0x02, 0x80000000U}, {"i", "2147483647", 0x02, 0x7FFFFFFFU},
        {"u", "4294967295", 0x42, 0xFFFFFFFFU},  {"g", "7", 0x42, 7},
        {"c", "4294967295", 0x41, 0xFFFFFFFFU},  {"t", "0", 0x43, 0},
        {"a", "10.1.2.3", 0x40, 0x0A010203U},
    };
    for (const auto& row : rows) {
        const SnmpVarBindEMS binding = parsed(row.letter, row.value);
        EXPECT_EQ(binding.type, row.type) << row.letter;
        EXPECT_EQ(static_cast<std::uint32_t>(binding.val.integer), row.integer) << row.letter;
        EXPECT_EQ(binding.val_len, 4U) << row.letter;
    }
}

TEST(BindingText, StringsByLetter) {
    const struct {
        const char* letter;
        const char* value;
        const char* hex;
    } rows[] = {
        {"s", "", ""},
        {"s", "a b", "61 20 62"},
        {"x", "0xAB:cd-01 02", "ab cd 01 02"},
        {"x", "00ff", "00 ff"},
        {"x", "", ""},
        {"d", "10.255.0", "0a ff 00"},
        {"d", " 1 2 ", "01 02"},
        {"d", "", ""},
    };
    for (const auto& row : rows) {
        const SnmpVarBindEMS binding = parsed(row.letter, row.value);
        EXPECT_EQ(binding.type, 0x04);
        EXPECT_EQ(to_hex({binding.val.string, binding.val_len}), row.hex) << row.value;
    }
    EXPECT_EQ(parsed("s", times("a", 1024)).val_len, 1024U);
}

TEST(BindingText, IdentifierAndNull) {
    const SnmpVarBindEMS identifier = parsed("o", ".1.3.6.1.4");
    EXPECT_EQ(identifier.type, 0x06);
    EXPECT_EQ(oid_to_text({identifier.val.objid, identifier.val_len}), "1.3.6.1.4");
    const SnmpVarBindEMS null = parsed("n", "whatever");
    EXPECT_EQ(null.type, 0x05);
    EXPECT_EQ(null.val_len, 0U);
}

TEST(BindingText, SaysWhatIsWrong) {
    const struct {
        const char* oid;
        const char* letter;
        std::string value;
        const char* part;
    } rows[] = {
        {"x", "i", "1", "binding 'x' is not an object identifier"},
        {"1.3", "q", "1", "type 'q' is not one of"},
        {"1.3", "", "1", "type '' is not one of"},
        {"1.3", "ii", "1", "type 'ii' is not one of"},
        {"1.3", "i", "", "not a number from -2147483648 to 2147483647"},
        {"1.3", "i", "2147483648", "binding 1.3: value '2147483648'"},
        {"1.3", "i", "1x", "not a number"},
        {"1.3", "u", "-1", "not a number from 0 to 4294967295"},
        {"1.3", "c", "4294967296", "not a number from 0 to 4294967295"},
        {"1.3", "a", "10.1.2", "is not an IPv4 address"},
        {"1.3", "a", "10.1.2.256", "is not an IPv4 address"},
        {"1.3", "o", "1", "2 to 128 numbers"},
        {"1.3", "x", "0x1", "no pair of hexadecimal digits"},
        {"1.3", "d", "1.256", "octet '256' is not a number from 0 to 255"},
        {"1.3", "s", times("a", 1025), "1025 octets; at most 1024"},
    };
    for (const auto& row : rows) {
        SnmpVarBindEMS binding{};
        const std::string message =
            usage_error([&] { parse_binding(row.oid, row.letter, row.value, binding); });
        EXPECT_NE(message.find(row.part), std::string::npos) << row.value << ": " << message;
    }
}

TEST(Numbers, EventNumbersAreDecimalOrHexadecimal) {
    EXPECT_EQ(parse_event_number("59179056"), 59179056);
    EXPECT_EQ(parse_event_number("0x03870030"), 59179056);
    EXPECT_EQ(parse_event_number("0X7fffffff"), 2147483647);
    EXPECT_EQ(parse_event_number("010"), 10);
    for (const char* text : {"", "0x", "-1", "0x80000000", "2147483648", "1x", " 1", "0x-1"}) {
        EXPECT_NE(usage_error([&] { parse_event_number(text); }), "") << text;
    }
}

using Words = std::vector<std::string>;

TEST(ShieldValues, MarksTheValuesOfBindingsOnly) {
    const Words words = {"--to", "raw:h",  "",         "6", "-1",      "",  "1.3",
                         "s",    "--rate", "--repeat", "5", "1.3.6.1", "s", "[a,b]"};
    Words expected = words;
    expected[8] = "\x01--rate";
    expected[13] = "\x01[a,b]";
    EXPECT_EQ(shield_values(words), expected);
}

TEST(ShieldValues, KnowsTheEndOfOptionsAndJoinedValues) {
    EXPECT_EQ(shield_values({"--to=x", "--", "", "6", "1", "", "1.3", "s", "--"}),
              (Words{"--to=x", "--", "", "6", "1", "", "1.3", "s", "\x01--"}));
    EXPECT_EQ(shield_values({}), Words{});
    EXPECT_EQ(shield_values({"--to"}), Words{"--to"});
}

TEST(Totals, NameEachReason) {
    Totals totals;
    totals.received = 12;
    totals.undecodable = {{"bindings", 2}, {"not a trap", 1}};
    totals.dropped = 7;
    EXPECT_EQ(totals_text(totals),
              "received 12 traps\n"
              "undecodable 3: bindings 2, not a trap 1\n"
              "refused 0\n"
              "unfinished 0\n"
              "dropped by the kernel 7\n");
    totals.withheld.emplace();
    EXPECT_EQ(totals_text(totals).substr(0, 42), "received 12 traps\nwithheld 0\nundecodable 3");
    totals.withheld = {{"cut short", 1}, {"not to be shown", 3}};
    EXPECT_EQ(totals_text(totals).substr(18, 43), "withheld 4: cut short 1, not to be shown 3\n");
}

TEST(Undecodable, NamesTheFirstBadItem) {
    const struct {
        std::size_t position;  // of the byte that is changed
        std::uint8_t byte;
        const char* reason;
    } rows[] = {
        {0, 0x31, "message header"}, {2, 0x04, "message header"}, {5, 0x02, "message header"},
        {13, 0xa7, "not a trap"},    {14, 0x7f, "not a trap"},    {15, 0x04, "enterprise"},
        {23, 0x05, "agent address"}, {29, 0x04, "generic trap"},  {32, 0x04, "specific trap"},
        {35, 0x04, "time stamp"},    {38, 0x31, "bindings"},      {39, 0x05, "bindings"},
    };
    for (const auto& row : rows) {
        Bytes trap = small_trap();
        trap[row.position] = row.byte;
        EXPECT_STREQ(undecodable_reason(trap), row.reason) << row.position;
    }
}

/* A trap of each type of value, as received. */
struct Sample {
    snmp_trap_infoEMS info{};
    std::vector<SnmpVarBindEMS> bindings;

    SnmpVarBindEMS& add(std::uint8_t type) {
        SnmpVarBindEMS& binding = bindings.emplace_back();
        binding.oid[0] = 1;
        binding.oid[1] = static_cast<std::uint32_t>(bindings.size());
        binding.oid_length = 2;
        binding.type = type;
        return binding;
    }
    void add_integer(std::uint8_t type, std::uint32_t value) {
        SnmpVarBindEMS& binding = add(type);
        binding.val.integer = static_cast<std::int32_t>(value);
        binding.val_len = 4;
    }
    void add_string(std::uint8_t type, const Bytes& octets) {
        SnmpVarBindEMS& binding = add(type);
        std::copy(octets.begin(), octets.end(), binding.val.string);
        binding.val_len = static_cast<std::uint32_t>(octets.size());
    }
    ReceivedTrap trap(std::optional<trap_headerEMS> header = {}) const {
        return {"tcp", "127.0.0.1:9", 97, header, info, bindings};
    }
};

Sample every_type() {
    Sample sample;
    std::memcpy(sample.info.community, "pub", 3);
    sample.info.clen = 3;
    sample.info.enterprise[0] = 1;
    sample.info.enterprise[1] = 3;
    sample.info.elen = 2;
    const std::uint8_t agent[] = {10, 1, 2, 3};
    std::memcpy(&sample.info.agent, agent, sizeof agent);
    sample.info.gen = 6;
    sample.info.specific = 59179056;
    sample.info.time = 9006101;
    sample.add_integer(0x02, 0xFFFFFFFFU);
    sample.add_integer(0x41, 0xFFFFFFFFU);
    sample.add_integer(0x42, 3000000000U);
    sample.add_integer(0x43, 150);
    std::uint32_t address = 0;
    std::memcpy(&address, agent, sizeof agent);
    sample.add_integer(0x40, address);
    sample.add_string(0x04, from_hex("61 22 5c 0a 0d 09 c3 a4"));
    sample.add_string(0x04, from_hex("00 ff"));
    sample.add_string(0x44, from_hex("9f 78"));
    sample.add(0x05);
    SnmpVarBindEMS& identifier = sample.add(0x06);
    identifier.val.objid[0] = 2;
    identifier.val.objid[1] = 5;
    identifier.val_len = 2;
    return sample;
}

constexpr trap_headerEMS some_header{97, 15, 4711, 0, -1, 9};

TEST(TrapText, ShowsEveryFieldAndType) {
    std::string text = "before\n";
    append_text(text, every_type().trap(some_header));
    EXPECT_EQ(text,
              "before\n"
              "trap of 97 bytes by tcp from 127.0.0.1:9\n"
              "  header: len 97, src 15, pid 4711, time 0, status -1, target 9\n"
              "  community: \"pub\"\n"
              "  enterprise: 1.3\n"
              "  generic: 6 (enterpriseSpecific)\n"
              "  specific: 59179056 (0x03870030)\n"
              "  agent: 10.1.2.3\n"
              "  time: 9006101 (1 days 1:01:01.01)\n"
              "  binding 1: 1.1 INTEGER: -1\n"
              "  binding 2: 1.2 Counter: 4294967295\n"
              "  binding 3: 1.3 Gauge: 3000000000\n"
              "  binding 4: 1.4 TimeTicks: 150 (0 days 0:00:01.50)\n"
              "  binding 5: 1.5 IpAddress: 10.1.2.3\n"
              "  binding 6: 1.6 OCTET STRING: \"a\\\"\\\\\\n\\r\\t\xc3\xa4\"\n"
              "  binding 7: 1.7 OCTET STRING: hex 00 ff\n"
              "  binding 8: 1.8 Opaque: hex 9f 78\n"
              "  binding 9: 1.9 NULL\n"
              "  binding 10: 1.10 OBJECT IDENTIFIER: 2.5\n"
              "\n");
}

TEST(TrapText, ShowsATrapWithoutHeader) {
    Sample sample;
    sample.info.gen = 9;
    std::string text;
    append_text(text, sample.trap());
    EXPECT_NE(text.find("  header: none\n"), std::string::npos);
    EXPECT_NE(text.find("  generic: 9 (unknown)\n"), std::string::npos);
}

TEST(TrapJson, HoldsEveryFieldAndType) {
    std::string text;
    append_json(text, every_type().trap(some_header));
    ASSERT_EQ(text.find('\n'), text.size() - 1);
    const auto expected = nlohmann::json::parse(R"({
        "transport": "tcp", "peer": "127.0.0.1:9", "bytes": 97,
        "header": {"len": 97, "src": 15, "pid": 4711, "time": 0, "status": -1, "target": 9},
        "community": "pub", "enterprise": "1.3", "generic": 6, "specific": 59179056,
        "agent": "10.1.2.3", "time": 9006101,
        "bindings": [
            {"oid": "1.1", "type": "INTEGER", "value": -1},
            {"oid": "1.2", "type": "Counter", "value": 4294967295},
            {"oid": "1.3", "type": "Gauge", "value": 3000000000},
            {"oid": "1.4", "type": "TimeTicks", "value": 150},
            {"oid": "1.5", "type": "IpAddress", "value": "10.1.2.3"},
            {"oid": "1.6", "type": "OCTET STRING", "value": "a\"\\\n\r\tä",
             "hex": "61 22 5c 0a 0d 09 c3 a4"},
            {"oid": "1.7", "type": "OCTET STRING", "value": null, "hex": "00 ff"},
            {"oid": "1.8", "type": "Opaque", "value": null, "hex": "9f 78"},
            {"oid": "1.9", "type": "NULL", "value": null},
            {"oid": "1.10", "type": "OBJECT IDENTIFIER", "value": "2.5"}
        ]})");
    EXPECT_EQ(nlohmann::json::parse(text), expected);
}

TEST(TrapJson, CommunityThatIsNoTextIsToldInDigits) {
    Sample sample;
    sample.info.community[0] = 0xff;
    sample.info.clen = 1;
    std::string text;
    append_json(text, sample.trap());
    const auto object = nlohmann::json::parse(text);
    EXPECT_TRUE(object["community"].is_null());
    EXPECT_EQ(object["community_hex"], "ff");
    EXPECT_TRUE(object["header"].is_null());
    EXPECT_TRUE(object["bindings"].empty());
}

TEST(TrapText, CountsBeyondTheArraysAreTheArrays) {
    Sample sample;
    sample.info.clen = -1;
    sample.info.elen = 1000;
    sample.add(0x04).val_len = 5000;
    std::string text;
    append_text(text, sample.trap());
    EXPECT_NE(text.find("  community: \"\"\n"), std::string::npos);
    EXPECT_NE(text.find("hex 00"), std::string::npos);
}

}  // namespace
}  // namespace wq::command
