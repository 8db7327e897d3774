#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/random.h"
#include "support/vectors.h"

namespace {

using namespace wq::test;

constexpr int ber_bit = 1;

/* The number that the four octets of an address, in wire order in memory, stand for. */
uint32_t address_number(int32_t octets) {
    return ntohl(static_cast<uint32_t>(octets));
}

/* What a decoder of integers stored, as the number on the wire. */
uint32_t wire_number(uint8_t tag, int32_t value) {
    return tag == ASN_IPADDR09 ? address_number(value) : static_cast<uint32_t>(value);
}

/*
 * One decoder behind one shape. `size` is the integer's size or the room for the contents, `left`
 * the bytes left. The bytes lie in a block of exactly their size, and so does the room.
 */
using Decode = unsigned char* (*)(const uint8_t* data, int* left, int size);

const std::map<std::string, Decode> decoders = {
    {"int",
     [](const uint8_t* data, int* left, int size) {
         int32_t value = 0;
         return asnParseInt09(data, left, &value, size);
     }},
    {"intorip",
     [](const uint8_t* data, int* left, int size) {
         int32_t value = 0;
         return asnParseIntOrIpaddr09(data, left, &value, size);
     }},
    {"string",
     [](const uint8_t* data, int* left, int size) {
         ExactBlock room(static_cast<size_t>(size));
         return asnParseString09(data, left, room.data(), &size);
     }},
    {"header",
     [](const uint8_t* data, int* left, int) {
         unsigned char type = 0;
         return asnParseHeader09(data, left, &type);
     }},
    {"length",
     [](const uint8_t* data, int*, int) {
         uint32_t length = 0;
         return asnParseLength09(data, &length);
     }},
    {"objid",
     [](const uint8_t* data, int* left, int size) {
         ExactArray<uint32_t> room(static_cast<size_t>(size));
         return asnParseObjid09(data, left, room.data(), &size);
     }},
    {"null", [](const uint8_t* data, int* left, int) { return asnParseNull09(data, left); }},
};

/* The room that is enough for whatever an item of these bytes holds. */
int room_for(const std::string& decoder, const Bytes& item) {
    return decoder == "int" || decoder == "intorip" ? 4 : static_cast<int>(item.size()) + 2;
}

/* Each proper prefix is refused, and nothing is read behind it. */
void expect_prefixes_refused(const std::string& decoder, const Bytes& item) {
    for (size_t size = 0; size < item.size(); ++size) {
        const ExactBlock prefix(std::span<const uint8_t>(item).first(size));
        int left = prefix.length();
        EXPECT_EQ(decoders.at(decoder)(prefix.data(), &left, room_for(decoder, item)), nullptr)
            << size << " bytes of " << to_hex(item);
    }
}

using Encode = std::function<unsigned char*(uint8_t* data, int* left)>;

/* Room for one byte less than the item, down to none and less, is refused and nothing is spilt. */
void expect_room_respected(const Encode& encode, const Bytes& item) {
    constexpr uint8_t untouched = 0xa5;
    const int size = static_cast<int>(item.size());
    for (int room = 0; room <= size + 3; ++room) {
        ExactBlock exact(static_cast<size_t>(room));
        int left = room;
        unsigned char* end = encode(exact.data(), &left);
        if (room < size) {
            EXPECT_EQ(end, nullptr) << "room " << room << " for " << to_hex(item);
        } else {
            ASSERT_EQ(end, exact.data() + size) << "room " << room << " for " << to_hex(item);
            EXPECT_EQ(left, room - size);
            EXPECT_EQ(to_hex(exact.first(item.size())), to_hex(item));
        }
        Bytes guarded(static_cast<size_t>(room) + 16, untouched);
        left = room;
        encode(guarded.data(), &left);
        const auto behind = static_cast<size_t>(std::min(room, size));
        EXPECT_EQ(Bytes(guarded.begin() + static_cast<ptrdiff_t>(behind), guarded.end()),
                  Bytes(guarded.size() - behind, untouched))
            << "room " << room << " for " << to_hex(item);
    }
    for (const int room : {-1, -128, INT_MIN}) {
        ExactBlock none(0);
        int left = room;
        EXPECT_EQ(encode(none.data(), &left), nullptr) << "room " << room;
    }
}

/* The spilt bytes of a failed call may be anything within the room; behind it they may not change.
 */
unsigned char* encode_int(const std::string& encoder, uint8_t* data, int* left, int32_t value,
                          int intsize = 4) {
    if (encoder == "int") {
        return asnBuildInt09(data, left, &value, intsize);
    }
    if (encoder == "ipaddress") {
        return asnBuildIpaddressEMS(data, left, &value, intsize);
    }
    if (encoder == "timeticks") {
        return asnBuildTimeticksEMS(data, left, &value, intsize);
    }
    const uint8_t type = from_hex(encoder.substr(std::strlen("class"))).at(0);
    return asnBuildInt09class(data, left, &value, intsize, type);
}

// ------------------------------------------------------------------------------- length fields

TEST(Length, IsWrittenAndReadBack) {
    for (const Vector& row : read_vectors("ber_length.txt", 3)) {
        SCOPED_TRACE(row.where);
        const Bytes field = ber(row[1]);
        const int length = static_cast<int>(number(row[0]));
        expect_room_respected(
            [length](uint8_t* data, int* left) { return asnBuildLength09(data, left, length); },
            field);
        Bytes readable = field;
        readable.resize(field.size() + 5, 0xee);
        uint32_t read = 1;
        EXPECT_EQ(asnParseLength09(readable.data(), &read), readable.data() + field.size());
        EXPECT_EQ(read, number(row[2]));
    }
}

TEST(Length, IsReadInLongerForms) {
    for (const Vector& row : read_vectors("ber_length_decode.txt", 2)) {
        SCOPED_TRACE(row.where);
        const Bytes field = ber(row[0]);
        const ExactBlock block(field);
        uint32_t read = 1;
        EXPECT_EQ(asnParseLength09(block.data(), &read), block.data() + field.size());
        EXPECT_EQ(read, number(row[1]));
    }
}

TEST(Length, ThatDoesNotFitLeavesTheRoomAsItWas) {
    for (const int length : {0, 127, 128, 255, 256, 70000}) {
        const int needed = length < 128 ? 1 : length < 256 ? 2 : 3;
        for (int room = 0; room < needed; ++room) {
            ExactBlock out(static_cast<size_t>(room));
            int left = room;
            const Diagnostics said = diagnostics(
                ber_bit, [&] { EXPECT_EQ(asnBuildLength09(out.data(), &left, length), nullptr); });
            EXPECT_EQ(left, room);
            EXPECT_EQ(said.err, "asn1: Encode:  Not enough room to build_length\n");
            EXPECT_EQ(said.trace, "") << "the encoder never reports to the trace log";
            EXPECT_EQ(said.out, "");
        }
    }
}

TEST(Length, BelowZeroIsRefusedInSilence) {
    for (const int length : {-1, -128, INT_MIN}) {
        Bytes out(8);
        int left = static_cast<int>(out.size());
        const Diagnostics said = diagnostics(
            ber_bit, [&] { EXPECT_EQ(asnBuildLength09(out.data(), &left, length), nullptr); });
        EXPECT_EQ(said.err + said.trace + said.out, "");
    }
}

// ------------------------------------------------------------------------------------- headers

TEST(Header, IsWrittenAndReadBack) {
    for (const uint8_t type : from_hex("30 a4 02 04 40 00 e1")) {
        for (const uint16_t length : std::array<uint16_t, 7>{0, 1, 127, 128, 255, 256, 8192}) {
            Bytes header{type};
            append(header, ber_length(length));
            expect_room_respected(
                [=](uint8_t* data, int* left) {
                    return asnBuildHeader09(data, left, type, length);
                },
                header);
            Bytes item = header;
            append(item, Bytes(length));
            item.push_back(0x05);
            const ExactBlock block(item);
            int left = block.length();
            unsigned char read = 0x55;
            EXPECT_EQ(asnParseHeader09(block.data(), &left, &read), block.data() + header.size());
            EXPECT_EQ(read, type);
            EXPECT_EQ(left, length) << "the bytes left become the contents, not the remainder";
            item.pop_back();
            if (length < 300) {
                expect_prefixes_refused("header", item);
            }
        }
    }
}

TEST(Header, KeepsTheLowSixteenBitsOfALength) {
    Bytes out(8);
    int left = static_cast<int>(out.size());
    EXPECT_EQ(asnBuildHeader09(out.data(), &left, 0x30, 70000), out.data() + 4);
    EXPECT_EQ(left, 4);
    EXPECT_EQ(to_hex(std::span<const uint8_t>(out).first(4)), "30 82 11 70");
}

TEST(Header, SaysWhenItsLengthHasNoRoom) {
    for (int room = 0; room < 4; ++room) {
        ExactBlock out(static_cast<size_t>(room));
        int left = room;
        const Diagnostics said = diagnostics(
            ber_bit, [&] { EXPECT_EQ(asnBuildHeader09(out.data(), &left, 0x30, 1000), nullptr); });
        EXPECT_EQ(said.err, room == 0 ? "" : "asn1: Encode:  Not enough room to build_length\n");
        EXPECT_EQ(said.trace, "");
    }
}

TEST(Header, RefusesALengthBelowZero) {
    Bytes out(8);
    int left = static_cast<int>(out.size());
    const Diagnostics said = diagnostics(
        ber_bit, [&] { EXPECT_EQ(asnBuildHeader09(out.data(), &left, 0x30, -1), nullptr); });
    EXPECT_EQ(said.err + said.trace + said.out, "");
}

TEST(Header, TakesEveryIdentifierOfOneOctet) {
    for (unsigned type = 0; type < 256; ++type) {
        const ExactBlock item(Bytes{static_cast<uint8_t>(type), 0});
        int left = item.length();
        unsigned char read = 0;
        unsigned char* end = asnParseHeader09(item.data(), &left, &read);
        if ((type & 0x1f) == 0x1f) {
            EXPECT_EQ(end, nullptr) << type;
        } else {
            EXPECT_EQ(end, item.data() + 2) << type;
            EXPECT_EQ(read, type);
            EXPECT_EQ(left, 0);
        }
    }
}

// ------------------------------------------------------------------------------------ integers

TEST(Int, IsWrittenAndReadBack) {
    for (const Vector& row : read_vectors("ber_int.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Bytes item = ber(row[2]);
        const auto value = static_cast<int32_t>(number(row[1]));
        expect_room_respected(
            [&](uint8_t* data, int* left) { return encode_int(row[0], data, left, value); }, item);
        const auto expected = static_cast<uint32_t>(number(row[3] == "=" ? row[1] : row[3]));

        Bytes followed = item;
        followed.push_back(0x05);
        for (const auto decode : {asnParseInt09, asnParseIntOrIpaddr09}) {
            const ExactBlock block(followed);
            int left = block.length();
            int32_t read = 0x5a5a5a5a;
            EXPECT_EQ(decode(block.data(), &left, &read, 4), block.data() + item.size());
            EXPECT_EQ(left, 1);
            EXPECT_EQ(wire_number(item[0], read), expected);
        }
        expect_prefixes_refused("int", item);
        expect_prefixes_refused("intorip", item);
    }
}

TEST(Int, IsReadInLongerForms) {
    for (const Vector& row : read_vectors("ber_int_decode.txt", 2)) {
        SCOPED_TRACE(row.where);
        const Bytes item = ber(row[0]);
        for (const auto decode : {asnParseInt09, asnParseIntOrIpaddr09}) {
            const ExactBlock block(item);
            int left = block.length();
            int32_t read = 0x5a5a5a5a;
            EXPECT_EQ(decode(block.data(), &left, &read, 4), block.data() + item.size());
            EXPECT_EQ(left, 0);
            EXPECT_EQ(wire_number(item[0], read), static_cast<uint32_t>(number(row[1])));
        }
        expect_prefixes_refused("int", item);
    }
}

TEST(Int, AddressLiesInWireOrder) {
    const Bytes item = from_hex("40 04 0a 01 02 03");
    int left = static_cast<int>(item.size());
    int32_t value = 0;
    ASSERT_NE(asnParseInt09(item.data(), &left, &value, 4), nullptr);
    EXPECT_EQ(std::memcmp(&value, "\x0a\x01\x02\x03", 4), 0);
}

TEST(Int, OrAddressTakesAStringOfUpToFourBytes) {
    const struct {
        const char* item;
        Bytes octets;
    } rows[] = {
        {"04()", {0, 0, 0, 0}},
        {"04(0a)", {0x0a, 0, 0, 0}},
        {"04(0a 01)", {0x0a, 1, 0, 0}},
        {"04(0a 01 02)", {0x0a, 1, 2, 0}},
        {"04(0a 01 02 03)", {0x0a, 1, 2, 3}},
        {"04 82 00 04 ff fe fd fc", {0xff, 0xfe, 0xfd, 0xfc}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.item);
        const Bytes item = ber(row.item);
        const ExactBlock block(item);
        int left = block.length();
        int32_t value = 0x5a5a5a5a;
        EXPECT_EQ(asnParseIntOrIpaddr09(block.data(), &left, &value, 4),
                  block.data() + item.size());
        EXPECT_EQ(left, 0);
        EXPECT_EQ(std::memcmp(&value, row.octets.data(), 4), 0);
        expect_prefixes_refused("intorip", item);
    }
}

TEST(Int, EncodersRefuseOtherSizesAndTypesInSilence) {
    Bytes out(16);
    for (const int size : {-4, 0, 1, 2, 3, 5, 8}) {
        for (const char* encoder :
             {"int", "class02", "class40", "class41", "class07", "ipaddress", "timeticks"}) {
            int left = static_cast<int>(out.size());
            const Diagnostics said = diagnostics(ber_bit, [&] {
                EXPECT_EQ(encode_int(encoder, out.data(), &left, 5, size), nullptr)
                    << encoder << " " << size;
            });
            EXPECT_EQ(said.err + said.trace + said.out, "");
        }
    }
    for (unsigned type = 0; type < 256; ++type) {
        const bool known = type == 0x02 || type == 0x07 || (type >= 0x40 && type <= 0x43);
        int left = static_cast<int>(out.size());
        const int32_t value = 5;
        EXPECT_EQ(
            asnBuildInt09class(out.data(), &left, &value, 4, static_cast<uint8_t>(type)) != nullptr,
            known)
            << type;
    }
}

TEST(Int, EncodersAreSilentWhenTheContentsHaveNoRoom) {
    for (const char* encoder : {"int", "class02", "class40", "class41", "ipaddress", "timeticks"}) {
        for (const int room : {0, 2, 3, 5}) {
            ExactBlock out(static_cast<size_t>(room));
            int left = room;
            const Diagnostics said = diagnostics(ber_bit, [&] {
                EXPECT_EQ(encode_int(encoder, out.data(), &left, 0x0a010203), nullptr);
            });
            EXPECT_EQ(said.err + said.trace + said.out, "") << encoder << " " << room;
        }
    }
}

/* The rules of the encoders, told over: how many octets a value takes. */
size_t octets_of(const std::string& encoder, uint32_t value) {
    const auto number = static_cast<int32_t>(value);
    if (encoder == "class40") {
        return 4;
    }
    if (encoder == "class41" || encoder == "class42" || encoder == "class43" ||
        encoder == "class07") {
        return value >= 0xff800000U   ? 5
               : value >= 0x00800000U ? 4
               : value >= 0x00008000U ? 3
               : value >= 0x80U       ? 2
                                      : 1;
    }
    return number >= -0x80 && number < 0x80           ? 1
           : number >= -0x8000 && number < 0x8000     ? 2
           : number >= -0x800000 && number < 0x800000 ? 3
                                                      : 4;
}

TEST(Int, RandomValuesFollowTheRules) {
    Random random;
    SCOPED_TRACE(random.name());
    const std::map<std::string, uint8_t> tags = {
        {"int", 0x02},     {"class02", 0x02},   {"class40", 0x40},
        {"class41", 0x41}, {"class42", 0x42},   {"class43", 0x43},
        {"class07", 0x02}, {"ipaddress", 0x40}, {"timeticks", 0x43}};
    for (int round = 0; round < 20000; ++round) {
        uint32_t value = random.any_size();
        value = random.one_in(2) ? ~value : value;
        for (const auto& [encoder, tag] : tags) {
            const size_t octets = octets_of(encoder, value);
            Bytes expected{tag, static_cast<uint8_t>(octets)};
            for (size_t i = octets; i-- > 0;) {
                expected.push_back(static_cast<uint8_t>(uint64_t{value} >> (8 * i)));
            }
            Bytes out(16);
            int left = static_cast<int>(out.size());
            unsigned char* end =
                encode_int(encoder, out.data(), &left, static_cast<int32_t>(value));
            ASSERT_EQ(end, out.data() + expected.size()) << encoder << " " << value;
            out.resize(expected.size());
            ASSERT_EQ(to_hex(out), to_hex(expected)) << encoder << " " << value;
            /* All but the signed rule under an unsigned tag come back as they went. */
            const uint32_t kept = octets >= 4 ? 0xffffffffU : (1U << (8 * octets)) - 1;
            int32_t read = 0;
            left = static_cast<int>(out.size());
            ASSERT_EQ(asnParseInt09(out.data(), &left, &read, 4), out.data() + out.size());
            ASSERT_EQ(wire_number(tag, read), tag == 0x02 ? value : value & kept);
        }
    }
}

// ------------------------------------------------------------------------------------- strings

Bytes pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    return bytes;
}

TEST(String, IsWrittenAndReadBack) {
    for (const size_t size : {0U, 1U, 4U, 127U, 128U, 129U, 255U, 256U, 1024U}) {
        SCOPED_TRACE(size);
        const ExactBlock text(pattern(size));
        const Bytes item = tlv(0x04, text.first(size));
        expect_room_respected(
            [&](uint8_t* data, int* left) {
                return asnBuildString09(data, left, text.data(), text.length());
            },
            item);
        for (const uint8_t tag : from_hex("04 44")) {
            Bytes followed = tlv(tag, text.first(size));
            followed.push_back(0x05);
            const ExactBlock block(followed);
            ExactBlock room(size);
            int left = block.length();
            int length = room.length();
            EXPECT_EQ(asnParseString09(block.data(), &left, room.data(), &length),
                      block.data() + item.size());
            EXPECT_EQ(left, 1);
            EXPECT_EQ(length, text.length());
            EXPECT_EQ(room.first(size), text.first(size));
        }
        expect_prefixes_refused("string", item);
    }
}

TEST(String, GetsNoTerminator) {
    const Bytes item = ber("04('abc')");
    Bytes room(8, 0xa5);
    int left = static_cast<int>(item.size());
    int length = static_cast<int>(room.size());
    ASSERT_NE(asnParseString09(item.data(), &left, room.data(), &length), nullptr);
    EXPECT_EQ(length, 3);
    EXPECT_EQ(room, ber("'abc' a5*5"));
}

TEST(String, NeedsRoomForItsContents) {
    const Bytes item = ber("44('abcdef')");
    for (int room = 0; room < 6; ++room) {
        int left = static_cast<int>(item.size());
        ExactBlock exact(static_cast<size_t>(room));
        int length = room;
        EXPECT_EQ(asnParseString09(item.data(), &left, exact.data(), &length), nullptr) << room;
    }
    int left = static_cast<int>(item.size());
    int length = -1;
    ExactBlock none(0);
    EXPECT_EQ(asnParseString09(item.data(), &left, none.data(), &length), nullptr);
}

TEST(String, LongerThanItsLengthFieldCanSay) {
    const Bytes text = pattern(70000);
    Bytes out(text.size() + 4);
    int left = static_cast<int>(out.size());
    ASSERT_EQ(asnBuildString09(out.data(), &left, text.data(), static_cast<int>(text.size())),
              out.data() + out.size());
    EXPECT_EQ(left, 0);
    EXPECT_EQ(to_hex(std::span<const uint8_t>(out).first(4)), "04 82 11 70");
    EXPECT_EQ(Bytes(out.begin() + 4, out.end()), text);
}

TEST(String, BelowZeroIsRefused) {
    const Bytes text = pattern(4);
    Bytes out(16);
    for (const int length : {-1, -4, INT_MIN}) {
        int left = static_cast<int>(out.size());
        const Diagnostics said = diagnostics(ber_bit, [&] {
            EXPECT_EQ(asnBuildString09(out.data(), &left, text.data(), length), nullptr);
        });
        EXPECT_EQ(said.err + said.trace + said.out, "");
    }
}

TEST(String, IsSilentWhenTheContentsHaveNoRoom) {
    const Bytes text = pattern(4);
    for (const int room : {0, 2, 3, 5}) {
        ExactBlock out(static_cast<size_t>(room));
        int left = room;
        const Diagnostics said = diagnostics(ber_bit, [&] {
            EXPECT_EQ(asnBuildString09(out.data(), &left, text.data(), 4), nullptr);
        });
        EXPECT_EQ(said.err + said.trace + said.out, "") << room;
    }
}

// ----------------------------------------------------------------------------- identifiers

void expect_objid(const Bytes& item, const Oid& expected) {
    Bytes followed = item;
    followed.push_back(0x05);
    const ExactBlock block(followed);
    std::vector<uint32_t> room(EMS_OID_MAX, 0x5a5a5a5a);
    int left = block.length();
    int count = EMS_OID_MAX;
    EXPECT_EQ(asnParseObjid09(block.data(), &left, room.data(), &count),
              block.data() + item.size());
    EXPECT_EQ(left, 1);
    ASSERT_EQ(count, static_cast<int>(expected.size()));
    EXPECT_EQ(Oid(room.begin(), room.begin() + count), expected);
}

TEST(Objid, IsWrittenAndReadBack) {
    for (const Vector& row : read_vectors("ber_objid.txt", 3)) {
        SCOPED_TRACE(row.where);
        const Bytes item = ber(row[1]);
        const ExactArray<uint32_t> name(oid(row[0]));
        expect_room_respected(
            [&](uint8_t* data, int* left) {
                return asnBuildObjid09(data, left, name.data(), name.length());
            },
            item);
        if (row[2] != "-") {
            expect_objid(item, oid(row[2] == "=" ? row[0] : row[2]));
        } else {
            int left = static_cast<int>(item.size());
            EXPECT_EQ(decoders.at("objid")(item.data(), &left, 16), nullptr);
        }
        expect_prefixes_refused("objid", item);
    }
}

TEST(Objid, IsReadInLongerForms) {
    for (const Vector& row : read_vectors("ber_objid_decode.txt", 2)) {
        SCOPED_TRACE(row.where);
        expect_objid(ber(row[0]), oid(row[1]));
        expect_prefixes_refused("objid", ber(row[0]));
    }
}

TEST(Objid, RoomMustExceedTheContents) {
    const Bytes item = ber("06(2b 06 01 04 01 ff ff 7f 03 01)");
    for (int room = 0; room <= 10; ++room) {
        int left = static_cast<int>(item.size());
        EXPECT_EQ(decoders.at("objid")(item.data(), &left, room), nullptr) << room;
    }
    int left = static_cast<int>(item.size());
    EXPECT_NE(decoders.at("objid")(item.data(), &left, 11), nullptr);
    for (const int room : {-1, INT_MIN}) {
        int count = room;
        uint32_t nowhere = 0;
        left = static_cast<int>(item.size());
        EXPECT_EQ(asnParseObjid09(item.data(), &left, &nowhere, &count), nullptr) << room;
    }
}

TEST(Objid, EmptyContentsReadAsTwoZeros) {
    const Bytes item = ber("06()");
    int left = static_cast<int>(item.size());
    ExactArray<uint32_t> room(2);
    int count = 2;
    EXPECT_EQ(asnParseObjid09(item.data(), &left, room.data(), &count), item.data() + 2);
    EXPECT_EQ(left, 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(room.first(2), (Oid{0, 0}));
    for (const int less : {0, 1}) {
        left = static_cast<int>(item.size());
        EXPECT_EQ(decoders.at("objid")(item.data(), &left, less), nullptr) << less;
    }
}

Oid long_oid(size_t count) {
    Oid name{1, 3};
    while (name.size() < count) {
        name.push_back(static_cast<uint32_t>(name.size() % 128));
    }
    return name;
}

TEST(Objid, OfAHundredAndTwentyEightSubIdentifiersIsTheLongestRead) {
    Bytes out(256);
    for (const size_t count : {127U, 128U}) {
        const Oid name = long_oid(count);
        int left = static_cast<int>(out.size());
        unsigned char* end =
            asnBuildObjid09(out.data(), &left, name.data(), static_cast<int>(count));
        ASSERT_NE(end, nullptr);
        expect_objid(Bytes(out.data(), end), name);
    }
    const Oid name = long_oid(129);
    int left = static_cast<int>(out.size());
    unsigned char* end = asnBuildObjid09(out.data(), &left, name.data(), 129);
    ASSERT_EQ(end, out.data() + 3 + 128) << "128 octets of contents just fit the scratch area";
    EXPECT_EQ(to_hex(std::span<const uint8_t>(out).first(4)), "06 81 80 2b");
    left = static_cast<int>(end - out.data());
    EXPECT_EQ(decoders.at("objid")(out.data(), &left, EMS_OID_MAX), nullptr);
    left = static_cast<int>(end - out.data());
    EXPECT_NE(decoders.at("objid")(out.data(), &left, 129), nullptr);
}

TEST(Objid, ContentsOfMoreThanTheScratchAreaAreRefusedInSilence) {
    /* Identifiers and the octets that their contents would take. */
    const std::vector<std::pair<Oid, size_t>> rows = {
        {long_oid(130), 129},
        {[] {
             Oid name{1, 3};
             name.insert(name.end(), 64, 200);
             return name;
         }(),
         129},
        {[] {
             Oid name = long_oid(128);
             name.back() = 16384;
             return name;
         }(),
         129},
        {Oid(EMS_OID_MAX, 1), 127},
        {[] {
             Oid name{1, 3};
             name.insert(name.end(), 126, 0xffffffff);
             return name;
         }(),
         631},
        {[] {
             Oid name{1, 3, 1, 1};
             name.insert(name.end(), 25, 0x7fffffff);
             return name;
         }(),
         128},
    };
    for (const auto& [name, contents] : rows) {
        SCOPED_TRACE(contents);
        const ExactArray<uint32_t> exact(name);
        Bytes out(1024);
        int left = static_cast<int>(out.size());
        unsigned char* end = nullptr;
        const Diagnostics said = diagnostics(ber_bit, [&] {
            end = asnBuildObjid09(out.data(), &left, exact.data(), exact.length());
        });
        EXPECT_EQ(said.err + said.trace + said.out, "");
        if (contents > 128) {
            EXPECT_EQ(end, nullptr);
        } else {
            EXPECT_EQ(end, out.data() + contents + (contents < 128 ? 2 : 3));
        }
    }
}

TEST(Objid, EncoderSaysWhatItRefuses) {
    const struct {
        Oid name;
        const char* err;
        const char* out;
    } rows[] = {
        {{}, "asn1: Encode:  Invalid Obj ID length\n", "Obj id = \n"},
        {{1}, "asn1: Encode:  Invalid Obj ID length\n", "Obj id = 1\n"},
        {{7}, "asn1: Encode:  Invalid Obj ID length\n", "Obj id = 7\n"},
        {{3, 1, 5}, "asn1: objid, invalid first member\n", "3"},
        {{40, 200}, "asn1: objid, invalid first member\n", "40"},
        {{4294967295U, 1}, "asn1: objid, invalid first member\n", "-1"},
        {{2, 48, 6}, "asn1: objid, invalid sum\n", "Obj id = 2.48.6\n"},
        {{1, 88}, "asn1: objid, invalid sum\n", "Obj id = 1.88\n"},
        {{0, 128}, "asn1: objid, invalid sum\n", "Obj id = 0.128\n"},
        {{0, 256}, "asn1: objid, invalid sum\n", "Obj id = 0.256\n"},
        {{1, 4294967295U}, "asn1: objid, invalid sum\n", "Obj id = 1.4294967295\n"},
        {{2, 4294967216U, 1}, "asn1: objid, invalid sum\n", "Obj id = 2.4294967216.1\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(dotted(row.name.data(), row.name.size()));
        const ExactArray<uint32_t> name(row.name);
        Bytes out(32);
        const auto build = [&] {
            int left = static_cast<int>(out.size());
            EXPECT_EQ(asnBuildObjid09(out.data(), &left, name.data(), name.length()), nullptr);
        };
        Diagnostics said = diagnostics(ber_bit, build);
        EXPECT_EQ(said.err, row.err);
        EXPECT_EQ(said.out, row.out);
        EXPECT_EQ(said.trace, "") << "the encoder never reports to the trace log";
        said = diagnostics(~ber_bit, build);
        EXPECT_EQ(said.err + said.out + said.trace, "");
    }
}

TEST(Objid, EncoderRefusesCountsBelowTwo) {
    const Oid name{1, 3, 6};
    for (const int count : {1, 0, -1, INT_MIN}) {
        Bytes out(16);
        int left = static_cast<int>(out.size());
        const Diagnostics said = diagnostics(ber_bit, [&] {
            EXPECT_EQ(asnBuildObjid09(out.data(), &left, name.data(), count), nullptr);
        });
        EXPECT_EQ(said.err, "asn1: Encode:  Invalid Obj ID length\n");
        EXPECT_EQ(said.out, count == 1 ? "Obj id = 1\n" : "Obj id = \n");
    }
}

TEST(Objid, RandomIdentifiersComeBack) {
    Random random;
    SCOPED_TRACE(random.name());
    for (int round = 0; round < 5000; ++round) {
        const uint32_t first = random.between(0, 2);
        Oid name{first, random.between(0, 39)};
        while (name.size() < 25 && !random.one_in(12)) {
            name.push_back(random.any_size() & 0x7fffffff);
        }
        Bytes out(160);
        int left = static_cast<int>(out.size());
        unsigned char* end =
            asnBuildObjid09(out.data(), &left, name.data(), static_cast<int>(name.size()));
        ASSERT_NE(end, nullptr);
        expect_objid(Bytes(out.data(), end), name);
    }
}

// ---------------------------------------------------------------------------------------- NULL

TEST(Null, IsWrittenAndReadBack) {
    const Bytes item = from_hex("05 00");
    expect_room_respected([](uint8_t* data, int* left) { return asnBuildNull09(data, left); },
                          item);
    const ExactBlock block(from_hex("05 00 05 00"));
    int left = block.length();
    EXPECT_EQ(asnParseNull09(block.data(), &left), block.data() + 2);
    EXPECT_EQ(left, 2);
    expect_prefixes_refused("null", item);
}

TEST(Null, CountsTwoBytesHoweverLongItsHeader) {
    for (const char* text : {"05 81 00", "05 82 00 00", "05 84 00 00 00 00"}) {
        const Bytes item = from_hex(text);
        const ExactBlock block(item);
        int left = block.length();
        EXPECT_EQ(asnParseNull09(block.data(), &left), block.data() + item.size());
        EXPECT_EQ(left, static_cast<int>(item.size()) - 2);
        expect_prefixes_refused("null", item);
    }
}

// --------------------------------------------------------------------------------- diagnostics

TEST(BadItems, AreRefusedWithTheirTexts) {
    for (const Vector& row : read_vectors("ber_bad.txt", 5)) {
        SCOPED_TRACE(row.where);
        const ExactBlock item(ber(row[2]));
        const auto decode = [&] {
            int left = item.length();
            EXPECT_EQ(decoders.at(row[0])(item.data(), &left, static_cast<int>(number(row[1]))),
                      nullptr);
        };
        Diagnostics said = diagnostics(ber_bit, decode);
        EXPECT_EQ(said.err, as_lines(row[3]));
        EXPECT_EQ(said.trace, as_lines(row[4]));
        EXPECT_EQ(said.out, "");
        said = diagnostics(~ber_bit, decode);
        EXPECT_EQ(said.err, "") << "silent without its bit";
        EXPECT_EQ(said.trace, as_lines(row[4])) << "the trace log does not heed the mask";
        const TraceMask masked(ber_bit);
        EXPECT_EQ(captured_stderr(decode), as_lines(row[3])) << "with the trace log closed";
    }
}

TEST(BadItems, BytesLeftBelowZeroCountAsNone) {
    const Bytes item = from_hex("02 01 05 00 00 00 00");
    for (const auto& [name, decode] : decoders) {
        for (const int bytes : {-1, INT_MIN}) {
            int left = bytes;
            if (name != "length") {
                EXPECT_EQ(decode(item.data(), &left, 4), nullptr) << name;
            }
        }
    }
}

TEST(BadItems, RandomBytesNeverHurt) {
    Random random;
    SCOPED_TRACE(random.name());
    const Bytes tags = from_hex("02 04 05 06 30 40 41 42 43 44 a4 1f");
    for (int round = 0; round < 20000; ++round) {
        ExactBlock item(random.between(0, 24));
        for (size_t i = 0; i < item.size(); ++i) {
            item.data()[i] = random.byte();
        }
        if (item.size() > 2) {
            item.data()[0] = tags[random.between(0, static_cast<uint32_t>(tags.size() - 1))];
            item.data()[1] = static_cast<uint8_t>(item.size() - random.between(0, 3));
        }
        for (const auto& [name, decode] : decoders) {
            int left = item.length();
            if (name == "length" && item.size() < 5) {
                continue;
            }
            const uint8_t* end = decode(item.data(), &left, 4);
            if (end != nullptr) {
                ASSERT_GT(end, item.data());
                ASSERT_LE(end, item.data() + item.size() + (name == "length" ? 5 : 0));
                ASSERT_GE(left, 0);
            }
        }
    }
}

// ------------------------------------------------------------------------------- null pointers

TEST(NullPointers, MakeEveryDecoderFail) {
    const Bytes number_item = from_hex("02 01 05 00 00 00");
    const Bytes text_item = ber("04('a')");
    const Bytes name_item = ber("06(2b)");
    int left = 3;
    int32_t value = 0;
    int room = 8;
    unsigned char bytes[8];
    unsigned char type = 0;
    uint32_t length = 0;
    uint32_t name[8];
    EXPECT_EQ(asnParseInt09(nullptr, &left, &value, 4), nullptr);
    EXPECT_EQ(asnParseInt09(number_item.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnParseInt09(number_item.data(), &left, nullptr, 4), nullptr);
    EXPECT_EQ(asnParseIntOrIpaddr09(nullptr, &left, &value, 4), nullptr);
    EXPECT_EQ(asnParseIntOrIpaddr09(number_item.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnParseIntOrIpaddr09(number_item.data(), &left, nullptr, 4), nullptr);
    EXPECT_EQ(asnParseIntOrIpaddr09(text_item.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnParseIntOrIpaddr09(text_item.data(), &left, nullptr, 4), nullptr);
    EXPECT_EQ(asnParseString09(nullptr, &left, bytes, &room), nullptr);
    EXPECT_EQ(asnParseString09(text_item.data(), nullptr, bytes, &room), nullptr);
    EXPECT_EQ(asnParseString09(text_item.data(), &left, nullptr, &room), nullptr);
    EXPECT_EQ(asnParseString09(text_item.data(), &left, bytes, nullptr), nullptr);
    EXPECT_EQ(asnParseHeader09(nullptr, &left, &type), nullptr);
    EXPECT_EQ(asnParseHeader09(number_item.data(), nullptr, &type), nullptr);
    EXPECT_EQ(asnParseHeader09(number_item.data(), &left, nullptr), nullptr);
    EXPECT_EQ(asnParseLength09(nullptr, &length), nullptr);
    EXPECT_EQ(asnParseLength09(number_item.data() + 1, nullptr), nullptr);
    EXPECT_EQ(asnParseObjid09(nullptr, &left, name, &room), nullptr);
    EXPECT_EQ(asnParseObjid09(name_item.data(), nullptr, name, &room), nullptr);
    EXPECT_EQ(asnParseObjid09(name_item.data(), &left, nullptr, &room), nullptr);
    EXPECT_EQ(asnParseObjid09(name_item.data(), &left, name, nullptr), nullptr);
    EXPECT_EQ(asnParseNull09(nullptr, &left), nullptr);
    EXPECT_EQ(asnParseNull09(from_hex("05 00").data(), nullptr), nullptr);
}

TEST(NullPointers, MakeEveryEncoderFail) {
    Bytes out(16);
    int left = static_cast<int>(out.size());
    const int32_t value = 5;
    const uint32_t name[] = {1, 3};
    EXPECT_EQ(asnBuildInt09class(nullptr, &left, &value, 4, 0x41), nullptr);
    EXPECT_EQ(asnBuildInt09class(out.data(), nullptr, &value, 4, 0x41), nullptr);
    EXPECT_EQ(asnBuildInt09class(out.data(), &left, nullptr, 4, 0x41), nullptr);
    EXPECT_EQ(asnBuildInt09(nullptr, &left, &value, 4), nullptr);
    EXPECT_EQ(asnBuildInt09(out.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnBuildInt09(out.data(), &left, nullptr, 4), nullptr);
    EXPECT_EQ(asnBuildString09(nullptr, &left, out.data(), 1), nullptr);
    EXPECT_EQ(asnBuildString09(out.data(), nullptr, out.data(), 1), nullptr);
    EXPECT_EQ(asnBuildString09(out.data(), &left, nullptr, 1), nullptr);
    EXPECT_EQ(asnBuildHeader09(nullptr, &left, 0x30, 1), nullptr);
    EXPECT_EQ(asnBuildHeader09(out.data(), nullptr, 0x30, 1), nullptr);
    EXPECT_EQ(asnBuildLength09(nullptr, &left, 1), nullptr);
    EXPECT_EQ(asnBuildLength09(out.data(), nullptr, 1), nullptr);
    EXPECT_EQ(asnBuildObjid09(nullptr, &left, name, 2), nullptr);
    EXPECT_EQ(asnBuildObjid09(out.data(), nullptr, name, 2), nullptr);
    EXPECT_EQ(asnBuildObjid09(out.data(), &left, nullptr, 2), nullptr);
    EXPECT_EQ(asnBuildNull09(nullptr, &left), nullptr);
    EXPECT_EQ(asnBuildNull09(out.data(), nullptr), nullptr);
    EXPECT_EQ(asnBuildIpaddressEMS(nullptr, &left, &value, 4), nullptr);
    EXPECT_EQ(asnBuildIpaddressEMS(out.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnBuildIpaddressEMS(out.data(), &left, nullptr, 4), nullptr);
    EXPECT_EQ(asnBuildTimeticksEMS(nullptr, &left, &value, 4), nullptr);
    EXPECT_EQ(asnBuildTimeticksEMS(out.data(), nullptr, &value, 4), nullptr);
    EXPECT_EQ(asnBuildTimeticksEMS(out.data(), &left, nullptr, 4), nullptr);
}

TEST(NullPointers, OfEncodersAreRefusedInSilence) {
    int left = 16;
    const int32_t value = 5;
    const Diagnostics said = diagnostics(ber_bit, [&] {
        EXPECT_EQ(asnBuildInt09class(nullptr, &left, &value, 4, 0x41), nullptr);
        EXPECT_EQ(asnBuildIpaddressEMS(nullptr, &left, &value, 4), nullptr);
        EXPECT_EQ(asnBuildTimeticksEMS(nullptr, &left, &value, 4), nullptr);
        EXPECT_EQ(asnBuildNull09(nullptr, &left), nullptr);
    });
    EXPECT_EQ(said.err + said.trace + said.out, "");
}

// ------------------------------------------------------------------------------------ hex dump

struct Dump {
    std::string offsets; /* standard output */
    std::string rows;    /* the dump stream */
};

Dump dump(const uint8_t* bytes, int size) {
    char* text = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    FILE* before = dumpFp;
    dumpFp = stream;
    Dump result;
    result.offsets = captured_stdout([&] { hexdumpEMS(bytes, size); });
    dumpFp = before;
    fclose(stream);
    result.rows.assign(text, length);
    free(text);
    return result;
}

TEST(HexDump, OfTwentyBytesIsARowAndAPaddedRow) {
    const Bytes bytes = ber("'ABCDEFGHIJKLMNO' 00 1f 20 7e 7f");
    const Dump said = dump(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(said.offsets, "     0:      16:  ");
    EXPECT_EQ(said.rows,
              "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 00     ABCDEFGHIJKLMNO.\n"
              "1f 20 7e 7f -- -- -- -- -- -- -- -- -- -- -- --     . ~.............\n");
}

TEST(HexDump, PadsOnlyAPartialRow) {
    const Bytes bytes(32, 0x61);
    EXPECT_EQ(dump(bytes.data(), 16).rows,
              "61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61     aaaaaaaaaaaaaaaa\n");
    EXPECT_EQ(dump(bytes.data(), 16).offsets, "     0:  ");
    EXPECT_EQ(dump(bytes.data(), 32).offsets, "     0:      16:  ");
    EXPECT_EQ(dump(bytes.data(), 1).rows,
              "61 -- -- -- -- -- -- -- -- -- -- -- -- -- -- --     a...............\n");
}

TEST(HexDump, OffsetsTakeFourColumns) {
    const Bytes bytes(1040);
    const std::string offsets = dump(bytes.data(), static_cast<int>(bytes.size())).offsets;
    EXPECT_EQ(offsets.substr(offsets.size() - 18), "  1008:    1024:  ");
}

TEST(HexDump, OfNothingIsNothing) {
    const Bytes bytes(4);
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(dump(bytes.data(), size).rows + dump(bytes.data(), size).offsets, "");
    }
    EXPECT_EQ(dump(nullptr, 16).rows + dump(nullptr, 16).offsets, "");
}

TEST(HexDump, WithoutAStreamIsNothing) {
    ASSERT_EQ(dumpFp, nullptr) << "null at load";
    const Bytes bytes(20);
    const Diagnostics said =
        diagnostics(ber_bit, [&] { hexdumpEMS(bytes.data(), static_cast<int>(bytes.size())); });
    EXPECT_EQ(said.out + said.err + said.trace, "");
}

}  // namespace
