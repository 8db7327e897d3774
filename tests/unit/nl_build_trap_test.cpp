#include "EMS/events/nl_build_trap.h"

#include <gtest/gtest.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <climits>
#include <functional>
#include <string>
#include <utility>
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

/* Encodes into exactly `capacity` bytes: the result, the length and the bytes. */
struct Built {
    int result = 0;
    int length = 0;
    Bytes bytes;
};

Built build(const Trap& trap, int capacity) {
    Trap copy = trap;
    ExactBlock out(static_cast<size_t>(capacity));
    Built built;
    built.length = capacity;
    built.result =
        snmpBuildTrapEMS(out.data(), &built.length, &copy.info, nullptr, copy.vars.data());
    if (built.result == 0) {
        built.bytes = out.first(static_cast<size_t>(built.length));
    }
    EXPECT_EQ(told(copy), told(trap)) << "the caller's records stay as they are";
    return built;
}

std::string logged(const std::string& text) {
    return text.empty() ? text : "snmpBuildTrapEMS: " + text + "\n";
}

/* Expects a refusal into `capacity` bytes, and nothing but `text` said about it. */
void expect_refused(const Trap& trap, int capacity, const std::string& text) {
    const Diagnostics said =
        diagnostics(0, [&] { EXPECT_EQ(build(trap, capacity).result, -2) << capacity; });
    EXPECT_EQ(said.err, logged(text)) << "capacity " << capacity;
    EXPECT_EQ(said.trace + said.out, "") << "logged on the standard error stream alone";
}

TEST(BuildTrap, WritesEachOfTheTable) {
    for (const Vector& row : read_vectors("trap.txt", 8)) {
        SCOPED_TRACE(row.where);
        const Trap trap = trap_from_columns(row, 0);
        const Bytes message = ber(row[7]);
        const Built built = build(trap, EMS_TRAP_MAX);
        ASSERT_EQ(built.result, 0);
        EXPECT_EQ(built.length, static_cast<int>(message.size()));
        EXPECT_EQ(to_hex(built.bytes), to_hex(message));
    }
}

TEST(BuildTrap, NeedsRoomForTheMessageAndNoMore) {
    for (const Vector& row : read_vectors("trap.txt", 8)) {
        SCOPED_TRACE(row.where);
        const Trap trap = trap_from_columns(row, 0);
        const Bytes message = ber(row[7]);
        const int size = static_cast<int>(message.size());
        const std::string noise = captured_stderr([&] {
            for (int capacity = 0; capacity < size; ++capacity) {
                EXPECT_EQ(build(trap, capacity).result, -2) << capacity;
            }
        });
        EXPECT_NE(noise, "");
        for (const int capacity : {size, size + 1, size + 2, size + 100}) {
            EXPECT_EQ(to_hex(build(trap, capacity).bytes), to_hex(message)) << capacity;
        }
    }
}

TEST(BuildTrap, WritesNothingBehindItsRoom) {
    constexpr uint8_t untouched = 0xa5;
    const Vector row = read_vectors("trap.txt", 8).at(3);
    Trap trap = trap_from_columns(row, 0);
    const size_t size = ber(row[7]).size();
    captured_stderr([&] {
        for (size_t capacity = 0; capacity < size + 8; ++capacity) {
            Bytes guarded(size + 64, untouched);
            int length = static_cast<int>(capacity);
            snmpBuildTrapEMS(guarded.data(), &length, &trap.info, nullptr, trap.vars.data());
            for (size_t i = capacity; i < guarded.size(); ++i) {
                ASSERT_EQ(guarded[i], untouched) << capacity;
            }
        }
    });
}

