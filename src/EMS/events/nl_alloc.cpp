#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "EMS/events/internal/text_arena.h"
#include "EMS/events/nl_alloc.h"

namespace wq {
namespace {

constinit TextArena file_texts;

// Programs cannot go on without their configuration, and none of them expects these calls to fail.
[[noreturn]] void give_up(const char* call, size_t size) {
    // The source is named as programs that watch for the message know it.
    std::fprintf(stderr, "%s(%zu) failed in file %s.\n", call, size, "./nl_readformat");
    std::exit(1);
}

// A block of the arena cannot grow, and how long it is nobody knows: what comes after it may be
// copied along.
void* moved_out(void* block, size_t size) {
    void* memory = std::malloc(size);
    if (memory != nullptr) {
        std::memcpy(memory, block, std::min(file_texts.bytes_from(block), size));
        file_texts.give_back(block);
    }
    return memory;
}

}  // namespace

// Where the address sanitizer watches, it sees more of blocks that stand alone.
void* file_block(size_t size) {
    void* block = is_sanitized ? nullptr : file_texts.take(size);
    return block != nullptr ? block : doMalloc(size);
}

}  // namespace wq

void* doMalloc(size_t size) {
    void* memory = std::calloc(1, std::max<size_t>(size, 1));
    if (memory == nullptr) {
        wq::give_up("malloc", size);
    }
    return memory;
}

void* doRealloc(void* p, size_t size) {
    size = std::max<size_t>(size, 1);
    void* memory = wq::file_texts.holds(p) ? wq::moved_out(p, size) : std::realloc(p, size);
    if (memory == nullptr) {
        wq::give_up("realloc", size);
    }
    return memory;
}

char* doStrdup(const char* s) {
    if (s == nullptr) {
        return nullptr;
    }
    const size_t size = std::strlen(s) + 1;
    auto* copy = static_cast<char*>(std::malloc(size));
    if (copy == nullptr) {
        wq::give_up("malloc", size);
    }
    std::memcpy(copy, s, size);
    return copy;
}

void doFree(void* p) {
    if (p != nullptr && !wq::file_texts.give_back(p)) {
        std::free(p);
    }
}
