#include "framing.h"

#include <gtest/gtest.h>

#include <string_view>

#include "sample_traps.h"

namespace wq::command {
namespace {

using test::Bytes;
using test::from_hex;
using test::repeated;
using test::small_trap;
using test::with_header;
using State = Frame::State;

/* A BER sequence of the length field and as many zero bytes. */
Bytes sequence(std::string_view length_field, std::size_t content) {
    Bytes bytes = from_hex("30 " + std::string(length_field));
    bytes.resize(bytes.size() + content);
    return bytes;
}

TEST(Framing, NothingIsUnfinished) {
    EXPECT_EQ(next_frame(Framing::header, {}).state, State::unfinished);
    EXPECT_EQ(next_frame(Framing::raw, {}).state, State::unfinished);
}

TEST(Framing, EveryProperPrefixIsUnfinished) {
    const Bytes long_trap = sequence("82 01 00", 256);
    const struct {
        Framing framing;
        Bytes bytes;
    } rows[] = {
        {Framing::header, with_header(small_trap())},
        {Framing::raw, small_trap()},
        {Framing::raw, long_trap},
        {Framing::raw, sequence("81 80", 128)},
    };
    for (const auto& row : rows) {
        for (std::size_t size = 0; size < row.bytes.size(); ++size) {
            const Bytes prefix(row.bytes.begin(),
                               row.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(next_frame(row.framing, prefix).state, State::unfinished) << size;
        }
        const Frame frame = next_frame(row.framing, row.bytes);
        EXPECT_EQ(frame.state, State::whole);
        EXPECT_EQ(frame.length, row.bytes.size());
    }
}

TEST(Framing, FindsTheTrapBehindItsHeader) {
    const Bytes two = repeated(with_header(small_trap(7)), 2);
    const Frame frame = next_frame(Framing::header, two);
    ASSERT_EQ(frame.state, State::whole);
    EXPECT_EQ(frame.length, 64U);
    EXPECT_EQ(Bytes(frame.trap.begin(), frame.trap.end()), small_trap(7));
    ASSERT_TRUE(frame.header);
    EXPECT_EQ(frame.header->len, 40);
    EXPECT_EQ(frame.header->src, 15U);
    EXPECT_EQ(frame.header->pid, 4711);
    EXPECT_EQ(frame.header->status, -1);
    EXPECT_EQ(frame.header->target, 9U);
}

TEST(Framing, RawTrapHasNoHeaderAndEndsByItsLength) {
    const Bytes two = repeated(small_trap(), 2);
    const Frame frame = next_frame(Framing::raw, two);
    ASSERT_EQ(frame.state, State::whole);
    EXPECT_EQ(frame.length, 40U);
    EXPECT_EQ(Bytes(frame.trap.begin(), frame.trap.end()), small_trap());
    EXPECT_FALSE(frame.header);
}

TEST(Framing, JudgesTheHeadersLength) {
    const struct {
        std::int32_t len;
        const char* reason;
    } rows[] = {
        {INT32_MIN, "header with a length below 20"},
        {-1, "header with a length below 20"},
        {0, "header with a length below 20"},
        {19, "header with a length below 20"},
        {20, nullptr},
        {8192, nullptr},
        {8193, "header with a length above 8192"},
        {INT32_MAX, "header with a length above 8192"},
    };
    for (const auto& row : rows) {
        const Frame frame = next_frame(Framing::header, with_header({}, row.len));
        if (row.reason == nullptr) {
            EXPECT_EQ(frame.state, State::unfinished) << row.len;
        } else {
            EXPECT_EQ(frame.state, State::refused) << row.len;
            EXPECT_STREQ(frame.reason, row.reason) << row.len;
        }
    }
}

TEST(Framing, JudgesTheMessagesLength) {
    const struct {
        const char* start;
        State state;
        const char* reason;
    } rows[] = {
        {"02", State::refused, "message that is not a BER sequence"},
        {"00 26", State::refused, "message that is not a BER sequence"},
        {"30 80", State::refused, "message with an unreadable length"},
        {"30 85", State::refused, "message with an unreadable length"},
        {"30 ff 01 02 03 04", State::refused, "message with an unreadable length"},
        {"30 83", State::refused, "message with more than two length octets"},
        {"30 84 00 00 01 00", State::refused, "message with more than two length octets"},
        {"30 11", State::refused, "message shorter than 20 bytes"},
        {"30 00", State::refused, "message shorter than 20 bytes"},
        {"30 81 00", State::refused, "message shorter than 20 bytes"},
        {"30 12", State::unfinished, nullptr},
        {"30 81", State::unfinished, nullptr},
        {"30 82 00", State::unfinished, nullptr},
        {"30 82 1f fc", State::unfinished, nullptr},
        {"30 82 1f fd", State::refused, "message longer than 8192 bytes"},
        {"30 82 ff ff", State::refused, "message longer than 8192 bytes"},
    };
    for (const auto& row : rows) {
        const Frame frame = next_frame(Framing::raw, from_hex(row.start));
        EXPECT_EQ(frame.state, row.state) << row.start;
        EXPECT_STREQ(frame.reason, row.reason) << row.start;
    }
}

TEST(Framing, LengthOctetsMayBeginWithZeros) {
    for (const char* field : {"82 00 26", "81 26", "26"}) {
        const Bytes bytes = sequence(field, 0x26);
        const Frame frame = next_frame(Framing::raw, bytes);
        EXPECT_EQ(frame.state, State::whole) << field;
        EXPECT_EQ(frame.length, bytes.size()) << field;
    }
}

TEST(Framing, TakesTheLargestTrap) {
    const Bytes raw = sequence("82 1f fc", 8188);
    EXPECT_EQ(next_frame(Framing::raw, raw).length, 8192U);
    EXPECT_EQ(next_frame(Framing::header, with_header(raw)).length, frame_max);
}

}  // namespace
}  // namespace wq::command