TEST(BuildTrap, SaysWhichStepHasNoRoom) {
    /* enterprise 11 bytes, agent 6, generic 3, specific 3, time 4; an empty list 2 */
    const Trap plain = plain_trap();
    const auto plain_text = [](int capacity) -> std::string {
        return capacity < 11   ? "asnBuildObjid09 failed"
               : capacity < 17 ? "asnBuildInt09 for agent failed"
               : capacity < 20 ? "asnBuildInt09 for generic failed"
               : capacity < 23 ? "asnBuildInt09 for specific failed"
               : capacity < 27 ? "asnBuildInt09 for time failed"
               : capacity < 29 ? "length error"
                               : "";
    };
    constexpr int plain_size = 13 + 2 + 27 + 2; /* message header, PDU header, items, list */
    for (int capacity = 0; capacity < plain_size; ++capacity) {
        expect_refused(plain, capacity, plain_text(capacity));
    }
    EXPECT_EQ(build(plain, plain_size).length, plain_size);

    /* bindings of 15 and 9 bytes are assembled first; their list takes 26 */
    Trap bindings = plain;
    add(bindings, string_binding({1, 3, 6, 1}, ber("'router'")));
    add(bindings, binding({1, 3, 6, 1}, ASN_NULL09));
    const auto text = [](int capacity) -> std::string {
        return capacity < 24        ? "build_var_op failed"
               : capacity < 27      ? "asnBuildInt09 for time failed"
               : capacity < 27 + 26 ? "length error"
                                    : "";
    };
    constexpr int size = plain_size + 24;
    for (int capacity = 0; capacity < size; ++capacity) {
        expect_refused(bindings, capacity, text(capacity));
    }
    EXPECT_EQ(build(bindings, size).length, size);
}

TEST(BuildTrap, RefusesCapacitiesBelowZero) {
    captured_stderr([] {
        for (const int capacity : {-1, INT_MIN}) {
            Trap trap = plain_trap();
            ExactBlock none(0);
            int length = capacity;
            EXPECT_EQ(snmpBuildTrapEMS(none.data(), &length, &trap.info, nullptr, nullptr), -2);
        }
    });
}

TEST(BuildTrap, SaysWhatItCannotEncode) {
    const std::pair<std::function<void(Trap&)>, const char*> rows[] = {
        {[](Trap& trap) { trap.vars[1].type = ASN_OPAQUE09; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[1].type = 0x03; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[1].type = 0; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].val_len = 3; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].val_len = 0; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].oid_length = 1; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].oid_length = 0; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].oid[0] = 3; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[0].oid[1] = 88; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[2].val_len = 1; }, "build_var_op failed"},
        {[](Trap& trap) { trap.vars[2].val.objid[0] = 7; }, "build_var_op failed"},
        {[](Trap& trap) { trap.info.elen = 1; }, "asnBuildObjid09 failed"},
        {[](Trap& trap) { trap.info.elen = 0; }, "asnBuildObjid09 failed"},
        {[](Trap& trap) { trap.info.elen = -5; }, "asnBuildObjid09 failed"},
        {[](Trap& trap) { trap.info.enterprise[0] = 3; }, "asnBuildObjid09 failed"},
        {[](Trap& trap) { trap.info.enterprise[1] = 0xffffffd8; }, "asnBuildObjid09 failed"},
        {[](Trap& trap) {
             std::fill_n(trap.info.enterprise + 2, EMS_OID_MAX - 2, 0x80U);
             trap.info.elen = EMS_OID_MAX;
         },
         "asnBuildObjid09 failed"},
    };
    int number = 0;
    for (const auto& [spoil, text] : rows) {
        SCOPED_TRACE(number++);
        Trap trap = plain_trap();
        add(trap, number_binding({1, 3, 6}, ASN_INTEGER09, 5));
        add(trap, string_binding({1, 3, 6}, ber("'text'")));
        add(trap, objid_binding({1, 3, 6}, {1, 3, 6}));
        ASSERT_EQ(build(trap, EMS_TRAP_MAX).result, 0);
        spoil(trap);
        expect_refused(trap, EMS_TRAP_MAX, text);
    }
}

