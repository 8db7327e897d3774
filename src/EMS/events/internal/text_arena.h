// Memory for the texts of a file: blocks beside each other, which are freed singly, but go back to
// the system by the chunk.
#pragma once

#include <cstddef>

#include "EMS/events/internal/chunks.h"

namespace wq {

class TextArena {
  public:
    // A block, whose contents are not set; null if there is no memory, or the block is large.
    void* take(std::size_t size) {
        constexpr std::size_t largest = 16384;
        const std::size_t room = room_for(size);
        if (size > largest) {
            return nullptr;
        }
        if (open_ == nullptr || open_->size - open_->used < room) {
            open_ = chunks_.add(smallest_chunk);
        }
        if (open_ == nullptr) {
            return nullptr;
        }
        void* block = reinterpret_cast<void*>(open_->begin + open_->used);
        open_->used += room;
        ++open_->live;
        permit(block, size);
        return block;
    }

    // False if the block is none of the arena's.
    bool give_back(void* block) {
        Chunk* chunk = chunks_.find(block);
        if (chunk == nullptr) {
            return false;
        }
        forbid(block, 1);
        if (--chunk->live == 0) {
            open_ = open_ == chunk ? nullptr : open_;
            chunks_.remove(*chunk);
        }
        return true;
    }

    bool holds(const void* block) { return chunks_.find(block) != nullptr; }

    // Of a block of the arena: at least the bytes that the block was made with, and not more than
    // there are after its beginning.
    std::size_t bytes_from(const void* block) {
        const Chunk* chunk = chunks_.find(block);
        return chunk->begin + chunk->used - reinterpret_cast<uintptr_t>(block);
    }

  private:
    static constexpr std::size_t smallest_chunk = 65536;

    // Blocks begin at multiples of 8. Between two there is a byte at least that the address
    // sanitizer watches.
    static std::size_t room_for(std::size_t size) {
        constexpr std::size_t step = 8;
        return (size + (is_sanitized ? step : 0) + step - 1) / step * step;
    }

    Chunks chunks_;
    Chunk* open_ = nullptr;  // where the next block probably goes
};

}  // namespace wq
