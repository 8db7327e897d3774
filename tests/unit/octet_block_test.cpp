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
        Words wide{};
        Words wide_portable{};
        ASSERT_EQ(wq::widen_block(wide.data(), fast.data()),
                  wq::widen_block_portable(wide_portable.data(), fast.data()));
        ASSERT_EQ(wide, wide_portable);
    }
}

}  // namespace
