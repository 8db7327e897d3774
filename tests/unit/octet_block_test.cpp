#include "EMS/events/internal/octet_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace {

using Words = std::array<uint32_t, wq::octet_block>;
using Octets = std::array<uint8_t, wq::octet_block>;

struct NarrowRow {
    const char* title;
    Words words;
    std::size_t clean;
};

const NarrowRow narrow_rows[] = {
    {"all small", {0, 1, 2, 3, 4, 5, 6, 127}, 8},
    {"first too large", {128, 1, 2, 3, 4, 5, 6, 7}, 0},
    {"last too large", {0, 1, 2, 3, 4, 5, 6, 128}, 7},
    {"fourth too large", {1, 1, 1, 256, 1, 1, 1, 1}, 3},
    {"low octet small, value large", {1, 0x10000, 0, 0, 0, 0, 0, 0}, 1},
    {"top bit alone", {1, 1, 1, 1, 0x80000000, 1, 1, 1}, 4},
    {"all ones", {1, 1, 0xFFFFFFFF, 1, 1, 1, 1, 1}, 2},
};

TEST(OctetBlock, NarrowCountsTheLeadingSmallWords) {
    for (const NarrowRow& row : narrow_rows) {
        SCOPED_TRACE(row.title);
        Octets octets{};
        EXPECT_EQ(wq::narrow_block(octets.data(), row.words.data()), row.clean);
        for (std::size_t i = 0; i < row.clean; ++i) {
            EXPECT_EQ(octets[i], row.words[i]);
        }
    }
}

TEST(OctetBlock, NarrowTailTakesTheLastWords) {
    for (const NarrowRow& row : narrow_rows) {
        SCOPED_TRACE(row.title);
        for (std::size_t count = 0; count <= wq::octet_block; ++count) {
            const auto* const first = row.words.data() + wq::octet_block - count;
            const auto* const large =
                std::find_if(first, first + count, [](uint32_t word) { return word > 127; });
            Octets octets{};
            EXPECT_EQ(wq::narrow_tail(octets.data(), first + count, count),
                      static_cast<std::size_t>(large - first));
            EXPECT_TRUE(std::equal(first, large, octets.begin()));
        }
    }
}

TEST(OctetBlock, WidenCountsTheLeadingSmallOctets) {
    for (std::size_t large = 0; large <= wq::octet_block; ++large) {
        Octets octets = {0, 1, 2, 3, 4, 5, 6, 0x7F};
        if (large < wq::octet_block) {
            octets[large] = 0x80;
        }
        Words words{};
        EXPECT_EQ(wq::widen_block(words.data(), octets.data()), large);
        EXPECT_TRUE(std::equal(octets.begin(), octets.end(), words.begin(), words.end()));
    }
}

// The portable way is the one of other processors; both must do the same.
TEST(OctetBlock, PortableAndFastWaysAgree) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        Words words{};
        std::generate(words.begin(), words.end(), [&] {
            return static_cast<uint32_t>(random() >> (random() % 4 == 0 ? 0 : 26));
        });
        Octets fast{};
        Octets portable{};
        ASSERT_EQ(wq::narrow_block(fast.data(), words.data()),
                  wq::narrow_block_portable(portable.data(), words.data()));
        ASSERT_EQ(fast, portable);
        const std::size_t count = static_cast<std::size_t>(round) % (wq::octet_block + 1);
        Octets tail{};
        Octets tail_portable{};
        const std::size_t clean = wq::narrow_tail(tail.data(), words.end(), count);
        ASSERT_EQ(clean, wq::narrow_tail_portable(tail_portable.data(), words.end(), count));
        ASSERT_TRUE(std::equal(tail.begin(), tail.begin() + clean, tail_portable.begin()));
        Words wide{};
        Words wide_portable{};
        ASSERT_EQ(wq::widen_block(wide.data(), fast.data()),
                  wq::widen_block_portable(wide_portable.data(), fast.data()));
        ASSERT_EQ(wide, wide_portable);
    }
}

}  // namespace
