#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/random.h"
#include "support/traps.h"
#include "support/vectors.h"

namespace {

using namespace wq::test;

const Oid notification_name{1, 3, 6, 1, 4, 1, 99, 12, 45, 2, 1, 0};

/* A message of these bindings, in the notation of the tables. */
Bytes message_of(const std::string& bindings, const std::string& version = "00") {
    return ber("30(02(" + version +
               ") 04('p') a4(06(2b 06) 40(0a 01 02 03) 02(06) 02(11) 43(05) 30(" + bindings +
               ")))");
}

TEST(ParseTrap, ReadsWhatIsWritten) {
    for (const Vector& row : read_vectors("trap.txt", 8)) {
        SCOPED_TRACE(row.where);
        const Decoded decoded = decode(ber(row[7]));
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(told(to_send(decoded.trap)), told(as_received(trap_from_columns(row, 0))));
    }
}

TEST(ParseTrap, ReadsWhatIsNeverWritten) {
    for (const Vector& row : read_vectors("trap_decode.txt", 8)) {
        SCOPED_TRACE(row.where);
        Decoded decoded;
        const Diagnostics said = diagnostics(~0, [&] { decoded = decode(ber(row[7])); });
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(told(to_send(decoded.trap)), told(trap_from_columns(row, 0)));
        EXPECT_EQ(said.err + said.out + said.trace, "");
    }
}

TEST(ParseTrap, SaysWhatItRefuses) {
    for (const Vector& row : read_vectors("trap_bad.txt", 3)) {
        SCOPED_TRACE(row.where);
        const Bytes message = ber(row[0]);
        const auto refuse = [&] { EXPECT_EQ(decode(message).result, -1); };
        const Diagnostics said = diagnostics(0, refuse);
        const std::string line = "snmp_parse_trap: " + row[1] + "\n";
        EXPECT_EQ(said.err, line);
        EXPECT_EQ(said.trace, as_lines(row[2]) + line);
        EXPECT_EQ(said.out, "");
        EXPECT_EQ(captured_stderr(refuse), line) << "with the trace log closed";
    }
}

TEST(ParseTrap, AddressesLieInWireOrder) {
    const Decoded decoded = decode(message_of("30(06(2b) 40(c0 a8 00 01)) 30(06(2b) 40(05))"));
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(std::memcmp(&decoded.trap.info.agent, "\x0a\x01\x02\x03", 4), 0);
    EXPECT_EQ(std::memcmp(&decoded.trap.vars[0].val.integer, "\xc0\xa8\x00\x01", 4), 0);
    EXPECT_EQ(std::memcmp(&decoded.trap.vars[1].val.integer, "\x00\x00\x00\x05", 4), 0);
}

TEST(ParseTrap, AnAgentOfAnotherTagIsANumberOfTheHost) {
    const Decoded decoded =
        decode(ber("30(02(00) 04('p') a4(06(2b 06) 02(01 02) 02(06) 02(11) 43(05) 30()))"));
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.trap.info.agent, 0x0102U);
}

TEST(ParseTrap, NumbersHaveALengthOfFour) {
    const Decoded decoded = decode(message_of(
        "30(06(2b) 02(05)) 30(06(2b) 41(05)) 30(06(2b) 42(05)) 30(06(2b) 43(05)) 30(06(2b) 40(05))"
        " 30(06(2b) 04('abc')) 30(06(2b) 44('ab')) 30(06(2b) 06(2b 06 01))"));
    ASSERT_EQ(decoded.result, 0);
    const Trap& trap = decoded.trap;
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(trap.vars[i].val_len, 4U);
    }
    EXPECT_EQ(trap.vars[5].val_len, 3U);
    EXPECT_EQ(trap.vars[6].val_len, 2U);
    EXPECT_EQ(trap.vars[7].val_len, 4U);
}

TEST(ParseTrap, OtherVersionsAreReportedAndRead) {
    for (const char* version : {"01", "02", "ff", "7f ff ff ff"}) {
        SCOPED_TRACE(version);
        Decoded decoded;
        const Diagnostics said =
            diagnostics(0, [&] { decoded = decode(message_of("30(06(2b) 02(05))", version)); });
        EXPECT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.trap.info.vars, 1);
        EXPECT_EQ(said.err, "snmp_parse_trap: invalid version\n");
        EXPECT_EQ(said.trace, "snmp_parse_trap: invalid version\n");
    }
    const Diagnostics said = diagnostics(
        0, [&] { EXPECT_EQ(decode(message_of("30(06(2b) 07(05))", "01")).result, -1); });
    EXPECT_EQ(said.err, "snmp_parse_trap: invalid version\nsnmp_parse_trap: invalid type\n");
    EXPECT_EQ(said.trace, said.err);
}

