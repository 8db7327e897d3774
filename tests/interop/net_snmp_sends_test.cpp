/* Traps of snmptrap decode to the values that it was given. */
#include "listening_process.h"
#include "peer_tools.h"

namespace wq::test {
namespace {

constexpr const char* sender = "snmptrap";

struct Case {
    const char* name;
    Words words;  // ENTERPRISE AGENT GENERIC SPECIFIC TIME [OID TYPE VALUE]...
    const char* expected;
};

const std::vector<Case>& cases() {
    static const std::vector<Case> all = {
        {"nothing bound",
         {".1.3.6.1.4.1.8072", "10.1.2.3", "0", "0", "1"},
         R"({"enterprise": "1.3.6.1.4.1.8072", "agent": "10.1.2.3", "generic": 0, "specific": 0,
             "time": 1, "bindings": []})"},
        {"every type",
         {"1.3.6.1.4.1.2.6.3.1",
          "192.168.0.255",
          "6",
          "59179056",
          "4294967295",
          "1.3.6.1.2.1.1.1.0",
          "s",
          "some text",
          "1.3.6.1.2.1.1.2.0",
          "o",
          "1.3.6.1.4.1.99999",
          "1.3.6.1.2.1.2.2.1.1.1",
          "i",
          "-2147483648",
          "1.3.6.1.2.1.2.2.1.10.1",
          "c",
          "4294967295",
          "1.3.6.1.2.1.2.2.1.5.1",
          "u",
          "3000000000",
          "1.3.6.1.2.1.1.3.0",
          "t",
          "8388608",
          "1.3.6.1.2.1.4.20.1.1.1",
          "a",
          "10.0.0.5",
          "1.3.6.1.2.1.1.5.0",
          "x",
          "00ff7f",
          "1.3.6.1.2.1.1.6.0",
          "d",
          "10.255.0",
          "1.3.6.1.2.1.1.7.0",
          "n",
          ""},
         R"({"enterprise": "1.3.6.1.4.1.2.6.3.1", "agent": "192.168.0.255", "generic": 6,
             "specific": 59179056, "time": 4294967295, "bindings": [
             {"oid": "1.3.6.1.2.1.1.1.0", "type": "OCTET STRING", "value": "some text",
              "hex": "73 6f 6d 65 20 74 65 78 74"},
             {"oid": "1.3.6.1.2.1.1.2.0", "type": "OBJECT IDENTIFIER",
              "value": "1.3.6.1.4.1.99999"},
             {"oid": "1.3.6.1.2.1.2.2.1.1.1", "type": "INTEGER", "value": -2147483648},
             {"oid": "1.3.6.1.2.1.2.2.1.10.1", "type": "Counter", "value": 4294967295},
             {"oid": "1.3.6.1.2.1.2.2.1.5.1", "type": "Gauge", "value": 3000000000},
             {"oid": "1.3.6.1.2.1.1.3.0", "type": "TimeTicks", "value": 8388608},
             {"oid": "1.3.6.1.2.1.4.20.1.1.1", "type": "IpAddress", "value": "10.0.0.5"},
             {"oid": "1.3.6.1.2.1.1.5.0", "type": "OCTET STRING", "value": null,
              "hex": "00 ff 7f"},
             {"oid": "1.3.6.1.2.1.1.6.0", "type": "OCTET STRING", "value": null,
              "hex": "0a ff 00"},
             {"oid": "1.3.6.1.2.1.1.7.0", "type": "NULL", "value": null}]})"},
        {"long",
         {"1.3.6.1.4.1.8072", "0.0.0.5", "6", "1", "100", "1.3.6.1.2.1.1.1.0", "s",
          std::string(1000, 'a')},
         nullptr},
    };
    return all;
}

Json expected_of(const Case& row) {
    if (row.expected != nullptr) {
        return Json::parse(row.expected);
    }
    std::string digits;
    for (int i = 0; i < 1000; ++i) {
        digits += digits.empty() ? "61" : " 61";
    }
    return {{"enterprise", "1.3.6.1.4.1.8072"},
            {"agent", "0.0.0.5"},
            {"generic", 6},
            {"specific", 1},
            {"time", 100},
            {"bindings",
             {{{"oid", "1.3.6.1.2.1.1.1.0"},
               {"type", "OCTET STRING"},
               {"value", std::string(1000, 'a')},
               {"hex", digits}}}}};
}

/* Sends each case to the place and compares what the listener prints. */
void check_cases(const std::string& transport, const std::string& option,
                 const std::string& protocol) {
    const TempDir folder;
    ListeningProcess listener({"--json", option, "127.0.0.1:0"});
    std::size_t count = 0;
    for (const Case& row : cases()) {
        Words words{sender, "-v",     "1",
                    "-c",   "secret", protocol + ":" + listener.address(transport)};
        words.insert(words.end(), row.words.begin(), row.words.end());
        Subprocess process(words, tool_environment(folder));
        EXPECT_EQ(process.wait(), 0) << process.err();
        ASSERT_TRUE(listener.wait_for_lines(++count)) << row.name;
        const Json trap = listener.objects().back();
        EXPECT_EQ(trap["transport"], transport);
        EXPECT_EQ(trap["community"], "secret");
        const Json expected = expected_of(row);
        for (const auto& [name, value] : expected.items()) {
            EXPECT_EQ(trap[name], value) << row.name << ": " << name;
        }
    }
    EXPECT_EQ(listener.terminate(), 0);
}

TEST(NetSnmpSends, ByDatagrams) {
    REQUIRE_PROGRAM(sender);
    check_cases("udp", "--udp", "udp");
}

TEST(NetSnmpSends, ByTcp) {
    REQUIRE_PROGRAM(sender);
    check_cases("raw-tcp", "--raw-tcp", "tcp");
}

/* Version 2 notifications are not for this library: counted, and nothing else suffers. */
TEST(NetSnmpSends, AnotherVersionIsCountedAsUndecodable) {
    REQUIRE_PROGRAM(sender);
    const TempDir folder;
    ListeningProcess listener({"--json", "--udp", "127.0.0.1:0"});
    Subprocess process(
        {sender, "-v", "2c", "-c", "public", listener.address("udp"), "1", "1.3.6.1.6.3.1.1.5.1"},
        tool_environment(folder));
    EXPECT_EQ(process.wait(), 0) << process.err();
    EXPECT_TRUE(listener.wait_for_err(": SNMPv2c message\n"));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("undecodable 1: SNMPv2c message 1\n"), std::string::npos);
}

}  // namespace
}  // namespace wq::test
