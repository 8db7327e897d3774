// The containers that the index beside the configuration is made of.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace wq {

// Items by the hash of what they are looked up by; several may have the same.
template <class Item>
class HashTable {
  public:
    void insert(uint32_t hash, Item* item) {
        if (slots_.size() < 2 * (used_ + 1)) {
            grow();
        }
        place({item, hash});
        ++used_;
    }

    // Removes the item, which is there.
    void erase(uint32_t hash, const Item* item) {
        std::size_t at = hash & mask();
        while (slots_[at].item != item) {
            at = (at + 1) & mask();
        }
        close_gap(at);
        --used_;
    }

    // Calls `visit` with each item of that hash until it returns false.
    template <class Visit>
    void visit(uint32_t hash, Visit visit) const {
        if (slots_.empty()) {
            return;
        }
        for (std::size_t at = hash & mask(); slots_[at].item != nullptr; at = (at + 1) & mask()) {
            if (slots_[at].hash == hash && !visit(slots_[at].item)) {
                return;
            }
        }
    }

    std::size_t size() const { return used_; }

    void prefetch(uint32_t hash) const {
        if (!slots_.empty()) {
            __builtin_prefetch(&slots_[hash & mask()]);
        }
    }

  private:
    struct Slot {
        Item* item;  // null where the slot is free
        uint32_t hash;
    };

    std::size_t mask() const { return slots_.size() - 1; }

    void place(Slot slot) {
        std::size_t at = slot.hash & mask();
        while (slots_[at].item != nullptr) {
            at = (at + 1) & mask();
        }
        slots_[at] = slot;
    }

    void grow() {
        std::vector<Slot> old(std::max<std::size_t>(16, 2 * slots_.size()));
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.item != nullptr) {
                place(slot);
            }
        }
    }

    // A search ends at a free slot, so what comes after the gap moves up if it may.
    void close_gap(std::size_t gap) {
        for (std::size_t at = (gap + 1) & mask(); slots_[at].item != nullptr;
             at = (at + 1) & mask()) {
            const std::size_t home = slots_[at].hash & mask();
            if (((at - home) & mask()) >= ((at - gap) & mask())) {
                slots_[gap] = slots_[at];
                gap = at;
            }
        }
        slots_[gap] = {};
    }

    std::vector<Slot> slots_;  // a power of two of them, at least half of them free
    std::size_t used_ = 0;
};

// A sequence in the order of a list, in blocks so that an entry is put into the middle of a long
// one at little cost.
template <class Entry>
class OrderedBlocks {
  public:
    struct Place {
        std::size_t block = 0;
        std::size_t slot = 0;
        bool operator==(const Place&) const = default;
    };

    std::size_t size() const { return size_; }
    Place begin() const { return {}; }
    Place end() const { return {blocks_.size(), 0}; }
    const Entry& operator[](Place at) const { return blocks_[at.block][at.slot]; }
    const Entry& front() const { return firsts_.front(); }

    // The place before one that is not the first.
    Place before(Place at) const {
        if (at.slot == 0) {
            --at.block;
            at.slot = blocks_[at.block].size();
        }
        return {at.block, at.slot - 1};
    }

    Place after(Place at) const {
        return at.slot + 1 < blocks_[at.block].size() ? Place{at.block, at.slot + 1}
                                                      : Place{at.block + 1, 0};
    }

    // The first place whose entry is not `below`, which holds for a beginning of the sequence.
    template <class Below>
    Place first_not(Below below) const {
        const std::size_t number = count_below(firsts_, below);
        if (number == 0) {
            return begin();
        }
        const Block& block = blocks_[number - 1];
        fetch(block);
        const std::size_t slot = count_below(block, below);
        return slot == block.size() ? Place{number, 0} : Place{number - 1, slot};
    }

    // The entry at the place, if as many before it lie beside it; else null.
    const Entry* entry_after(std::size_t count, Place at) const {
        return at.slot >= count ? &blocks_[at.block][at.slot] : nullptr;
    }

    // The same where it is likely the end, as where a list in ascending order grows.
    template <class Below>
    Place first_not_from_end(Below below) const {
        return blocks_.empty() || below(blocks_.back().back()) ? end() : first_not(below);
    }

    void insert(Place at, const Entry& entry) {
        at = make_room(at);
        Block& block = blocks_[at.block];
        block.insert(block.begin() + static_cast<std::ptrdiff_t>(at.slot), entry);
        firsts_[at.block] = block.front();
        ++size_;
    }

    void erase(Place at) {
        Block& block = blocks_[at.block];
        block.erase(block.begin() + static_cast<std::ptrdiff_t>(at.slot));
        if (block.empty()) {
            blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(at.block));
            firsts_.erase(firsts_.begin() + static_cast<std::ptrdiff_t>(at.block));
        } else {
            firsts_[at.block] = block.front();
        }
        --size_;
    }

    void clear() {
        blocks_.clear();
        firsts_.clear();
        size_ = 0;
    }

    template <class Visit>
    void for_each(Visit visit) const {
        for (const Block& block : blocks_) {
            std::for_each(block.begin(), block.end(), visit);
        }
    }

  private:
    using Block = std::vector<Entry>;
    static constexpr std::size_t block_max = 32;

    // How many entries at the beginning are below: a search whose steps the processor need not
    // guess.
    template <class Below>
    static std::size_t count_below(const std::vector<Entry>& entries, Below below) {
        const Entry* first = entries.data();
        for (std::size_t left = entries.size(); left > 0;) {
            const std::size_t half = (left + 1) / 2;
            first += below(first[half - 1]) ? half : 0;
            left -= half;
        }
        return static_cast<std::size_t>(first - entries.data());
    }

    // All of it at once, instead of one part after the other as the search goes on.
    static void fetch(const Block& block) {
        constexpr std::size_t line = 64;
        const auto* at = reinterpret_cast<const char*>(block.data());
        const auto* end = reinterpret_cast<const char*>(block.data() + block.size());
        for (; at < end; at += line) {
            __builtin_prefetch(at);
        }
    }

    // Sees to it that the block of the new entry has room; gives the entry's place.
    Place make_room(Place at) {
        if (at.block == blocks_.size()) {
            if (at.block == 0 || blocks_.back().size() == block_max) {
                add_block(at.block);
                return at;
            }
            return {at.block - 1, blocks_.back().size()};
        }
        return blocks_[at.block].size() < block_max ? at : split(at);
    }

    Place split(Place at) {
        constexpr std::size_t half = block_max / 2;
        add_block(at.block + 1);
        Block& left = blocks_[at.block];
        Block& right = blocks_[at.block + 1];
        right.assign(left.begin() + half, left.end());
        left.erase(left.begin() + half, left.end());
        firsts_[at.block + 1] = right.front();
        return at.slot <= half ? at : Place{at.block + 1, at.slot - half};
    }

    void add_block(std::size_t number) {
        Block block;
        if (number != 0) {
            block.reserve(block_max);
        }
        blocks_.emplace(blocks_.begin() + static_cast<std::ptrdiff_t>(number), std::move(block));
        firsts_.emplace(firsts_.begin() + static_cast<std::ptrdiff_t>(number));
    }

    std::vector<Entry> firsts_;  // of each block, beside each other for the search
    std::vector<Block> blocks_;  // none of them empty
    std::size_t size_ = 0;
};

}  // namespace wq