TEST(ParseTrap, FieldsBeforeAFailureAreKept) {
    const Bytes message =
        ber("30(02(00) 04('abc') a4(06(2b 06) 40(0a 01 02 03) 02(06) 02(11) 04(05)))");
    Decoded decoded;
    captured_stderr([&] { decoded = decode(message); });
    ASSERT_EQ(decoded.result, -1);
    const snmp_trap_infoEMS& info = decoded.trap.info;
    EXPECT_EQ(info.clen, 3);
    EXPECT_EQ(std::memcmp(info.community, "abc", 4), 0) << "terminated";
    EXPECT_EQ(info.elen, 3);
    EXPECT_EQ(dotted(info.enterprise, 3), "1.3.6");
    EXPECT_EQ(ntohl(info.agent), 0x0a010203U);
    EXPECT_EQ(info.gen, 6U);
    EXPECT_EQ(info.specific, 0x11U);
}

// --------------------------------------------------------------------------------- truncation

TEST(Truncation, OfAWholeMessageIsRefusedAtEveryByte) {
    for (const char* table : {"trap.txt", "trap_decode.txt"}) {
        for (const Vector& row : read_vectors(table, 8)) {
            SCOPED_TRACE(row.where);
            const Bytes message = ber(row[7]);
            int left = static_cast<int>(message.size());
            unsigned char type = 0;
            const unsigned char* contents = asnParseHeader09(message.data(), &left, &type);
            ASSERT_NE(contents, nullptr);
            const auto whole = static_cast<size_t>(contents - message.data() + left);
            captured_stderr([&] {
                for (size_t size = 0; size < whole; ++size) {
                    EXPECT_EQ(decode(std::span<const uint8_t>(message).first(size)).result, -1)
                        << size;
                }
            });
            EXPECT_EQ(decode(std::span<const uint8_t>(message).first(whole)).result, 0);
        }
    }
}

/* The parts of a message, for others to be made of them. */
const Bytes version_and_community = ber("02(00) 04('public')");
const Bytes trap_fields = ber("06(2b 06 01 04 01 02) 40(0a 01 02 03) 02(06) 02(11) 43(30 39)");
const std::vector<Bytes> list_items = {
    ber("30(06(2b 06 01) 02(05))"),
    ber("30(06(2b 06 01) 04(61*130))"),
    ber("30(06(2b 06 81 01) 06(2b 06 82 37))"),
    ber("30(06(2b 06 01) 05())"),
};

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes whole;
    for (const Bytes& part : parts) {
        append(whole, part);
    }
    return whole;
}

Bytes first_of(const Bytes& bytes, size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)};
}

TEST(Truncation, OfTheContentsIsRefusedWhereTheLengthsAreRight) {
    const Bytes list = joined(list_items);
    const Bytes pdu_contents = joined({trap_fields, tlv(0x30, list)});
    const Bytes contents = joined({version_and_community, tlv(0xa4, pdu_contents)});
    ASSERT_EQ(decode(tlv(0x30, contents)).result, 0);
    captured_stderr([&] {
        for (size_t size = 0; size < contents.size(); ++size) {
            EXPECT_EQ(decode(tlv(0x30, first_of(contents, size))).result, -1) << size;
        }
        for (size_t size = 0; size < pdu_contents.size(); ++size) {
            const Bytes pdu = tlv(0xa4, first_of(pdu_contents, size));
            EXPECT_EQ(decode(tlv(0x30, joined({version_and_community, pdu}))).result, -1) << size;
        }
    });
}

