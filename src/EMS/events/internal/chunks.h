// Memory in chunks, each of which goes back to the system with the last block in it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WQ_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define WQ_ADDRESS_SANITIZER 1
#endif
#if defined(WQ_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace wq {

#if defined(WQ_ADDRESS_SANITIZER)
inline constexpr bool is_sanitized = true;
inline void forbid([[maybe_unused]] const void* at, std::size_t size) {
    ASAN_POISON_MEMORY_REGION(at, size);
}
inline void permit([[maybe_unused]] const void* at, std::size_t size) {
    ASAN_UNPOISON_MEMORY_REGION(at, size);
}
#else
inline constexpr bool is_sanitized = false;
// Nobody may read or write the bytes, or may again, as the address sanitizer then watches.
inline void forbid(const void* /*at*/, std::size_t /*size*/) {}
inline void permit(const void* /*at*/, std::size_t /*size*/) {}
#endif

struct Chunk {
    std::atomic<uintptr_t> begin = 0;   // at a multiple of Chunks::alignment
    std::atomic<std::size_t> size = 0;  // 0: there is none in this place
    void* memory = nullptr;
    std::size_t used = 0;    // bytes from its beginning
    std::size_t live = 0;    // blocks
    void* unused = nullptr;  // for the owner: what was given back
};

class Chunks {
  public:
    static constexpr std::size_t alignment = 64;

    // The chunk that holds the block, or null. Other threads may ask, too, for blocks of their own.
    Chunk* find(const void* block) {
        const auto address = reinterpret_cast<uintptr_t>(block);
        // The last ones are the largest.
        for (std::size_t i = count_.load(std::memory_order_acquire); i-- > 0;) {
            Chunk& chunk = all_[i];
            const std::size_t size = chunk.size.load(std::memory_order_acquire);
            if (address - chunk.begin.load(std::memory_order_acquire) < size &&
                size == chunk.size.load(std::memory_order_relaxed)) {
                return &chunk;
            }
        }
        return nullptr;
    }

    // A further chunk of zeros, as large as all that there are, in so far as there is memory, and
    // of at least `least` bytes. Null where that cannot be had.
    Chunk* add(std::size_t least) {
        Chunk* place = free_place();
        if (place == nullptr) {
            return nullptr;
        }
        std::size_t size = total_ > least ? total_ : least;
        place->memory = std::calloc(1, size + alignment);
        while (place->memory == nullptr && size / 2 >= least) {
            size /= 2;
            place->memory = std::calloc(1, size + alignment);
        }
        if (place->memory == nullptr) {
            return nullptr;
        }
        enter(*place, size);
        return place;
    }

    void remove(Chunk& chunk) {
        permit(reinterpret_cast<void*>(chunk.begin.load()), chunk.size);
        total_ -= chunk.size;
        chunk.size = 0;
        std::free(chunk.memory);
        chunk.memory = nullptr;
        std::size_t count = count_;
        while (count > 0 && all_[count - 1].size == 0) {
            --count;
        }
        count_.store(count, std::memory_order_release);
    }

    template <class Visit>
    void for_each(Visit visit) {
        for (std::size_t i = 0; i < count_; ++i) {
            if (all_[i].size != 0) {
                visit(all_[i]);
            }
        }
    }

  private:
    Chunk* free_place() {
        const std::size_t count = count_;
        for (std::size_t i = 0; i < count; ++i) {
            if (all_[i].size == 0) {
                return &all_[i];
            }
        }
        return count < all_.size() ? &all_[count] : nullptr;
    }

    void enter(Chunk& chunk, std::size_t size) {
        const auto address = reinterpret_cast<uintptr_t>(chunk.memory);
        chunk.begin = (address + alignment - 1) & ~uintptr_t{alignment - 1};
        chunk.used = 0;
        chunk.live = 0;
        chunk.unused = nullptr;
        chunk.size = size;
        total_ += size;
        advise(chunk);
        forbid(reinterpret_cast<void*>(chunk.begin.load()), size);
        const auto place = static_cast<std::size_t>(&chunk - all_.data());
        if (place >= count_) {
            count_.store(place + 1, std::memory_order_release);
        }
    }

    // Large pages make the first use of much memory and searches in it cheaper.
    static void advise(const Chunk& chunk) {
        constexpr std::size_t large_page = std::size_t{2} << 20;
        const uintptr_t first = (chunk.begin + large_page - 1) & ~uintptr_t{large_page - 1};
        const uintptr_t end = (chunk.begin + chunk.size) & ~uintptr_t{large_page - 1};
        if (end > first) {
            ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
        }
    }

    std::array<Chunk, 64> all_{};
    std::atomic<std::size_t> count_ = 0;
    std::size_t total_ = 0;  // bytes of all
};

}  // namespace wq
