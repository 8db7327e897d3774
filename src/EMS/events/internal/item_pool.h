// Memory for the items of one kind that the library makes. It tells them from those that programs
// make, and keeps a note beside each that programs do not see.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "EMS/events/internal/chunks.h"

namespace wq {

template <class Item, class Note>
class ItemPool {
  public:
    // An item of zeros; null if there is no memory.
    Item* take() {
        Chunk* chunk = open_ != nullptr && has_room(*open_) ? open_ : chunk_with_room();
        if (chunk == nullptr) {
            return nullptr;
        }
        open_ = chunk;
        Header* header = take_cell(*chunk);
        ++chunk->live;
        ++size_;
        header->live = true;
        return item_of(header);
    }

    // False if the item is none of the pool's.
    bool give_back(Item* item) {
        Chunk* chunk = chunks_.find(item);
        Header* header = chunk == nullptr ? nullptr : header_of(*chunk, item);
        if (header == nullptr) {
            return false;
        }
        header->live = false;
        header->note = Note();
        --size_;
        forbid(item, sizeof(Item));
        header->next_unused = static_cast<Header*>(chunk->unused);
        chunk->unused = header;
        if (--chunk->live == 0) {
            open_ = open_ == chunk ? nullptr : open_;
            chunks_.remove(*chunk);
        }
        return true;
    }

    // How many items are in use.
    std::size_t size() const { return size_; }

    // Null if the item is none of the pool's. Does not read the item.
    Note* note_of(const Item* item) {
        Chunk* chunk = chunks_.find(item);
        Header* header = chunk == nullptr ? nullptr : header_of(*chunk, item);
        return header == nullptr ? nullptr : &header->note;
    }

    // Calls `visit` with each item in use and its note.
    template <class Visit>
    void for_each(Visit visit) {
        chunks_.for_each([&](Chunk& chunk) {
            for (std::size_t at = 0; at < chunk.used; at += cell_size) {
                auto* header = reinterpret_cast<Header*>(chunk.begin + at);
                if (header->live) {
                    visit(*item_of(header), header->note);
                }
            }
        });
    }

  private:
    // A cell is a header and an item, each from the beginning of a line of the cache on.
    struct Header {
        Note note;
        Header* next_unused = nullptr;
        bool live = false;
    };
    static constexpr std::size_t line = Chunks::alignment;
    static constexpr std::size_t cell_size = line + (sizeof(Item) + line - 1) / line * line;
    static constexpr std::size_t fewest = 16;
    static_assert(sizeof(Header) <= line);

    static Item* item_of(Header* header) {
        return reinterpret_cast<Item*>(reinterpret_cast<char*>(header) + line);
    }

    static bool has_room(const Chunk& chunk) {
        return chunk.unused != nullptr || chunk.size - chunk.used >= cell_size;
    }

    Chunk* chunk_with_room() {
        Chunk* found = nullptr;
        chunks_.for_each([&](Chunk& chunk) { found = has_room(chunk) ? &chunk : found; });
        return found != nullptr ? found : chunks_.add(fewest * cell_size);
    }

    static Header* take_cell(Chunk& chunk) {
        if (auto* header = static_cast<Header*>(chunk.unused)) {
            chunk.unused = header->next_unused;
            permit(item_of(header), sizeof(Item));
            std::memset(static_cast<void*>(item_of(header)), 0, sizeof(Item));
            return header;
        }
        void* cell = reinterpret_cast<void*>(chunk.begin + chunk.used);
        permit(cell, sizeof(Header));
        auto* header = std::construct_at(static_cast<Header*>(cell));
        permit(item_of(header), sizeof(Item));
        chunk.used += cell_size;
        return header;
    }

    static Header* header_of(const Chunk& chunk, const Item* item) {
        const std::size_t offset = reinterpret_cast<uintptr_t>(item) - chunk.begin;
        if (offset >= chunk.used || offset % cell_size != line) {
            return nullptr;
        }
        auto* header = reinterpret_cast<Header*>(chunk.begin + (offset - line));
        return header->live ? header : nullptr;
    }

    Chunks chunks_;
    Chunk* open_ = nullptr;  // where the next one probably comes from
    std::size_t size_ = 0;
};

}  // namespace wq