TEST(Truncation, OfTheListIsRefusedButBetweenBindings) {
    const Bytes list = joined(list_items);
    std::vector<size_t> ends{0};
    for (const Bytes& item : list_items) {
        ends.push_back(ends.back() + item.size());
    }
    captured_stderr([&] {
        for (size_t size = 0; size <= list.size(); ++size) {
            const Bytes pdu = tlv(0xa4, joined({trap_fields, tlv(0x30, first_of(list, size))}));
            const Decoded decoded = decode(tlv(0x30, joined({version_and_community, pdu})));
            const auto whole = std::find(ends.begin(), ends.end(), size);
            EXPECT_EQ(decoded.result, whole != ends.end() ? 0 : -1) << size;
            if (whole != ends.end()) {
                EXPECT_EQ(decoded.trap.info.vars, whole - ends.begin());
            }
        }
    });
}

TEST(Truncation, OfABindingIsRefused) {
    for (const Bytes& item : list_items) {
        const Bytes contents(item.begin() + (item[1] < 0x80 ? 2 : 3), item.end());
        captured_stderr([&] {
            for (size_t size = 0; size < contents.size(); ++size) {
                const Bytes list = tlv(0x30, tlv(0x30, first_of(contents, size)));
                const Bytes pdu = tlv(0xa4, joined({trap_fields, list}));
                EXPECT_EQ(decode(tlv(0x30, joined({version_and_community, pdu}))).result, -1)
                    << size;
            }
        });
    }
}

TEST(Truncation, LengthsThatLieNeverReachBeyondTheMessage) {
    const Bytes message = joined(
        {tlv(0x30, joined({version_and_community,
                           tlv(0xa4, joined({trap_fields, tlv(0x30, joined(list_items))}))}))});
    captured_stderr([&] {
        for (size_t at = 0; at < message.size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                Bytes changed = message;
                changed[at] = static_cast<uint8_t>(value);
                const Decoded decoded = decode(changed, 4);
                ASSERT_TRUE(decoded.result == 0 || decoded.result == -1);
                ASSERT_LE(decoded.trap.info.vars, 4);
            }
        }
    });
}

TEST(Truncation, LengthsBelowZeroCountAsNone) {
    const Bytes message = message_of("");
    Trap trap(1);
    captured_stderr([&] {
        for (const int length : {0, -1, INT_MIN}) {
            trap.info.clen = 127;
            trap.info.elen = 128;
            EXPECT_EQ(
                snmp_parse_trap(message.data(), length, &trap.info, nullptr, trap.vars.data()), -1);
        }
    });
}

// -------------------------------------------------------------------------- rooms for results

TEST(Rooms, BindingsBeyondMaxvarsAreIgnored) {
    const Bytes message = message_of("30(06(2b) 02(01)) 30(06(2b) 02(02)) 30(06(2b) 02(03))");
    for (int maxvars = 0; maxvars <= 4; ++maxvars) {
        ExactArray<SnmpVarBindEMS> vars(static_cast<size_t>(maxvars));
        Trap trap;
        trap.info.maxvars = maxvars;
        trap.info.vars = 77;
        EXPECT_EQ(snmp_parse_trap(message.data(), static_cast<int>(message.size()), &trap.info,
                                  nullptr, vars.data()),
                  0);
        EXPECT_EQ(trap.info.vars, std::min(maxvars, 3));
        for (int i = 0; i < trap.info.vars; ++i) {
            EXPECT_EQ(vars.data()[i].val.integer, i + 1);
        }
    }
}

TEST(Rooms, MaxvarsBelowZeroCountsAsNone) {
    const Bytes message = message_of("30(06(2b) 02(01))");
    for (const int maxvars : {-1, INT_MIN}) {
        ExactArray<SnmpVarBindEMS> none(0);
        Trap trap;
        trap.info.maxvars = maxvars;
        EXPECT_EQ(snmp_parse_trap(message.data(), static_cast<int>(message.size()), &trap.info,
                                  nullptr, none.data()),
                  0);
        EXPECT_EQ(trap.info.vars, 0);
    }
}

TEST(Rooms, WhatLiesBehindMaxvarsIsNotJudged) {
    const Bytes message = message_of("30(06(2b) 02(01)) 30(06(2b) 02(02)) 'not a binding'");
    EXPECT_EQ(decode(message, 2).result, 0);
    EXPECT_EQ(decode(message, 2).trap.info.vars, 2);
    captured_stderr([&] { EXPECT_EQ(decode(message, 3).result, -1); });
}

struct Community {
    int result;
    int clen;
    Bytes bytes;
};

