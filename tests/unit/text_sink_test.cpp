#include "EMS/events/internal/text_sink.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "support/exact_block.h"
#include "support/random.h"

namespace {

using wq::TextSink;
using wq::test::ExactArray;

TEST(TextSink, StartsWithAnEmptyTerminatedText) {
    ExactArray<char> buffer(3);
    buffer.data()[0] = 'x';
    const TextSink sink(buffer.data(), buffer.size());
    EXPECT_STREQ(buffer.data(), "");
    EXPECT_EQ(sink.length(), 0U);
    EXPECT_EQ(sink.room(), 2U);
    EXPECT_EQ(sink.text(), "");
}

TEST(TextSink, WithoutAByteOfRoomWritesNothing) {
    ExactArray<char> none(0);
    for (char* buffer : {none.data(), static_cast<char*>(nullptr)}) {
        TextSink sink(buffer, 0);
        sink.append("text");
        sink.append('c');
        sink.append_decimal(-1);
        sink.append_hex(0xabc);
        sink.append_hex_pair(0x1f);
        sink.advance(1);
        sink.cut(0);
        EXPECT_EQ(sink.length(), 0U);
        EXPECT_EQ(sink.room(), 0U);
    }
    TextSink nowhere(nullptr, 10);
    nowhere.append("text");
    nowhere.append("");
    nowhere.append({});
    EXPECT_EQ(nowhere.length(), 0U);
}

/* Texts of each length that is copied in its own way, cut at each place. */
TEST(TextSink, KeepsWhatFitsAndATerminator) {
    const std::string text = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN";
    for (size_t length = 0; length <= text.size(); ++length) {
        for (size_t size = 1; size <= length + 2; ++size) {
            ExactArray<char> buffer(size);
            const ExactArray<char> source(std::span(text.data(), length));
            TextSink sink(buffer.data(), size);
            sink.append({source.data(), length});
            const std::string expected = text.substr(0, std::min(length, size - 1));
            ASSERT_EQ(buffer.data(), expected) << length << " characters, room for " << size;
            ASSERT_EQ(sink.text(), expected);
            ASSERT_EQ(sink.room(), size - 1 - expected.size());
        }
    }
}

void expect_sequence(size_t size) {
    ExactArray<char> buffer(size);
    TextSink sink(buffer.data(), buffer.size());
    sink.append("ab");
    sink.append('-');
    sink.append("");
    sink.append("cdef");
    sink.append_decimal(12);
    sink.append('3');
    sink.append('4');
    EXPECT_EQ(buffer.data(), std::string("ab-cdef1234").substr(0, size - 1));
    EXPECT_EQ(sink.length(), std::min<size_t>(size - 1, 11));
    EXPECT_EQ(sink.length() + sink.room(), size - 1);
}

TEST(TextSink, AppendsOneAfterTheOther) {
    for (size_t size = 1; size < 15; ++size) {
        expect_sequence(size);
    }
}

struct NumberCase {
    int64_t value;
    const char* decimal;
    const char* hexadecimal;
};

const NumberCase number_cases[] = {
    {0, "0", "0"},
    {9, "9", "9"},
    {10, "10", "a"},
    {99, "99", "63"},
    {255, "255", "ff"},
    {4294967295, "4294967295", "ffffffff"},
    {-1, "-1", "ffffffffffffffff"},
    {-2147483648LL, "-2147483648", "ffffffff80000000"},
    {std::numeric_limits<int64_t>::max(), "9223372036854775807", "7fffffffffffffff"},
    {std::numeric_limits<int64_t>::min(), "-9223372036854775808", "8000000000000000"},
};

TEST(TextSink, WritesNumbersAsPrintfDoes) {
    for (const NumberCase& row : number_cases) {
        for (size_t size = 1; size <= 24; ++size) {
            ExactArray<char> decimal(size);
            TextSink(decimal.data(), size).append_decimal(row.value);
            EXPECT_EQ(decimal.data(), std::string(row.decimal).substr(0, size - 1)) << size;
            ExactArray<char> hexadecimal(size);
            TextSink(hexadecimal.data(), size).append_hex(static_cast<uint64_t>(row.value));
            EXPECT_EQ(hexadecimal.data(), std::string(row.hexadecimal).substr(0, size - 1));
        }
    }
}

TEST(TextSink, WritesOctetsAsTwoDigits) {
    for (unsigned octet = 0; octet < 256; ++octet) {
        ExactArray<char> buffer(3);
        TextSink(buffer.data(), buffer.size()).append_hex_pair(static_cast<uint8_t>(octet));
        const std::string digits = "0123456789abcdef";
        EXPECT_EQ(buffer.data(), std::string{digits[octet / 16]} + digits[octet % 16]);
    }
}

TEST(TextSink, CountsWhatWasWrittenInPlace) {
    ExactArray<char> buffer(6);
    TextSink sink(buffer.data(), buffer.size());
    sink.append("ab");
    sink.position()[0] = 'c';
    sink.position()[1] = 'd';
    sink.advance(2);
    EXPECT_STREQ(buffer.data(), "abcd");
    sink.position()[0] = 'e';
    sink.advance(100);
    EXPECT_STREQ(buffer.data(), "abcde");
    EXPECT_EQ(sink.room(), 0U);
}

TEST(TextSink, TakesBackTheEndOfTheText) {
    ExactArray<char> buffer(6);
    TextSink sink(buffer.data(), buffer.size());
    sink.append("abcde");
    sink.cut(9);
    EXPECT_STREQ(buffer.data(), "abcde");
    sink.cut(2);
    EXPECT_STREQ(buffer.data(), "ab");
    EXPECT_EQ(sink.room(), 3U);
    sink.append('z');
    EXPECT_STREQ(buffer.data(), "abz");
}

TEST(TextSink, AnySequenceIsThePrefixOfTheWholeText) {
    wq::test::Random random;
    SCOPED_TRACE(random.name());
    for (int round = 0; round < 2000; ++round) {
        const size_t size = random.between(1, 60);
        ExactArray<char> buffer(size);
        TextSink sink(buffer.data(), size);
        std::string whole;
        while (whole.size() < 2 * size) {
            const auto number = static_cast<int32_t>(random.any_size());
            const std::string text(random.between(0, 20), 't');
            switch (random.between(0, 2)) {
                case 0:
                    sink.append_decimal(number);
                    whole.append(std::to_string(number));
                    break;
                case 1:
                    sink.append('c');
                    whole.append("c");
                    break;
                default:
                    sink.append(text);
                    whole.append(text);
            }
            ASSERT_EQ(buffer.data(), whole.substr(0, size - 1));
            ASSERT_EQ(sink.length() + sink.room(), size - 1);
        }
    }
}

}  // namespace
