#include <gtest/gtest.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <climits>
#include <string>
#include <vector>

#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/vectors.h"

namespace {

using namespace wq::test;

constexpr int message_bit = 2;

/* A community and a room for it, with a byte behind for the terminator. */
struct Parsed {
    bool ok = false;
    std::ptrdiff_t consumed = 0;
    int left = 0;
    int32_t version = 0x5a5a5a5a;
    Bytes community;
    int terminator = -1;
};

Parsed parse(const ExactBlock& message, int room) {
    Parsed result;
    ExactBlock community(static_cast<size_t>(room) + 1);
    std::fill_n(community.data(), community.size(), uint8_t{0xa5});
    result.left = message.length();
    int length = room;
    const unsigned char* pdu =
        auth_parse(message.data(), &result.left, community.data(), &length, &result.version);
    if (pdu != nullptr) {
        result.ok = true;
        result.consumed = pdu - message.data();
        result.community = community.first(static_cast<size_t>(length));
        result.terminator = community.data()[length];
    }
    return result;
}

struct Header {
    explicit Header(const Vector& row)
        : version(static_cast<int32_t>(number(row[0]))),
          community(row[1].begin(), row[1].end()),
          pdu(static_cast<int>(number(row[2]))),
          bytes(ber(row[3])) {}

    unsigned char* build(uint8_t* data, int* left) const {
        const ExactBlock exact(community);
        const int length = exact.length();
        return auth_build(data, left, exact.data(), &length, &version, pdu);
    }

    int32_t version;
    Bytes community;
    int pdu;
    Bytes bytes;
};

TEST(AuthBuild, WritesTheHeaderAlone) {
    for (const Vector& row : read_vectors("auth.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Header header(row);
        const auto size = static_cast<int>(header.bytes.size());
        for (int room = 0; room <= size + 2; ++room) {
            SCOPED_TRACE(room);
            ExactBlock out(static_cast<size_t>(room));
            int left = room;
            const unsigned char* end = header.build(out.data(), &left);
            if (room < size) {
                EXPECT_EQ(end, nullptr);
            } else {
                ASSERT_EQ(end, out.data() + size);
                EXPECT_EQ(left, room - size) << "the room of the PDU is not asked for";
                EXPECT_EQ(to_hex(out.first(header.bytes.size())), to_hex(header.bytes));
            }
            Bytes guarded(static_cast<size_t>(room) + 16, 0xa5);
            left = room;
            header.build(guarded.data(), &left);
            for (size_t i = static_cast<size_t>(room); i < guarded.size(); ++i) {
                ASSERT_EQ(guarded[i], 0xa5);
            }
        }
    }
}

TEST(AuthParse, ReadsWhatWasBuilt) {
    for (const Vector& row : read_vectors("auth.txt", 4)) {
        SCOPED_TRACE(row.where);
        const Header header(row);
        Bytes message = header.bytes;
        message.resize(message.size() + static_cast<size_t>(header.pdu), 0x05);
        const int room = static_cast<int>(header.community.size());
        const Parsed parsed = parse(ExactBlock(message), room);
        ASSERT_TRUE(parsed.ok);
        EXPECT_EQ(parsed.consumed, static_cast<std::ptrdiff_t>(header.bytes.size()));
        EXPECT_EQ(parsed.left, header.pdu);
        EXPECT_EQ(parsed.version, header.version);
        EXPECT_EQ(parsed.community, header.community);
        EXPECT_EQ(parsed.terminator, 0) << "written one byte past the capacity";
        for (size_t size = 0; size < message.size(); ++size) {
            const ExactBlock prefix(std::span<const uint8_t>(message).first(size));
            EXPECT_FALSE(parse(prefix, room).ok) << size;
        }
    }
}

TEST(AuthParse, LeavesWhatFollowsTheMessage) {
    const ExactBlock message(ber("30(02(00) 04('public') a4(05 00)) 30 00"));
    const Parsed parsed = parse(message, 16);
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.consumed, 13);
    EXPECT_EQ(parsed.left, 4) << "the bytes of the message alone";
}

TEST(AuthParse, TerminatesTheCommunity) {
    const ExactBlock message(ber("30(02(00) 04('public'))"));
    const Parsed parsed = parse(message, 16);
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.community, ber("'public'"));
    EXPECT_EQ(parsed.terminator, 0);
    EXPECT_EQ(parsed.left, 0);
}