TEST(BuildTrap, LowerLayersSpeakUnderTheirOwnBits) {
    Trap trap = plain_trap();
    add(trap, number_binding({1, 3, 6}, ASN_OPAQUE09, 5));
    const auto refuse = [&] { EXPECT_EQ(build(trap, EMS_TRAP_MAX).result, -2); };
    EXPECT_EQ(diagnostics(4, refuse).err,
              "snmp: wrong type\nsnmpBuildTrapEMS: build_var_op failed\n");
    trap = plain_trap();
    trap.info.elen = 1;
    const Diagnostics said = diagnostics(1, refuse);
    EXPECT_EQ(said.err,
              "asn1: Encode:  Invalid Obj ID length\nsnmpBuildTrapEMS: asnBuildObjid09 failed\n");
    EXPECT_EQ(said.out, "Obj id = 1\n");
    trap = plain_trap();
    set_community(trap, std::string(100, 'c'));
    EXPECT_EQ(diagnostics(2, [&] { EXPECT_EQ(build(trap, 35).result, -2); }).err,
              "snmp_auth: buildstring\n");
    EXPECT_EQ(diagnostics(2 | 1, [&] { EXPECT_EQ(build(trap, EMS_TRAP_MAX).result, 0); }).err, "")
        << "nothing is said of a trap that is built";
}

// ---------------------------------------------------------------------------- the scratch area

/* Seven bindings of 1037 bytes and one of 13 + `last`: a list of 7272 + `last` bytes. */
Trap full_trap(uint32_t last) {
    Trap trap;
    set_community(trap, "public");
    set_enterprise(trap, {1, 3, 6});
    for (int i = 0; i < 7; ++i) {
        add(trap, string_binding({1, 3, 6, 1}, Bytes(EMS_STRING_MAX, 0x61)));
    }
    add(trap, string_binding({1, 3, 6, 1}, Bytes(last, 0x62)));
    return trap;
}

TEST(BuildTrapScratch, TakesAPduOfItsSize) {
    /* PDU = header 4, items 16, list header 4, list; message = 4, version 3, community 8, PDU */
    for (const uint32_t last : {895U, 896U}) {
        const Built built = build(full_trap(last), 2 * EMS_TRAP_MAX);
        ASSERT_EQ(built.result, 0) << last;
        const int pdu = 4 + 16 + 4 + 7272 + static_cast<int>(last);
        EXPECT_EQ(built.length, 15 + pdu);
        EXPECT_LE(pdu, EMS_TRAP_MAX);
        const Decoded decoded = decode(built.bytes);
        ASSERT_EQ(decoded.result, 0);
        EXPECT_EQ(told(to_send(decoded.trap)), told(full_trap(last)));
    }
}

TEST(BuildTrapScratch, RefusesALongerPduInSilence) {
    for (const uint32_t last : {897U, 898U, 916U}) {
        expect_refused(full_trap(last), 2 * EMS_TRAP_MAX, "");
    }
}

TEST(BuildTrapScratch, RefusesAListThatDoesNotFit) {
    for (const uint32_t last : {917U, 918U, 1024U}) {
        expect_refused(full_trap(last), 2 * EMS_TRAP_MAX, "build_header failed");
    }
    Trap trap = full_trap(1024);
    for (int i = 0; i < 100; ++i) {
        add(trap, string_binding({1, 3, 6, 1}, Bytes(EMS_STRING_MAX, 0x63)));
    }
    expect_refused(trap, 1 << 18, "build_header failed");
}

TEST(BuildTrapScratch, MessagesOfTheChannelsLargestSize) {
    const Built built = build(full_trap(881), EMS_TRAP_MAX);
    EXPECT_EQ(built.result, 0);
    EXPECT_EQ(built.length, EMS_TRAP_MAX);
    expect_refused(full_trap(882), EMS_TRAP_MAX, "");
}

// ------------------------------------------------------------------------- lengths in records