Community parse_community(size_t size, int clen) {
    const Bytes message = ber("30(02(00) 04(63*" + std::to_string(size) +
                              ") a4(06(2b 06) 40(0a 01 02 03) 02(06) 02(11) 43(05) 30()))");
    Trap trap(1);
    std::memset(trap.info.community, 0x5a, sizeof trap.info.community);
    trap.info.clen = clen;
    Community parsed{};
    captured_stderr([&] {
        parsed.result = snmp_parse_trap(message.data(), static_cast<int>(message.size()),
                                        &trap.info, nullptr, trap.vars.data());
    });
    parsed.clen = trap.info.clen;
    parsed.bytes.assign(trap.info.community, trap.info.community + EMS_COMMUNITY_MAX);
    return parsed;
}

TEST(Rooms, CommunitiesHaveAHundredAndTwentySevenBytesAtMost) {
    for (const int clen : {127, 128, 129, 1000, INT_MAX}) {
        SCOPED_TRACE(clen);
        for (const size_t size : {1U, 126U, 127U}) {
            const Community parsed = parse_community(size, clen);
            EXPECT_EQ(parsed.result, 0);
            EXPECT_EQ(parsed.clen, static_cast<int>(size));
            EXPECT_EQ(parsed.bytes[size], 0) << "terminated";
            EXPECT_EQ(first_of(parsed.bytes, size), Bytes(size, 'c'));
            if (size < 127) {
                EXPECT_EQ(parsed.bytes[size + 1], 0x5a);
            }
        }
        EXPECT_EQ(parse_community(128, clen).result, -1);
        EXPECT_EQ(parse_community(129, clen).result, -1);
    }
}

TEST(Rooms, CommunitiesMustFitTheCapacity) {
    for (const int clen : {1, 5, 126}) {
        const auto size = static_cast<size_t>(clen);
        EXPECT_EQ(parse_community(size, clen).result, 0);
        EXPECT_EQ(parse_community(size, clen).bytes[size], 0) << "one byte past the capacity";
        EXPECT_EQ(parse_community(size + 1, clen).result, -1);
    }
    for (const int clen : {0, -1, INT_MIN}) {
        EXPECT_EQ(parse_community(1, clen).result, -1);
    }
}

TEST(Rooms, EnterprisesMustFitTheCapacity) {
    const auto parse = [](size_t octets, int elen) {
        const Bytes message = ber("30(02(00) 04('p') a4(06(2b 01*" + std::to_string(octets - 1) +
                                  ") 40(0a 01 02 03) 02(06) 02(11) 43(05) 30()))");
        Trap trap(1);
        trap.info.elen = elen;
        int result = 0;
        captured_stderr([&] {
            result = snmp_parse_trap(message.data(), static_cast<int>(message.size()), &trap.info,
                                     nullptr, trap.vars.data());
        });
        return result == 0 ? trap.info.elen : result;
    };
    EXPECT_EQ(parse(9, 10), 10);
    EXPECT_EQ(parse(10, 10), -1) << "counted by octets, and one more";
    for (const int elen : {128, 129, INT_MAX}) {
        EXPECT_EQ(parse(127, elen), 128) << "128 sub-identifiers";
        EXPECT_EQ(parse(128, elen), -1) << "and one more";
    }
    for (const int elen : {2, 1, 0, -1, INT_MIN}) {
        EXPECT_EQ(parse(2, elen), -1) << elen;
    }
}

TEST(Rooms, IdentifiersOfBindingsHaveAHundredAndTwentyEightSubIdentifiers) {
    const Decoded decoded = decode(message_of("30(06(2b 01*126) 06(2b 02*126))"));
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.trap.vars[0].oid_length, 128U);
    EXPECT_EQ(decoded.trap.vars[0].oid[127], 1U);
    EXPECT_EQ(decoded.trap.vars[0].val_len, 128U);
    EXPECT_EQ(decoded.trap.vars[0].val.objid[127], 2U);
}

// ----------------------------------------------------------------------- notification address

const std::string notification = "30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 04(04 c0 a8 07 09))";
const std::string one = "30(06(2b 06) 02(01))";
const std::string two = "30(06(2b 06) 02(02))";

std::string stored_numbers(const Decoded& decoded) {
    std::string text;
    for (int i = 0; i < decoded.trap.info.vars; ++i) {
        text += std::to_string(decoded.trap.vars[static_cast<size_t>(i)].val.integer);
    }
    return text;
}

