#include <gtest/gtest.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <climits>
#include <string>
#include <vector>

#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/random.h"
#include "support/vectors.h"

namespace {

using namespace wq::test;

constexpr int binding_bit = 4;

/* A binding to write, its value in a block of exactly its size. */
struct Binding {
    explicit Binding(const Vector& row)
        : name(oid(row[0])), type(from_hex(row[1]).at(0)), bytes(ber(row[3])) {
        if (type == ASN_OCTETSTR09) {
            value = ber(row[2]);
            length = static_cast<int>(value.size());
        } else if (type == ASN_OBJID09) {
            objid = oid(row[2]);
            length = static_cast<int>(objid.size());
        } else if (type != ASN_NULL09) {
            integer = static_cast<int32_t>(number(row[2]));
            length = 4;
        }
    }

    unsigned char* build(uint8_t* data, int* left) const {
        const ExactArray<uint32_t> exact_name(name);
        const ExactArray<uint32_t> exact_objid(objid);
        const ExactBlock exact_value(value);
        const int name_length = exact_name.length();
        const void* at = type == ASN_OCTETSTR09 ? static_cast<const void*>(exact_value.data())
                         : type == ASN_OBJID09  ? static_cast<const void*>(exact_objid.data())
                         : type == ASN_NULL09   ? nullptr
                                                : static_cast<const void*>(&integer);
        return build_var_op(data, exact_name.data(), &name_length, type, length, at, left);
    }