TEST(BuildTrapLengths, BeyondAnArrayCountAsItsSize) {
    const std::pair<std::function<void(Trap&)>, std::function<void(Trap&)>> rows[] = {
        {[](Trap& trap) { trap.info.clen = 129; }, [](Trap& trap) { trap.info.clen = 128; }},
        {[](Trap& trap) { trap.info.clen = INT_MAX; }, [](Trap& trap) { trap.info.clen = 128; }},
        {[](Trap& trap) { trap.info.clen = -1; }, [](Trap& trap) { trap.info.clen = 0; }},
        {[](Trap& trap) { trap.info.clen = INT_MIN; }, [](Trap& trap) { trap.info.clen = 0; }},
        {[](Trap& trap) { trap.info.elen = 129; }, [](Trap& trap) { trap.info.elen = 128; }},
        {[](Trap& trap) { trap.info.elen = INT_MAX; }, [](Trap& trap) { trap.info.elen = 128; }},
        {[](Trap& trap) { trap.info.vars = -1; }, [](Trap& trap) { trap.info.vars = 0; }},
        {[](Trap& trap) { trap.info.vars = INT_MIN; }, [](Trap& trap) { trap.info.vars = 0; }},
        {[](Trap& trap) { trap.vars[0].oid_length = 129; },
         [](Trap& trap) { trap.vars[0].oid_length = 128; }},
        {[](Trap& trap) { trap.vars[0].oid_length = UINT_MAX; },
         [](Trap& trap) { trap.vars[0].oid_length = 128; }},
        {[](Trap& trap) { trap.vars[0].val_len = 1025; },
         [](Trap& trap) { trap.vars[0].val_len = 1024; }},
        {[](Trap& trap) { trap.vars[0].val_len = UINT_MAX; },
         [](Trap& trap) { trap.vars[0].val_len = 1024; }},
        {[](Trap& trap) { trap.vars[1].val_len = 129; },
         [](Trap& trap) { trap.vars[1].val_len = 128; }},
        {[](Trap& trap) { trap.vars[1].val_len = 0x80000000; },
         [](Trap& trap) { trap.vars[1].val_len = 128; }},
    };
    const Oid longest = [] {
        Oid name(EMS_OID_MAX, 1);
        name[1] = 3;
        return name;
    }();
    Trap trap;
    set_community(trap, std::string(EMS_COMMUNITY_MAX, 'c'));
    set_enterprise(trap, longest);
    add(trap, string_binding(longest, Bytes(EMS_STRING_MAX, 0x61)));
    add(trap, objid_binding(longest, longest));
    int number = 0;
    for (const auto& [spoil, same_as] : rows) {
        SCOPED_TRACE(number++);
        Trap spoilt = trap;
        Trap plain = trap;
        spoil(spoilt);
        same_as(plain);
        const Built built = build(spoilt, EMS_TRAP_MAX);
        ASSERT_EQ(built.result, 0);
        EXPECT_EQ(to_hex(built.bytes), to_hex(build(plain, EMS_TRAP_MAX).bytes));
    }
}

TEST(BuildTrapLengths, LongCommunitiesGetAWrongOuterLength) {
    /* PDU: header 2, enterprise 11, agent 6, generic 3, specific 3, time 4, list 2 */
    constexpr int pdu = 31;
    for (const int length : {127, 128}) {
        Trap trap = plain_trap();
        set_community(trap, std::string(static_cast<size_t>(length), 'c'));
        const Built built = build(trap, EMS_TRAP_MAX);
        ASSERT_EQ(built.result, 0);
        const int item = length < 128 ? 2 + length : 3 + length;
        EXPECT_EQ(built.length, 3 + 3 + item + pdu);
        EXPECT_EQ(built.bytes[0], 0x30);
        EXPECT_EQ(built.bytes[1], 0x81);
        EXPECT_EQ(built.bytes[2], length + pdu + 5);
        captured_stderr([&] { EXPECT_EQ(decode(built.bytes).result, length < 128 ? 0 : -1); });
    }
}

// ------------------------------------------------------------------------------ null pointers