TEST(NotificationAddress, ReplacesTheAgentAndIsNotStored) {
    for (const std::string& bindings :
         {notification + one + two, one + notification + two, one + two + notification}) {
        const Decoded decoded = decode(message_of(bindings));
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.trap.info.vars, 2);
        EXPECT_EQ(stored_numbers(decoded), "12");
        EXPECT_EQ(std::memcmp(&decoded.trap.info.agent, "\xc0\xa8\x07\x09", 4), 0);
    }
}

TEST(NotificationAddress, CountsAgainstMaxvars) {
    const Decoded decoded = decode(message_of(notification + one + two), 2);
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.trap.info.vars, 1);
    EXPECT_EQ(stored_numbers(decoded), "1");
    const Decoded last = decode(message_of(one + two + notification), 2);
    ASSERT_EQ(last.result, 0);
    EXPECT_EQ(last.trap.info.vars, 2);
    EXPECT_EQ(ntohl(last.trap.info.agent), 0x0a010203U) << "not reached";
}

TEST(NotificationAddress, IsTakenOffTheCountOnce) {
    const std::string other = "30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 04(04 7f 00 00 01))";
    const Decoded decoded = decode(message_of(notification + one + other));
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.trap.info.vars, 2);
    EXPECT_EQ(decoded.trap.vars[0].val.integer, 1);
    EXPECT_EQ(std::memcmp(&decoded.trap.info.agent, "\x7f\x00\x00\x01", 4), 0) << "the last one";
}

TEST(NotificationAddress, AloneLeavesNone) {
    const Decoded decoded = decode(message_of(notification));
    ASSERT_EQ(decoded.result, 0);
    EXPECT_EQ(decoded.trap.info.vars, 0);
    EXPECT_EQ(std::memcmp(&decoded.trap.info.agent, "\xc0\xa8\x07\x09", 4), 0);
}

TEST(NotificationAddress, MayBeOpaqueAndLongerNamed) {
    for (const char* bindings :
         {"30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 44(9f c0 a8 07 09 ee ee))",
          "30(06(2b 06 01 04 01 63 0c 2d 02 01 00 05) 04(04 c0 a8 07 09))"}) {
        const Decoded decoded = decode(message_of(bindings));
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.trap.info.vars, 0);
        EXPECT_EQ(std::memcmp(&decoded.trap.info.agent, "\xc0\xa8\x07\x09", 4), 0);
    }
}

TEST(NotificationAddress, OfAnotherTypeOrNameIsAnOrdinaryBinding) {
    for (const char* bindings : {"30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 40(c0 a8 07 09))",
                                 "30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 06(2b 06 01))",
                                 "30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 05())",
                                 "30(06(2b 06 01 04 01 63 0c 2d 02 01 01) 04(04 c0 a8 07 09))",
                                 "30(06(2b 06 01 04 01 63 0c 2d 03 01 00) 04(04 c0 a8 07 09))"}) {
        SCOPED_TRACE(bindings);
        const Decoded decoded = decode(message_of(bindings));
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.trap.info.vars, 1);
        EXPECT_EQ(ntohl(decoded.trap.info.agent), 0x0a010203U);
    }
}

TEST(NotificationAddress, TooShortAValueDoesNoHarm) {
    for (size_t size = 0; size < 5; ++size) {
        const Decoded decoded = decode(message_of("30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 04(" +
                                                  to_hex(Bytes(size, 4)) + "))" + one));
        ASSERT_EQ(decoded.result, 0) << size;
        EXPECT_EQ(decoded.trap.info.vars, 1);
        EXPECT_EQ(stored_numbers(decoded), "1");
    }
}

TEST(NotificationAddress, OctetsThatAValueDoesNotHaveAreZero) {
    constexpr std::array<uint8_t, 5> value{4, 0xc0, 0xa8, 7, 9};
    for (size_t size = 0; size < value.size(); ++size) {
        const Bytes octets(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(size));
        const Bytes message =
            message_of("30(06(2b 06 01 04 01 63 0c 2d 02 01 00) 04(" + to_hex(octets) + "))");
        Trap trap(1);
        std::memset(trap.vars.data(), 0xee, sizeof trap.vars[0]);  // as an earlier trap left it
        ASSERT_EQ(snmp_parse_trap(message.data(), static_cast<int>(message.size()), &trap.info,
                                  nullptr, trap.vars.data()),
                  0);
        std::array<uint8_t, 4> expected{};
        std::copy_n(value.begin() + 1, size > 1 ? size - 1 : 0, expected.begin());
        EXPECT_EQ(std::memcmp(&trap.info.agent, expected.data(), expected.size()), 0) << size;
    }
}