TEST(AuthParse, DoesNotJudgeTheVersion) {
    const std::pair<const char*, int32_t> rows[] = {
        {"02(01)", 1},
        {"02(03)", 3},
        {"02(ff)", -1},
        {"02(7f ff ff ff)", INT_MAX},
        {"02()", 0},
        {"41(80)", 128},
        {"02(00 ff ff ff ff)", -1},
    };
    for (const auto& [version, expected] : rows) {
        SCOPED_TRACE(version);
        const ExactBlock message(ber("30(" + std::string(version) + " 04('public'))"));
        const Parsed parsed = parse(message, 16);
        ASSERT_TRUE(parsed.ok);
        EXPECT_EQ(parsed.version, expected);
    }
}

TEST(AuthParse, TakesAnOpaqueCommunity) {
    const Parsed parsed = parse(ExactBlock(ber("30(02(00) 44('public'))")), 6);
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.community, ber("'public'"));
}

TEST(AuthParse, SaysWhatItRefuses) {
    for (const Vector& row : read_vectors("auth_bad.txt", 3)) {
        SCOPED_TRACE(row.where);
        const ExactBlock message(ber(row[1]));
        const int room = static_cast<int>(number(row[0]));
        const auto refuse = [&] { EXPECT_FALSE(parse(message, room).ok); };
        EXPECT_EQ(diagnostics(message_bit, refuse).err, as_lines(row[2]));
        EXPECT_EQ(diagnostics(0, refuse).err, "") << "silent without its bit";
        const Diagnostics others = diagnostics(~message_bit, refuse);
        EXPECT_EQ(others.err.find("snmp_auth"), std::string::npos);
        EXPECT_EQ(others.trace.find("auth"), std::string::npos)
            << "this layer writes nothing to the trace log";
        EXPECT_EQ(others.out, "");
    }
}

TEST(AuthParse, ReportsBehindThePrimitives) {
    const ExactBlock message(ber("30(02(00) 02(05))"));
    const Diagnostics said =
        diagnostics(message_bit | 1, [&] { EXPECT_FALSE(parse(message, 8).ok); });
    EXPECT_EQ(said.err,
              "asn1: Decode: not an octet string type\nsnmp_auth: bad parse of community\n");
    EXPECT_EQ(said.trace, "asnParseString09: Decode: not an octet string type\n");
}

TEST(AuthBuild, SaysWhichItemHasNoRoom) {
    const Bytes community = ber("'public'");
    const int length = static_cast<int>(community.size());
    const int32_t version = 0;
    for (int room = 0; room < 13; ++room) {
        SCOPED_TRACE(room);
        ExactBlock out(static_cast<size_t>(room));
        const auto refuse = [&] {
            int left = room;
            EXPECT_EQ(auth_build(out.data(), &left, community.data(), &length, &version, 20),
                      nullptr);
        };
        const std::string text = room < 2 ? "buildheader" : room < 5 ? "buildint" : "buildstring";
        const Diagnostics said = diagnostics(message_bit, refuse);
        EXPECT_EQ(said.err, "snmp_auth: " + text + "\n");
        EXPECT_EQ(said.trace + said.out, "");
        EXPECT_EQ(diagnostics(0, refuse).err, "");
    }
}

