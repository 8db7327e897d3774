#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace wq {
namespace {

// Programs cannot go on without their configuration, and none of them expects these calls to fail.
[[noreturn]] void give_up(const char* call, size_t size) {
    // The source is named as programs that watch for the message know it.
    std::fprintf(stderr, "%s(%zu) failed in file %s.\n", call, size, "./nl_readformat");
    std::exit(1);
}

}  // namespace
}  // namespace wq

void* doMalloc(size_t size) WQEVENTS_NOEXCEPT {
    void* memory = std::calloc(1, std::max<size_t>(size, 1));
    if (memory == nullptr) {
        wq::give_up("malloc", size);
    }
    return memory;
}

void* doRealloc(void* p, size_t size) WQEVENTS_NOEXCEPT {
    void* memory = std::realloc(p, std::max<size_t>(size, 1));
    if (memory == nullptr) {
        wq::give_up("realloc", size);
    }
    return memory;
}

char* doStrdup(const char* s) WQEVENTS_NOEXCEPT {
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

void doFree(void* p) WQEVENTS_NOEXCEPT {
    std::free(p);
}