TEST(BuildTrapNullPointers, MakeItFail) {
    Trap trap = plain_trap();
    add(trap, binding({1, 3, 6}, ASN_NULL09));
    ExactBlock out(EMS_TRAP_MAX);
    event_infoEMS ei{};
    captured_stderr([&] {
        int length = out.length();
        EXPECT_EQ(snmpBuildTrapEMS(nullptr, &length, &trap.info, &ei, trap.vars.data()), -2);
        EXPECT_EQ(snmpBuildTrapEMS(out.data(), nullptr, &trap.info, &ei, trap.vars.data()), -2);
        length = out.length();
        EXPECT_EQ(snmpBuildTrapEMS(out.data(), &length, nullptr, &ei, trap.vars.data()), -2);
        length = out.length();
        EXPECT_EQ(snmpBuildTrapEMS(out.data(), &length, &trap.info, &ei, nullptr), -2);
    });
    int length = out.length();
    EXPECT_EQ(snmpBuildTrapEMS(out.data(), &length, &trap.info, nullptr, trap.vars.data()), 0);
    trap.info.vars = 0;
    length = out.length();
    EXPECT_EQ(snmpBuildTrapEMS(out.data(), &length, &trap.info, nullptr, nullptr), 0);
}

// ------------------------------------------------------------------------------- two encoders

/* Wherever the one-pass way succeeds, the stepwise way writes the same bytes. */
void expect_agreement(const Trap& trap, size_t capacity) {
    constexpr uint8_t untouched = 0xa5;
    Bytes once(capacity + 16, untouched);
    Bytes steps(capacity + 16, untouched);
    const SnmpVarBindEMS* vars = trap.vars.data();
    const int length = wq::build_trap_one_pass(std::span(once.data(), capacity), trap.info, vars);
    const int expected =
        wq::build_trap_stepwise(std::span(steps.data(), capacity), trap.info, vars);
    ASSERT_GE(length, -1);
    ASSERT_GE(expected, -1);
    ASSERT_EQ(Bytes(once.begin() + static_cast<ptrdiff_t>(capacity), once.end()),
              Bytes(16, untouched));
    if (length >= 0) {
        ASSERT_EQ(length, expected) << "capacity " << capacity;
        once.resize(static_cast<size_t>(length));
        steps.resize(static_cast<size_t>(length));
        ASSERT_EQ(to_hex(once), to_hex(steps));
    }
    Trap copy = trap;
    ExactBlock out(capacity);
    int public_length = out.length();
    const int result = snmpBuildTrapEMS(out.data(), &public_length, &copy.info, nullptr,
                                        vars == nullptr ? nullptr : copy.vars.data());
    ASSERT_EQ(result, expected >= 0 ? 0 : -2);
    if (expected >= 0) {
        ASSERT_EQ(public_length, expected);
        steps.resize(static_cast<size_t>(expected));
        ASSERT_EQ(to_hex(out.first(static_cast<size_t>(expected))), to_hex(steps));
    }
}

TEST(TwoEncoders, AgreeOnTheTable) {
    for (const Vector& row : read_vectors("trap.txt", 8)) {
        SCOPED_TRACE(row.where);
        const Trap trap = trap_from_columns(row, 0);
        captured_stderr([&] {
            for (size_t capacity = 0; capacity < ber(row[7]).size() + 20; ++capacity) {
                expect_agreement(trap, capacity);
            }
        });
        std::vector<uint8_t> out(EMS_TRAP_MAX);
        EXPECT_EQ(wq::build_trap_one_pass(out, trap.info, trap.vars.data()),
                  static_cast<int>(ber(row[7]).size()))
            << "ordinary traps take the one-pass way";
    }
}

TEST(TwoEncoders, AgreeAtTheScratchAreasLimits) {
    captured_stderr([] {
        for (const uint32_t last : {880U, 881U, 882U, 895U, 896U, 897U, 916U, 917U, 918U}) {
            for (const size_t capacity : {8191U, 8192U, 8193U, 8207U, 8208U, 16384U}) {
                expect_agreement(full_trap(last), capacity);
            }
        }
    });
}

