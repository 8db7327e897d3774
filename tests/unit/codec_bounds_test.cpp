/*
 * No decoder reads a byte outside the item that it takes, however many bytes its caller says are
 * left: callers pass a fixed number for a value that they have found already.
 */
#include <gtest/gtest.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "support/exact_block.h"
#include "support/guarded_block.h"
#include "support/hex.h"
#include "support/vectors.h"

namespace {

using namespace wq::test;

/* What one decoder makes of an item: where it ends, what is left, what it holds. */
struct Read {
    std::ptrdiff_t end = -1;
    int left = 0;
    std::string value;

    bool operator==(const Read&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Read& read) {
    return out << "end " << read.end << ", left " << read.left << ", value " << read.value;
}

Read taken(const uint8_t* data, const unsigned char* end, int left, const std::string& value) {
    return end == nullptr ? Read() : Read{end - data, left, value};
}

template <class Value>
std::string listed(const Value* values, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text.append(std::to_string(values[i])).append(1, '.');
    }
    return text;
}

using Decode = Read (*)(const uint8_t* data, int left);

Read read_int(const uint8_t* data, int left) {
    int32_t value = 0;
    const unsigned char* end = asnParseInt09(data, &left, &value, 4);
    return taken(data, end, left, std::to_string(value));
}

Read read_int_or_address(const uint8_t* data, int left) {
    int32_t value = 0;
    const unsigned char* end = asnParseIntOrIpaddr09(data, &left, &value, 4);
    return taken(data, end, left, std::to_string(value));
}

Read read_string(const uint8_t* data, int left) {
    std::array<unsigned char, EMS_STRING_MAX> room{};
    int length = EMS_STRING_MAX;
    const unsigned char* end = asnParseString09(data, &left, room.data(), &length);
    return taken(data, end, left, listed(room.data(), length));
}

Read read_objid(const uint8_t* data, int left) {
    std::array<uint32_t, EMS_OID_MAX> room{};
    int length = EMS_OID_MAX;
    const unsigned char* end = asnParseObjid09(data, &left, room.data(), &length);
    return taken(data, end, left, listed(room.data(), length));
}

Read read_null(const uint8_t* data, int left) {
    const unsigned char* end = asnParseNull09(data, &left);
    return taken(data, end, left, "");
}

Read read_header(const uint8_t* data, int left) {
    unsigned char type = 0;
    const unsigned char* end = asnParseHeader09(data, &left, &type);
    return taken(data, end, left, std::to_string(type));
}

Read read_wrapper(const uint8_t* data, int left) {
    std::array<unsigned char, EMS_COMMUNITY_MAX> community{};
    int length = EMS_COMMUNITY_MAX - 1;
    int32_t version = 0;
    const unsigned char* end = auth_parse(data, &left, community.data(), &length, &version);
    return taken(data, end, left, std::to_string(version) + ":" + listed(community.data(), length));
}

Read read_binding(const uint8_t* data, int left) {
    std::array<uint32_t, EMS_OID_MAX> name{};
    int length = 0;
    unsigned char type = 0;
    int value_length = 0;
    unsigned char* value = nullptr;
    const unsigned char* end =
        parse_var_op(data, name.data(), &length, &type, &value_length, &value, &left);
    return taken(data, end, left, listed(name.data(), length) + std::to_string(value_length));
}

/* The last binding alone: what stands at the end of the message. */
std::string told(const SnmpVarBindEMS& binding) {
    switch (binding.type) {
        case ASN_OCTETSTR09:
            return listed(binding.val.string, static_cast<int>(binding.val_len));
        case ASN_OBJID09:
            return listed(binding.val.objid, static_cast<int>(binding.val_len));
        case ASN_NULL09:
            return "";
        default:
            return std::to_string(binding.val.integer);
    }
}

Read read_trap(const uint8_t* data, int left) {
    snmp_trap_infoEMS trap{};
    SnmpVarBindEMS binding{};
    trap.clen = EMS_COMMUNITY_MAX - 1;
    trap.elen = EMS_OID_MAX;
    trap.maxvars = 1;
    return snmp_parse_trap(data, left, &trap, nullptr, &binding) != 0
               ? Read()
               : Read{trap.vars, 0, std::to_string(trap.time) + ":" + told(binding)};
}

Read read_response(const uint8_t* data, int left) {
    snmp_info response{};
    SnmpVarBindEMS binding{};
    response.clen = EMS_COMMUNITY_MAX - 1;
    response.maxvars = 1;
    return snmp_parse(data, left, &response, &binding) != 0 ? Read()
                                                            : Read{response.vars, 0, told(binding)};
}

/* What is left is counted from what the caller said. */
Read counted_from(Read read, int more) {
    read.left += read.end >= 0 ? more : 0;
    return read;
}

/* The item between forbidden pages, and in a block of its size, by whatever number of bytes left.
 * `counts_left`: whether the decoder takes the item off what is left. */
void expect_confined(Decode decode, const Bytes& item, const Read& expected, bool counts_left) {
    const int size = static_cast<int>(item.size());
    for (const int left : {size, size + 1, 1028, EMS_TRAP_MAX}) {
        SCOPED_TRACE(to_hex(item) + ", left " + std::to_string(left));
        const Read wanted = counts_left ? counted_from(expected, left - size) : expected;
        for (const Guard guard : {Guard::before, Guard::after}) {
            const GuardedBlock block(item, guard);
            EXPECT_EQ(decode(block.data(), left), wanted);
        }
        const ExactBlock block(item);
        EXPECT_EQ(decode(block.data(), left), wanted);
    }
}

/* Every proper prefix is refused when it is all that is left, and read nowhere behind its end. */
void expect_prefixes_confined(Decode decode, const Bytes& item) {
    for (size_t size = 0; size < item.size(); ++size) {
        const GuardedBlock block(std::span<const uint8_t>(item).first(size), Guard::after);
        EXPECT_EQ(decode(block.data(), static_cast<int>(size)), Read())
            << size << " bytes of " << to_hex(item);
    }
}

void expect_bounds(Decode decode, const std::string& item, const std::string& value) {
    const Bytes bytes = ber(item);
    const Read expected{static_cast<std::ptrdiff_t>(bytes.size()), 0, value};
    expect_confined(decode, bytes, expected, true);
    expect_prefixes_confined(decode, bytes);
}

TEST(CodecBounds, IntegersOfEveryLength) {
    for (const Decode decode : {read_int, read_int_or_address}) {
        expect_bounds(decode, "02()", "0");
        expect_bounds(decode, "02(7f)", "127");
        expect_bounds(decode, "02(80)", "-128");
        expect_bounds(decode, "41(80)", "128");
        expect_bounds(decode, "02(01 00)", "256");
        expect_bounds(decode, "02(ff 7f)", "-129");
        expect_bounds(decode, "43(ff 7f)", "65407");
        expect_bounds(decode, "02(01 00 00)", "65536");
        expect_bounds(decode, "42(ff 00 00)", "16711680");
        expect_bounds(decode, "02(7f ff ff ff)", "2147483647");
        expect_bounds(decode, "41(00 80 00 00 00)", "-2147483648");
        expect_bounds(decode, "02 81 01 05", "5");
        expect_bounds(decode, "02 84 00 00 00 01 05", "5");
    }
}

/* The octets of 10.1 lie in memory as 00 00 0a 01, those of 10 as 00 00 00 0a. */
TEST(CodecBounds, AddressesOfEveryLength) {
    for (const Decode decode : {read_int, read_int_or_address}) {
        expect_bounds(decode, "40()", "0");
        expect_bounds(decode, "40(0a)", std::to_string(0x0a000000));
        expect_bounds(decode, "40(0a 01)", std::to_string(0x010a0000));
        expect_bounds(decode, "40(0a 01 02)", std::to_string(0x02010a00));
        expect_bounds(decode, "40(0a 01 02 03)", std::to_string(0x0302010a));
    }
    expect_bounds(read_int_or_address, "04()", "0");
    expect_bounds(read_int_or_address, "04(0a)", std::to_string(0x0000000a));
    expect_bounds(read_int_or_address, "04(0a 01)", std::to_string(0x0000010a));
    expect_bounds(read_int_or_address, "04(0a 01 02)", std::to_string(0x0002010a));
    expect_bounds(read_int_or_address, "04(0a 01 02 03)", std::to_string(0x0302010a));
}

TEST(CodecBounds, StringsOfEveryLength) {
    for (size_t length = 0; length <= 140; ++length) {
        const std::string count = std::to_string(length);
        std::string value;
        for (size_t i = 0; i < length; ++i) {
            value.append("97.");
        }
        expect_bounds(read_string, "04(61*" + count + ")", value);
        if (length < 20) {
            expect_bounds(read_string, "44(61*" + count + ")", value);
        }
    }
}

TEST(CodecBounds, IdentifiersOfEveryLength) {
    for (size_t length = 1; length <= 40; ++length) {
        std::string value = "1.3.";
        for (size_t i = 1; i < length; ++i) {
            value.append("5.");
        }
        expect_bounds(read_objid, "06(2b 05*" + std::to_string(length - 1) + ")", value);
        /* One sub-identifier of two octets at the end. */
        expect_bounds(read_objid, "06(2b 05*" + std::to_string(length - 1) + " 81 00)",
                      value + "128.");
    }
    expect_bounds(read_objid, "06()", "0.0.");
}

/* A sub-identifier that goes on is not followed beyond the item. */
TEST(CodecBounds, IdentifiersThatEndEarly) {
    for (size_t length = 1; length <= 20; ++length) {
        expect_confined(read_objid, ber("06(05*" + std::to_string(length - 1) + " 81)"), Read(),
                        true);
    }
}

TEST(CodecBounds, NullsHeadersAndLengths) {
    expect_bounds(read_null, "05 00", "");
    const Bytes header = ber("30(05 00)");
    expect_confined(read_header, header, Read{2, 2, "48"}, false);
    expect_prefixes_confined(read_header, header);
    for (const char* field : {"00", "7f", "81 80", "82 01 00", "84 00 00 00 01", "80", "85"}) {
        const Bytes bytes = from_hex(field);
        const GuardedBlock block(bytes, Guard::after);
        uint32_t length = 0;
        const unsigned char* end = asnParseLength09(block.data(), &length);
        EXPECT_EQ(end, bytes[0] == 0x80 || bytes[0] == 0x85 ? nullptr : block.data() + bytes.size())
            << field;
    }
}

TEST(CodecBounds, Wrappers) {
    const Bytes message = ber("30(02(00) 04('public'))");
    expect_confined(read_wrapper, message,
                    {static_cast<std::ptrdiff_t>(message.size()), 0, "0:112.117.98.108.105.99."},
                    false);
    expect_prefixes_confined(read_wrapper, message);
    expect_confined(read_wrapper, ber("30(02(01) 04())"), {7, 0, "1:"}, false);
}

TEST(CodecBounds, Bindings) {
    expect_bounds(read_binding, "30(06(2b 06) 05 00)", "1.3.6.0");
    expect_bounds(read_binding, "30(06(2b 06) 02(05))", "1.3.6.1");
    expect_bounds(read_binding, "30(06(2b 06) 04('abc'))", "1.3.6.3");
}

/* The last item of a trap and of a response, and the last field where there are no bindings. */
TEST(CodecBounds, WholeMessages) {
    const struct {
        const char* item;
        std::string value;
    } rows[] = {
        {"02()", "0"},
        {"02(05)", "5"},
        {"41(ff)", "255"},
        {"02(01 00)", "256"},
        {"43(ff ff)", "65535"},
        {"42(01 00 00)", "65536"},
        {"02(01 00 00 00)", "16777216"},
        {"40(01)", std::to_string(0x01000000)},
        {"04()", ""},
        {"04('a')", "97."},
        {"06(2b)", "1.3."},
        {"06(2b 01)", "1.3.1."},
        {"05 00", ""},
    };
    for (const auto& row : rows) {
        const std::string list = std::string("30(30(06(2b 06) ") + row.item + "))";
        const Bytes trap =
            ber("30(02(00) 04('public') a4(06(2b 06 01) 40(0a 01 02 03) 02(06) "
                "02(01) 43(05) " +
                list + "))");
        expect_confined(read_trap, trap, {1, 0, "5:" + row.value}, false);
        expect_prefixes_confined(read_trap, trap);
        const Bytes response = ber("30(02(00) 04('public') a2(02(01) 02(00) 02(00) " + list + "))");
        expect_confined(read_response, response, {1, 0, row.value}, false);
        expect_prefixes_confined(read_response, response);
    }
    const Bytes bare =
        ber("30(02(00) 04('public') a4(06(2b 06 01) 40(0a 01 02 03) 02(06) "
            "02(01) 43(05) 30()))");
    expect_confined(read_trap, bare, {0, 0, "5:0"}, false);
}

}  // namespace
