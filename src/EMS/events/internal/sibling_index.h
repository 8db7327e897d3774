// Where to begin the walk in chains of siblings that are too long to be walked from their start.
//
// The chain stays what counts: an index only names a node of it from which the walk to a value is
// short, so that nodes which somebody linked in by hand are met all the same. It relies on the
// nodes that it knows being in their chain still; wqevents/names.h asks callers for that.
#pragma once

#include <wqevents/names.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

namespace wq {

// The children of one parent in blocks of limited size, so that they cost little in whatever order
// they come.
class SiblingIndex {
  public:
    // Takes in a whole chain; false where it does not ascend, as only a chain made by hand may.
    bool add_chain(oidnode* first) {
        for (oidnode* node = first; node != nullptr; node = node->sib) {
            add(node);
            if (node->sib != nullptr && node->sib->val <= node->val) {
                return false;
            }
        }
        return true;
    }

    void add(oidnode* node) {
        const auto above = blocks_.upper_bound(node->val);
        if (above == blocks_.begin()) {
            add_in_front(node);
            return;
        }
        Block& block = std::prev(above)->second;
        const std::size_t at = block.rank(node->val);
        const bool appends = at == block.vals.size();
        block.insert(at, node);
        if (block.vals.size() > block_max) {
            // Values that come in ascending order leave full blocks behind.
            split(block, appends ? block_max : block_max / 2);
        }
    }

    // The node of that value, or else the last one known with a lower value; null where there is
    // neither.
    oidnode* find_or_before(std::uint32_t val) const {
        const auto above = blocks_.upper_bound(val);
        if (above == blocks_.begin()) {
            return nullptr;
        }
        const Block& block = std::prev(above)->second;
        const std::size_t at = block.rank(val);
        const bool is_here = at < block.vals.size() && block.vals[at] == val;
        return block.nodes[is_here ? at : at - 1];
    }

    const oidnode* first() const {
        return blocks_.empty() ? nullptr : blocks_.begin()->second.nodes.front();
    }

  private:
    static constexpr std::size_t block_max = 512;

    struct Block {
        std::vector<std::uint32_t> vals;
        std::vector<oidnode*> nodes;  // as many, in the same order

        // How many values are lower.
        std::size_t rank(std::uint32_t val) const {
            if (vals.back() < val) {
                return vals.size();
            }
            return static_cast<std::size_t>(std::lower_bound(vals.begin(), vals.end(), val) -
                                            vals.begin());
        }
        void insert(std::size_t at, oidnode* node) {
            const auto offset = static_cast<std::ptrdiff_t>(at);
            vals.insert(vals.begin() + offset, node->val);
            nodes.insert(nodes.begin() + offset, node);
        }
    };

    void add_in_front(oidnode* node) {
        if (blocks_.empty() || blocks_.begin()->second.vals.size() >= block_max) {
            blocks_[node->val].insert(0, node);
            return;
        }
        auto block = blocks_.extract(blocks_.begin());
        block.key() = node->val;
        block.mapped().insert(0, node);
        blocks_.insert(std::move(block));
    }

    void split(Block& block, std::size_t left) {
        const auto offset = static_cast<std::ptrdiff_t>(left);
        Block right{{block.vals.begin() + offset, block.vals.end()},
                    {block.nodes.begin() + offset, block.nodes.end()}};
        const std::uint32_t low = right.vals.front();
        blocks_.emplace(low, std::move(right));
        block.vals.resize(left);
        block.nodes.resize(left);
    }

    std::map<std::uint32_t, Block> blocks_;  // by their lowest value; none is empty
};

// The indexes of all parents that have one. Where there is no memory for an index there is none,
// and the walk takes longer.
class SiblingIndexes {
  public:
    // The parent's index, in step with its chain; null where it has none.
    SiblingIndex* find(const oidnode* parent) {
        if (all_.empty()) {
            return nullptr;
        }
        const auto found = all_.find(parent);
        if (found == all_.end()) {
            return nullptr;
        }
        Dated& dated = found->second;
        if (dated.date != date_ || dated.index.first() != parent->child) {
            return build(parent);
        }
        return &dated.index;
    }

    // Makes the parent's index from its chain; null, and none then, where that cannot be.
    SiblingIndex* build(const oidnode* parent) {
        try {
            Dated dated{date_, {}};
            if (dated.index.add_chain(parent->child)) {
                return &all_.insert_or_assign(parent, std::move(dated)).first->second.index;
            }
        } catch (const std::bad_alloc&) {
            // As with a chain that does not ascend.
        }
        forget(parent);
        return nullptr;
    }

    // Takes in a node that was just linked into the chain. False where there is no index.
    bool add(const oidnode* parent, oidnode* node) {
        const auto found = all_.find(parent);
        if (found == all_.end()) {
            return false;
        }
        try {
            found->second.index.add(node);
        } catch (const std::bad_alloc&) {
            all_.erase(found);
        }
        return true;
    }

    void forget(const oidnode* parent) {
        if (!all_.empty()) {
            all_.erase(parent);
        }
    }

    // Nodes are gone: what an index knows is not to be relied on before it is made anew.
    void outdate() { ++date_; }

  private:
    struct Dated {
        std::uint64_t date;
        SiblingIndex index;
    };

    std::uint64_t date_ = 0;
    std::unordered_map<const oidnode*, Dated> all_;
};

}  // namespace wq
