#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

extern "C" const char* __asan_default_options();
/* Memory that is not there is what the test is about. */
const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

/* Hidden from the compiler, which knows that no such block exists. */
volatile size_t too_much = SIZE_MAX / 4;

std::string message(const char* call, size_t size) {
    return std::string(call)
        .append("\\(")
        .append(std::to_string(size))
        .append("\\) failed in file \\./nl_readformat\\.\n$");
}

TEST(DoMalloc, GivesZeros) {
    for (const size_t size : {size_t{1}, size_t{872}, size_t{100'000}}) {
        auto* block = static_cast<unsigned char*>(doMalloc(size));
        EXPECT_TRUE(std::ranges::all_of(std::span(block, size), [](int b) { return b == 0; }));
        std::memset(block, 0xa5, size);
        doFree(block);
    }
}

TEST(DoMalloc, NoBytesAreABlockToo) {
    void* block = doMalloc(0);
    EXPECT_NE(block, nullptr);
    doFree(block);
}

TEST(DoMalloc, EndsTheProcessWhenMemoryIsExhausted) {
    const size_t size = too_much;
    EXPECT_EXIT(doMalloc(size), ::testing::ExitedWithCode(1), message("malloc", size));
}

TEST(DoRealloc, KeepsWhatWasThere) {
    auto* text = static_cast<char*>(doRealloc(nullptr, 4));
    std::memcpy(text, "abc", 4);
    text = static_cast<char*>(doRealloc(text, 40'000));
    EXPECT_STREQ(text, "abc");
    text = static_cast<char*>(doRealloc(text, 2));
    EXPECT_EQ(text[0], 'a');
    text = static_cast<char*>(doRealloc(text, 0));
    EXPECT_NE(text, nullptr);
    doFree(text);
}

TEST(DoRealloc, EndsTheProcessWhenMemoryIsExhausted) {
    const size_t size = too_much;
    EXPECT_EXIT(doRealloc(nullptr, size), ::testing::ExitedWithCode(1), message("realloc", size));
}

TEST(DoStrdup, Copies) {
    const std::string text = "a text";
    char* copy = doStrdup(text.c_str());
    EXPECT_NE(copy, text.c_str());
    EXPECT_EQ(copy, text);
    doFree(copy);
    char* empty = doStrdup("");
    EXPECT_STREQ(empty, "");
    doFree(empty);
}

TEST(DoStrdup, NullIsNull) {
    EXPECT_EQ(doStrdup(nullptr), nullptr);
    doFree(nullptr);
}

}  // namespace