    Oid name;
    uint8_t type;
    Bytes value;
    Oid objid;
    int32_t integer = 0;
    int length = 0;
    Bytes bytes;
};

struct Parsed {
    const unsigned char* end = nullptr;
    Oid name;
    uint8_t type = 0x5a;
    int value_length = -1;
    const unsigned char* value = nullptr;
    int left = 0;
};

Parsed parse(const ExactBlock& bytes, int name_capacity = 0) {
    Parsed result;
    ExactArray<uint32_t> name(EMS_OID_MAX);
    int count = name_capacity;
    unsigned char* value = nullptr;
    result.left = bytes.length();
    result.end = parse_var_op(bytes.data(), name.data(), &count, &result.type, &result.value_length,
                              &value, &result.left);
    result.value = value;
    if (result.end != nullptr) {
        result.name = name.first(static_cast<size_t>(count));
    }
    return result;
}

TEST(BuildVarOp, WritesEachTypeWithinItsRoom) {
    for (const Vector& row : read_vectors("varbind.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Binding binding(row);
        const auto size = static_cast<int>(binding.bytes.size());
        for (int room = 0; room <= size + 2; ++room) {
            SCOPED_TRACE(room);
            ExactBlock out(static_cast<size_t>(room));
            int left = room;
            const unsigned char* end = binding.build(out.data(), &left);
            if (room < size) {
                ASSERT_EQ(end, nullptr);
            } else {
                ASSERT_EQ(end, out.data() + size);
                ASSERT_EQ(left, room - size);
                ASSERT_EQ(to_hex(out.first(binding.bytes.size())), to_hex(binding.bytes));
            }
            Bytes guarded(static_cast<size_t>(room) + 16, 0xa5);
            left = room;
            binding.build(guarded.data(), &left);
            for (size_t i = static_cast<size_t>(room); i < guarded.size(); ++i) {
                ASSERT_EQ(guarded[i], 0xa5);
            }
        }
        for (const int room : {-1, INT_MIN}) {
            ExactBlock none(0);
            int left = room;
            EXPECT_EQ(binding.build(none.data(), &left), nullptr);
        }
    }
}

TEST(ParseVarOp, FindsWhatWasBuilt) {
    for (const Vector& row : read_vectors("varbind.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Binding binding(row);
        Bytes bytes = binding.bytes;
        append(bytes, from_hex("30 00"));
        const ExactBlock list(bytes);
        const Parsed parsed = parse(list);
        ASSERT_EQ(parsed.end, list.data() + binding.bytes.size());
        EXPECT_EQ(parsed.left, 2);
        EXPECT_EQ(parsed.name, binding.name) << "whatever capacity the caller gave";
        EXPECT_EQ(parsed.type, binding.type == ASN_UINT09 ? ASN_INTEGER09 : binding.type);
        const ptrdiff_t value_size = parsed.end - parsed.value;
        ASSERT_GE(value_size, 2 + parsed.value_length);
        EXPECT_EQ(*parsed.value, parsed.type);
        const Bytes contents(parsed.end - parsed.value_length, parsed.end);
        Bytes value{parsed.type};
        append(append(value, ber_length(contents.size())), contents);
        EXPECT_EQ(Bytes(parsed.value, parsed.end), value);
        for (size_t size = 0; size < binding.bytes.size(); ++size) {
            const ExactBlock prefix(std::span<const uint8_t>(bytes).first(size));
            ASSERT_EQ(parse(prefix).end, nullptr) << size;
        }
    }
}

TEST(ParseVarOp, DoesNotCompareTheLengthWithTheParts) {
    const ExactBlock list(ber("30(06(2b 06) 02(05) 04('junk')) 01"));
    const Parsed parsed = parse(list);
    ASSERT_EQ(parsed.end, list.data() + 9) << "the position behind the value";
    EXPECT_EQ(parsed.left, 7) << "from there";
    EXPECT_EQ(parsed.type, 0x02);
    EXPECT_EQ(parsed.value_length, 1);
    EXPECT_EQ(parsed.value, list.data() + 6);
}

TEST(ParseVarOp, ReadsLongerFormsOfLengths) {
    const ExactBlock list(ber("30 84 00 00 00 0b 06 81 01 2b 04 83 00 00 02 'hi'"));
    const Parsed parsed = parse(list);
    ASSERT_EQ(parsed.end, list.data() + list.size());
    EXPECT_EQ(parsed.left, 0);
    EXPECT_EQ(parsed.name, (Oid{1, 3}));
    EXPECT_EQ(parsed.type, 0x04);
    EXPECT_EQ(parsed.value_length, 2);
    EXPECT_EQ(parsed.value, list.data() + 10);
}

TEST(ParseVarOp, LeavesTheValueUnread) {
    for (const char* value : {"00()", "03(00 01)", "30(ff)", "44(9f 78)", "45(00)", "ff", "9e()"}) {
        const ExactBlock list(ber("30(06(2b 06) " + std::string(value) + ")"));
        const Parsed parsed = parse(list);
        if (std::string(value) == "ff") {
            EXPECT_EQ(parsed.end, nullptr);
        } else {
            EXPECT_EQ(parsed.end, list.data() + list.size()) << value;
            EXPECT_EQ(parsed.type, from_hex(std::string(value).substr(0, 2)).at(0));
        }
    }
}

TEST(ParseVarOp, TakesNamesOfAHundredAndTwentyEightSubIdentifiers) {
    const ExactBlock list(ber("30(06(2b 01*126) 05())"));
    for (const int capacity : {0, 1, -1, 128, 1000}) {
        const Parsed parsed = parse(list, capacity);
        ASSERT_NE(parsed.end, nullptr);
        EXPECT_EQ(parsed.name.size(), 128U);
    }
    EXPECT_EQ(parse(ExactBlock(ber("30(06(2b 01*127) 05())"))).end, nullptr);
}

TEST(ParseVarOp, SaysWhatItRefuses) {
    for (const Vector& row : read_vectors("varbind_bad.txt", 2)) {
        SCOPED_TRACE(row.where);
        const ExactBlock list(ber(row[0]));
        const auto refuse = [&] { EXPECT_EQ(parse(list).end, nullptr); };
        EXPECT_EQ(diagnostics(binding_bit, refuse).err, as_lines(row[1]));
        EXPECT_EQ(diagnostics(0, refuse).err, "") << "silent without its bit";
        const Diagnostics others = diagnostics(~binding_bit, refuse);
        EXPECT_EQ(others.err.find("snmp: "), std::string::npos);
        EXPECT_EQ(others.trace.find("Cannot"), std::string::npos)
            << "this layer writes nothing to the trace log";
        EXPECT_EQ(others.out, "");
    }
}

TEST(ParseVarOp, BytesLeftBelowZeroCountAsNone) {
    const Bytes list = ber("30(06(2b) 05())");
    uint32_t name[EMS_OID_MAX];
    for (const int bytes : {-1, INT_MIN}) {
        int left = bytes;
        int count = 0;
        int length = 0;
        unsigned char type = 0;
        unsigned char* value = nullptr;
        EXPECT_EQ(parse_var_op(list.data(), name, &count, &type, &length, &value, &left), nullptr);
    }
}

/* Builds a binding that must be refused and tells what is said about it. */
Diagnostics refusal(int mask, const Oid& name, uint8_t type, int length, const void* value,
                    int room = 64) {
    ExactBlock out(static_cast<size_t>(room));
    const ExactArray<uint32_t> exact_name(name);
    const int count = exact_name.length();
    return diagnostics(mask, [&] {
        int left = room;
        EXPECT_EQ(build_var_op(out.data(), exact_name.data(), &count, type, length, value, &left),
                  nullptr);
    });
}

TEST(BuildVarOp, SaysWhatItRefuses) {
    const Oid good{1, 3, 6};
    const int32_t number = 5;
    const uint32_t bad_objid[] = {3, 1};
    const uint8_t text[] = {'a', 'b', 'c', 'd'};
    const struct {
        const char* what;
        Oid name;
        uint8_t type;
        int length;
        const void* value;
        const char* err;
    } rows[] = {
        {"name of one", {1}, 0x05, 0, nullptr, "snmp: cannot build objid\n"},
        {"name of none", {}, 0x05, 0, nullptr, "snmp: cannot build objid\n"},
        {"name from 3", {3, 1}, 0x05, 0, nullptr, "snmp: cannot build objid\n"},
        {"name's sum", {2, 48}, 0x05, 0, nullptr, "snmp: cannot build objid\n"},
        {"long name", Oid(EMS_OID_MAX + 2, 1), 0x05, 0, nullptr, "snmp: cannot build objid\n"},
        {"Opaque", good, 0x44, 4, text, "snmp: wrong type\n"},
        {"BIT STRING", good, 0x03, 4, text, "snmp: wrong type\n"},
        {"SEQUENCE", good, 0x30, 4, text, "snmp: wrong type\n"},
        {"type 0", good, 0x00, 4, text, "snmp: wrong type\n"},
        {"type 0x45", good, 0x45, 4, text, "snmp: wrong type\n"},
        {"type 0xff", good, 0xff, 4, text, "snmp: wrong type\n"},
        {"integer of 2", good, 0x02, 2, &number, "snmp: no cp\n"},
        {"Counter of 8", good, 0x41, 8, &number, "snmp: no cp\n"},
        {"IpAddress of 0", good, 0x40, 0, &number, "snmp: no cp\n"},
        {"unsigned of -4", good, 0x07, -4, &number, "snmp: no cp\n"},
        {"text below zero", good, 0x04, -1, text, "snmp: no cp\n"},
        {"objid of one", good, 0x06, 1, bad_objid, "snmp: no cp\n"},
        {"objid from 3", good, 0x06, 2, bad_objid, "snmp: no cp\n"},
        {"text without room", good, 0x04, 400, nullptr, "snmp: no cp\n"},
    };
    const Bytes long_text(400, 0x61);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const void* value = row.length == 400 ? long_text.data() : row.value;
        const Diagnostics said = refusal(binding_bit, row.name, row.type, row.length, value);
        EXPECT_EQ(said.err, row.err);
        EXPECT_EQ(said.trace + said.out, "");
        const Diagnostics silent = refusal(0, row.name, row.type, row.length, value);
        EXPECT_EQ(silent.err + silent.trace + silent.out, "");
    }
}

TEST(BuildVarOp, SaysWhenTheLongerHeaderHasNoRoom) {
    /* 121 bytes: 128 octets of contents, and a header of three. */
    const Bytes text(121, 0x61);
    EXPECT_EQ(refusal(binding_bit, {1, 3, 6, 1}, 0x04, 121, text.data(), 130).err,
              "snmp: cannot build header 2\n");
    const Bytes longer(248, 0x61);
    for (const int room : {258, 259}) {
        EXPECT_EQ(refusal(binding_bit, {1, 3, 6, 1}, 0x04, 248, longer.data(), room).err,
                  "snmp: cannot build header 2\n");
    }
}

TEST(BuildVarOp, EachShortfallIsReportedOnce) {
    const Bytes text(121, 0x61);
    for (int room = 0; room < 131; ++room) {
        const std::string err =
            refusal(binding_bit, {1, 3, 6, 1}, 0x04, 121, text.data(), room).err;
        EXPECT_TRUE(err == "snmp: cannot build objid\n" || err == "snmp: no cp\n" ||
                    err == "snmp: cannot build header 2\n")
            << room << ": " << err;
    }
}

TEST(SnmpNullPointers, MakeTheCallFail) {
    const Bytes list = ber("30(06(2b) 02(05))");
    uint32_t name[EMS_OID_MAX] = {1, 3};
    int count = 2;
    unsigned char type = 0;
    int length = 0;
    unsigned char* value = nullptr;
    int left = static_cast<int>(list.size());
    EXPECT_EQ(parse_var_op(nullptr, name, &count, &type, &length, &value, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), nullptr, &count, &type, &length, &value, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), name, nullptr, &type, &length, &value, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), name, &count, nullptr, &length, &value, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), name, &count, &type, nullptr, &value, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), name, &count, &type, &length, nullptr, &left), nullptr);
    EXPECT_EQ(parse_var_op(list.data(), name, &count, &type, &length, &value, nullptr), nullptr);
    Bytes out(64);
    const int32_t number = 5;
    count = 2;
    left = 64;
    EXPECT_EQ(build_var_op(nullptr, name, &count, 0x02, 4, &number, &left), nullptr);
    EXPECT_EQ(build_var_op(out.data(), nullptr, &count, 0x02, 4, &number, &left), nullptr);
    EXPECT_EQ(build_var_op(out.data(), name, nullptr, 0x02, 4, &number, &left), nullptr);
    EXPECT_EQ(build_var_op(out.data(), name, &count, 0x02, 4, nullptr, &left), nullptr);
    left = 64;
    EXPECT_EQ(build_var_op(out.data(), name, &count, 0x04, 4, nullptr, &left), nullptr);
    left = 64;
    EXPECT_EQ(build_var_op(out.data(), name, &count, 0x06, 2, nullptr, &left), nullptr);
    EXPECT_EQ(build_var_op(out.data(), name, &count, 0x02, 4, &number, nullptr), nullptr);
    left = 64;
    EXPECT_NE(build_var_op(out.data(), name, &count, 0x05, 0, nullptr, &left), nullptr);
}

TEST(ParseVarOp, RandomBytesNeverHurt) {
    Random random;
    SCOPED_TRACE(random.name());
    const Bytes model = ber("30(06(2b 06 01 04 01 82 37) 04('some text'))");
    for (int round = 0; round < 50000; ++round) {
        Bytes bytes = model;
        for (uint32_t i = random.between(1, 4); i > 0; --i) {
            bytes[random.between(0, static_cast<uint32_t>(bytes.size() - 1))] = random.byte();
        }
        const ExactBlock list(bytes);
        const Parsed parsed = parse(list);
        if (parsed.end != nullptr) {
            ASSERT_LE(parsed.end, list.data() + list.size());
            ASSERT_EQ(parsed.left, list.data() + list.size() - parsed.end);
            ASSERT_LE(parsed.value + parsed.value_length, parsed.end);
            ASSERT_LE(parsed.name.size(), static_cast<size_t>(EMS_OID_MAX));
        }
    }
}

}  // namespace