TEST(AuthBuild, AllowsForShortVersionsAndCommunitiesOnly) {
    const struct {
        int32_t version;
        int community;
        const char* start;
        size_t size; /* of the header as written */
    } rows[] = {
        /* length = community + PDU + 5, whatever the two items really take */
        {0, 126, "30 81 8d 02 01 00 04 7e 61", 3 + 3 + 2 + 126},
        {0, 127, "30 81 8e 02 01 00 04 7f 61", 3 + 3 + 2 + 127},
        {0, 128, "30 81 8f 02 01 00 04 81 80 61", 3 + 3 + 3 + 128},
        {0, 129, "30 81 90 02 01 00 04 81 81 61", 3 + 3 + 3 + 129},
        {128, 1, "30 10 02 02 00 80 04 01 61", 2 + 4 + 2 + 1},
        {300, 0, "30 0f 02 02 01 2c 04 00", 2 + 4 + 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.start);
        const ExactBlock community(Bytes(static_cast<size_t>(row.community), 0x61));
        Bytes out(512);
        int left = static_cast<int>(out.size());
        ASSERT_EQ(auth_build(out.data(), &left, community.data(), &row.community, &row.version, 10),
                  out.data() + row.size);
        EXPECT_EQ(left, static_cast<int>(out.size() - row.size));
        const Bytes start = from_hex(row.start);
        EXPECT_EQ(to_hex(std::span<const uint8_t>(out).first(start.size())), to_hex(start));
    }
}

TEST(AuthBuild, RefusesLengthsBelowZero) {
    const Bytes community = ber("'public'");
    const int32_t version = 0;
    Bytes out(64);
    for (const auto& [length, pdu] :
         {std::pair{6, -100}, {6, INT_MIN}, {-1, 20}, {-20, 20}, {INT_MIN, 0}, {6, INT_MAX}}) {
        int left = static_cast<int>(out.size());
        unsigned char* end =
            auth_build(out.data(), &left, community.data(), &length, &version, pdu);
        /* A sum beyond the largest int may be refused or written by its low 16 bits. */
        if (pdu != INT_MAX) {
            EXPECT_EQ(end, nullptr) << length << " " << pdu;
        }
    }
}

TEST(AuthNullPointers, MakeTheCallFail) {
    const Bytes message = ber("30(02(00) 04('public'))");
    int left = static_cast<int>(message.size());
    Bytes community(16);
    int length = 15;
    int32_t version = 0;
    EXPECT_EQ(auth_parse(nullptr, &left, community.data(), &length, &version), nullptr);
    EXPECT_EQ(auth_parse(message.data(), nullptr, community.data(), &length, &version), nullptr);
    EXPECT_EQ(auth_parse(message.data(), &left, nullptr, &length, &version), nullptr);
    EXPECT_EQ(auth_parse(message.data(), &left, community.data(), nullptr, &version), nullptr);
    EXPECT_EQ(auth_parse(message.data(), &left, community.data(), &length, nullptr), nullptr);
    Bytes out(64);
    left = static_cast<int>(out.size());
    length = 6;
    EXPECT_EQ(auth_build(nullptr, &left, community.data(), &length, &version, 1), nullptr);
    EXPECT_EQ(auth_build(out.data(), nullptr, community.data(), &length, &version, 1), nullptr);
    EXPECT_EQ(auth_build(out.data(), &left, nullptr, &length, &version, 1), nullptr);
    EXPECT_EQ(auth_build(out.data(), &left, community.data(), nullptr, &version, 1), nullptr);
    EXPECT_EQ(auth_build(out.data(), &left, community.data(), &length, nullptr, 1), nullptr);
}

TEST(AuthParse, RoomBelowZeroTakesNoCommunity) {
    const Bytes message = ber("30(02(00) 04('public'))");
    uint8_t nowhere = 0;
    int32_t version = 0;
    for (const int room : {-1, INT_MIN}) {
        int left = static_cast<int>(message.size());
        int length = room;
        EXPECT_EQ(auth_parse(message.data(), &left, &nowhere, &length, &version), nullptr);
    }
}

}  // namespace
