// Editing and searching a configuration when memory runs out: the index beside the lists is given
// up, and every answer is the one that following the lists gives.
#include <gtest/gtest.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>

#include <cstdlib>
#include <new>
#include <string>

#include "support/trap_model.h"

namespace {

using namespace wq::test;

// Allocations of C++ that still succeed while it is set; negative: all do.
long left_to_succeed = -1;
bool has_failed = false;

void* allocate(std::size_t size) {
    if (left_to_succeed == 0) {
        has_failed = true;
        return nullptr;
    }
    left_to_succeed -= left_to_succeed > 0 ? 1 : 0;
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

constexpr uint32_t oids[3][7] = {
    {1, 3, 6, 1, 4, 1, 3}, {1, 3, 6, 1, 4, 1, 1}, {1, 3, 6, 1, 4, 1, 2}};

// Takes no memory of C++.
trap_record* insert(enterprise_info* enterprise, const char* name, int specific, int nodes) {
    char** list = nullptr;
    int count = 0;
    int capacity = 0;
    for (char node[] = "a"; count < nodes; ++node[0]) {
        trpFmtAddSourceToList(&count, &capacity, &list, node);
    }
    return insertMallocTrapRecord(enterprise, name, 6, specific, count, list, 2, 'A',
                                  doStrdup("format $1"), nullptr, nullptr, nullptr, 1, 0, 0,
                                  nullptr, 0, nullptr, nullptr);
}

bool is_found(enterprise_info* enterprise, const trap_record* record) {
    trap_record* found = nullptr;
    enterprise_info* of = nullptr;
    return nameToTrapAndEnterprise(record->name, &found, &of) == 0 && found == record &&
           of == enterprise &&
           find_exact_trap_record(enterprise, 6, record->specific_trap, &found) == 0;
}

// A bit for each step that went wrong.
unsigned edit_and_search() {
    enterprise_info* e[3] = {};
    unsigned wrong = 0;
    for (int i = 0; i < 3; ++i) {
        insert_enterprise(oids[i], 7, "e");
        wrong |= find_enterprise(oids[i], 7, &e[i]) == 0 ? 0U : 1U;
    }
    trap_record* records[40] = {};
    for (int i = 0; i < 40; ++i) {
        records[i] = insert(e[i % 3], "t", 40 - i / 2, i % 4);
        wrong |= records[i] != nullptr && is_found(e[i % 3], records[i]) ? 0U : 2U;
    }
    wrong |= nameToExactTrap("none") == nullptr ? 0U : 4U;
    trap_record* kept = head_of(e[1])->next;
    head_of(e[1])->next = kept->next->next;
    trapspec_relinked();
    free_trap_record(kept->next);
    free_trap_record(kept);
    for (trap_record* r = head_of(e[1])->next; r != nullptr; r = r->next) {
        wrong |= is_found(e[1], r) ? 0U : 8U;
    }
    trap_record* format = nullptr;
    find_trap_format(oids[0], 7, 6, 40, &format, nullptr, "node");
    wrong |= format == &default_trap_record || format->specific_trap == 40 ? 0U : 16U;
    wrong |= deleteTrapRecord("t") == 0 && nameToExactTrap("t") == nullptr ? 0U : 32U;
    return wrong;
}

TEST(TrapModelMemory, IsNotNeededForRightAnswers) {
    const TrapModel model;
    for (long successes = 0;; ++successes) {
        has_failed = false;
        left_to_succeed = successes;
        const unsigned wrong = edit_and_search();
        left_to_succeed = -1;
        ASSERT_EQ(wrong, 0U) << "after " << successes;
        free_all_info();
        if (!has_failed) {
            EXPECT_GT(successes, 20);
            break;
        }
    }
}

}  // namespace