TEST(IsVellumNotificationAddress, ComparesTwelveSubIdentifiers) {
    const ExactArray<uint32_t> exact(notification_name);
    EXPECT_EQ(isVellumNotificationAddress(exact.data()), 1);
    Oid longer = notification_name;
    longer.push_back(7);
    EXPECT_EQ(isVellumNotificationAddress(longer.data()), 1) << "the length is not compared";
    for (size_t i = 0; i < notification_name.size(); ++i) {
        Oid other = notification_name;
        ++other[i];
        EXPECT_EQ(isVellumNotificationAddress(other.data()), 0) << i;
    }
    EXPECT_EQ(isVellumNotificationAddress(nullptr), 0);
}

// ------------------------------------------------------------------------------ null pointers

TEST(ParseTrapNullPointers, MakeItFail) {
    const Bytes message = message_of(one);
    const int length = static_cast<int>(message.size());
    Trap trap(1);
    event_infoEMS ei{};
    captured_stderr([&] {
        EXPECT_EQ(snmp_parse_trap(nullptr, length, &trap.info, &ei, trap.vars.data()), -1);
        EXPECT_EQ(snmp_parse_trap(message.data(), length, nullptr, &ei, trap.vars.data()), -1);
        EXPECT_EQ(snmp_parse_trap(message.data(), length, &trap.info, &ei, nullptr), -1);
    });
    trap = Trap(1);
    EXPECT_EQ(snmp_parse_trap(message.data(), length, &trap.info, nullptr, trap.vars.data()), 0);
}

// ------------------------------------------------------------------------------- random traps

TEST(RandomTraps, ComeBackAsTheyWent) {
    Random random;
    SCOPED_TRACE(random.name());
    int came_back = 0;
    captured_stderr([&] {
        for (int round = 0; round < 3000 && !testing::Test::HasFatalFailure(); ++round) {
            const Trap trap = random_trap(random);
            const Bytes message = encode(trap);
            if (message.empty()) {
                continue; /* more than a message can hold */
            }
            const Decoded decoded = decode(message);
            ASSERT_EQ(decoded.result, 0);
            ASSERT_EQ(told(to_send(decoded.trap)), told(as_received(trap)));
            ++came_back;
        }
    });
    EXPECT_GT(came_back, 2000);
}

bool holds_notification_address(const Trap& trap) {
    return std::any_of(trap.vars.begin(), trap.vars.end(), [](const SnmpVarBindEMS& var) {
        return isVellumNotificationAddress(var.oid) == 1;
    });
}

TEST(RandomTraps, WhatDecodesAndEncodesDecodesToTheSame) {
    Random random;
    SCOPED_TRACE(random.name());
    int compared = 0;
    captured_stderr([&] {
        for (int round = 0; round < 20000 && !testing::Test::HasFatalFailure(); ++round) {
            Bytes message = encode(random_trap(random));
            if (message.empty()) {
                continue;
            }
            for (uint32_t i = random.between(1, 6); i > 0; --i) {
                const auto last = static_cast<uint32_t>(message.size() - 1);
                message[random.between(0, last)] = random.byte();
            }
            if (random.one_in(10)) {
                message.resize(random.between(0, static_cast<uint32_t>(message.size())));
            }
            const Decoded first = decode(message, random.one_in(4) ? random.between(0, 3) : 64);
            ASSERT_TRUE(first.result == 0 || first.result == -1);
            if (first.result != 0 || holds_notification_address(first.trap)) {
                continue;
            }
            const Trap trap = to_send(first.trap);
            const Bytes again = encode(trap);
            if (again.empty()) {
                continue;
            }
            const Decoded second = decode(again);
            ASSERT_EQ(second.result, 0);
            ASSERT_EQ(told(to_send(second.trap)), told(as_received(trap)));
            ++compared;
        }
    });
    EXPECT_GT(compared, 100);
}

}  // namespace