TEST(TwoEncoders, AgreeOnTheLongestBindings) {
    const Oid longest = [] {
        Oid name(EMS_OID_MAX, 127);
        name[0] = 1;
        name[1] = 3;
        return name;
    }();
    const SnmpVarBindEMS rows[] = {
        string_binding(longest, Bytes(EMS_STRING_MAX, 0x61)),
        objid_binding(longest, longest),
        number_binding(longest, ASN_COUNTER09, 0xffffffff),
        binding(longest, ASN_NULL09),
    };
    for (const SnmpVarBindEMS& row : rows) {
        SCOPED_TRACE(row.type);
        Trap trap = plain_trap();
        set_community(trap, std::string(EMS_COMMUNITY_MAX - 1, 'c'));
        set_enterprise(trap, longest);
        add(trap, row);
        add(trap, row);
        const size_t needed = encode(trap).size();
        captured_stderr([&] {
            for (size_t capacity = needed - 300; capacity < needed + 100; ++capacity) {
                expect_agreement(trap, capacity);
            }
        });
    }
}

TEST(TwoEncoders, AgreeOnRandomTraps) {
    Random random;
    SCOPED_TRACE(random.name());
    captured_stderr([&] {
        for (int round = 0; round < 1500 && !testing::Test::HasFatalFailure(); ++round) {
            const Trap trap = random_trap(random);
            const size_t needed = encode(trap).size();
            for (size_t capacity = needed > 12 ? needed - 12 : 0; capacity < needed + 12;
                 ++capacity) {
                expect_agreement(trap, capacity);
            }
            expect_agreement(trap, random.between(0, 2 * EMS_TRAP_MAX));
        }
    });
}

/* Anything at all in the fields that say what is in the others. */
void spoil(Trap& trap, Random& random) {
    switch (random.between(0, 8)) {
        case 0:
            trap.info.clen = static_cast<int32_t>(random.bits());
            break;
        case 1:
            trap.info.elen = static_cast<int32_t>(random.between(0, 260)) - 130;
            break;
        case 2:
            trap.info.enterprise[random.between(0, 3)] = random.any_size();
            break;
        case 3:
            trap.info.vars = -trap.info.vars;
            break;
        default:
            if (!trap.vars.empty()) {
                const auto last = static_cast<uint32_t>(trap.vars.size() - 1);
                SnmpVarBindEMS& var = trap.vars[random.between(0, last)];
                switch (random.between(0, 4)) {
                    case 0:
                        var.type = static_cast<uint8_t>(random.between(0, 0x50));
                        break;
                    case 1:
                        var.val_len = random.any_size();
                        break;
                    case 2:
                        var.oid_length = random.any_size();
                        break;
                    case 3:
                        var.oid[random.between(0, 3)] = random.any_size();
                        break;
                    default:
                        var.val.objid[random.between(0, 3)] = random.any_size();
                        break;
                }
            }
            break;
    }
}

TEST(TwoEncoders, AgreeOnSpoiltTraps) {
    Random random;
    SCOPED_TRACE(random.name());
    captured_stderr([&] {
        for (int round = 0; round < 5000 && !testing::Test::HasFatalFailure(); ++round) {
            Trap trap = random_trap(random);
            spoil(trap, random);
            expect_agreement(trap, random.one_in(4) ? random.between(0, 400) : 2 * EMS_TRAP_MAX);
        }
    });
}

TEST(TwoEncoders, LeaveDiagnosticsToTheStepwiseWay) {
    Trap trap = plain_trap();
    add(trap, number_binding({1, 3, 6}, ASN_OPAQUE09, 5));
    Bytes out(EMS_TRAP_MAX);
    const Diagnostics said = diagnostics(
        ~0, [&] { EXPECT_EQ(wq::build_trap_one_pass(out, trap.info, trap.vars.data()), -1); });
    EXPECT_EQ(said.err + said.out + said.trace, "");
}

}  // namespace
