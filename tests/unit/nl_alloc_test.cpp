#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "EMS/events/internal/text_arena.h"
#include "support/trap_conf.h"

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

class FileTexts : public wq::test::TrapConf {
  protected:
    FileTexts() {
        EXPECT_EQ(read("CATEGORY 2 \"Error Events\"\nnine {.1.3.6.1.4.1.9}\n"
                       "t {.1.3.6.1.4.1.9} 6 1 A 1 0 \"Error Events\"\nUnit $1\nEXEC page $2\n"
                       "SDESC\nwhat it is\nEDESC\n"
                       "u {.1.3.6.1.4.1.9} 6 2 A 1 0 \"Error Events\"\nother\nSDESC\nEDESC\n"),
                  wq::test::ConfRead());
    }
};

TEST_F(FileTexts, AreReplacedByTheProgramsOwn) {
    trap_record* t = trap("t");
    doFree(t->trapDescription);
    t->trapDescription = doStrdup("another");
    doFree(t->execargs_ptr->rawstring);
    t->execargs_ptr->rawstring = nullptr;
    makeFormatString(doStrdup("new $3"), &t->description);
    EXPECT_STREQ(t->description.format, "new %s");
    doFree(EMScategories[2]);
    EMScategories[2] = doStrdup("Error Events");
}

TEST_F(FileTexts, GrowAndShrink) {
    trap_record* t = trap("t");
    t->trapDescription = static_cast<char*>(doRealloc(t->trapDescription, 50'000));
    EXPECT_STREQ(t->trapDescription, "what it is");
    std::memset(t->trapDescription, 'x', 49'999);
    t->trapDescription[49'999] = '\0';
    auto* raw = static_cast<char*>(doRealloc(t->description.rawstring, 4));
    t->description.rawstring = raw;
    EXPECT_EQ(std::string_view(raw, 4), "Unit");
    raw[3] = '\0';
}

TEST_F(FileTexts, OutliveTheModelIfTheyAreKept) {
    trap_record* t = trap("t");
    enterprise_list_head.next->trap_rec_list_head.next = t->next;
    char* raw = std::exchange(trap("u")->description.rawstring, nullptr);
    free_all_info();
    EXPECT_STREQ(t->name, "t");
    EXPECT_STREQ(t->trapDescription, "what it is");
    EXPECT_STREQ(t->description.format, "Unit %s");
    EXPECT_STREQ(raw, "other");
    free_trap_record(t);
    doFree(raw);
}

TEST(TextArena, GivesBlocksThatDoNotOverlap) {
    wq::TextArena arena;
    std::vector<char*> blocks;
    for (size_t size = 1; size < 3000; size += 7) {
        auto* block = static_cast<char*>(arena.take(size));
        std::memset(block, static_cast<int>(size % 251), size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(void*), 0U);
        EXPECT_GE(arena.bytes_from(block), size);
        blocks.push_back(block);
    }
    size_t size = 1;
    for (char* block : blocks) {
        const auto is_own = [&](char c) { return static_cast<unsigned char>(c) == size % 251; };
        EXPECT_TRUE(std::ranges::all_of(std::span(block, size), is_own)) << size;
        EXPECT_TRUE(arena.holds(block));
        size += 7;
    }
    char other = 0;
    EXPECT_FALSE(arena.holds(&other));
    EXPECT_FALSE(arena.give_back(&other));
    EXPECT_FALSE(arena.give_back(nullptr));
    for (char* block : blocks) {
        EXPECT_TRUE(arena.give_back(block));
    }
    EXPECT_FALSE(arena.holds(blocks.front())) << "the last one of a chunk frees it";
    EXPECT_FALSE(arena.holds(blocks.back()));
}

TEST(TextArena, RefusesLargeBlocks) {
    wq::TextArena arena;
    EXPECT_EQ(arena.take(20'000), nullptr);
    EXPECT_EQ(arena.take(SIZE_MAX), nullptr);
}

#if defined(WQ_ADDRESS_SANITIZER)
TEST(TextArena, ShowsWritesBesideABlock) {
    wq::TextArena arena;
    auto* block = static_cast<volatile char*>(arena.take(16));
    EXPECT_DEATH(block[16] = 'x', "use-after-poison");
    arena.give_back(const_cast<char*>(block));
}

TEST_F(FileTexts, ShowUsesAfterTheirEndAndAfterTheyWereFreed) {
    volatile char* text = trap("t")->trapDescription;
    EXPECT_DEATH(text[sizeof "what it is"] = 'x', "heap-buffer-overflow");
    volatile trap_record* t = trap("t");
    EXPECT_DEATH(
        {
            deleteTrapRecord("t");
            t->severity = 3;
        },
        "use-after-poison|use-after-free");
}
#endif

}  // namespace
