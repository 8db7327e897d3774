/*
 * The MIB library's stand-in: a tree of the names of object identifiers. The built-in names are
 * always in it; the definitions of the intermediate file (docs/mib.md) come on top.
 */
#ifndef WQEVENTS_PLATFORM_LIBMIB_H
#define WQEVENTS_PLATFORM_LIBMIB_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wq {

/*
 * A hash table of numbers that stand for records kept elsewhere; it grows with what is put in. The
 * hashes are kept beside the numbers, so that the records are looked at only where they match.
 */
class HashIndex {
  public:
    static constexpr uint32_t none = UINT32_MAX;

    /* The number put in with this hash that `matches`, or none. */
    template <typename Matches>
    uint32_t find(uint32_t hash, Matches matches) const {
        if (slots_.empty()) {
            return none;
        }
        size_t at = hash & (slots_.size() - 1);
        while (slots_[at].value != none &&
               (slots_[at].hash != hash || !matches(slots_[at].value))) {
            at = (at + 1) & (slots_.size() - 1);
        }
        return slots_[at].value;
    }

    void insert(uint32_t hash, uint32_t value);

  private:
    struct Slot {
        uint32_t hash;
        uint32_t value; /* none: the slot is free */
    };
    using Slots = std::vector<Slot>;

    static void put(Slots& slots, Slot slot);
    void grow();

    Slots slots_; /* as many as a power of two; at most half of them are taken */
    size_t count_ = 0;
};

/* The tree. A node is a number; one without a name of its own shows as its sub-identifier. */
class MibTree {
  public:
    static constexpr uint32_t root = 0;
    static constexpr uint32_t none = HashIndex::none;
    static constexpr size_t depth_max = 128; /* RFC 2578 3.5 */
    static constexpr size_t name_max = 255;

    MibTree();

    /* The child of `parent` with this sub-identifier, or none. */
    uint32_t child(uint32_t parent, uint32_t sub_id) const;
    /* The same, made where there is none; none where it would lie deeper than depth_max. */
    uint32_t make_child(uint32_t parent, uint32_t sub_id);

    /*
     * Gives a node a name of 1 to name_max characters, or another one. Returns where the text lies;
     * it stays there when the node gets another name.
     */
    uint32_t set_name(uint32_t node, std::string_view name);
    /* The text that lies there. */
    std::string_view text_at(uint32_t place) const;

    /*
     * Writes the dotted name of `oid` into `room`, as much as fits, and terminates it: ".iso.org"
     * and so on, the name of each node that has one and the numbers of the others. Returns its
     * length.
     */
    size_t render(std::span<const uint32_t> oid, std::span<char> room) const;

  private:
    struct Node {
        uint32_t parent;
        uint32_t sub_id;
        uint32_t name; /* where it lies; no_name: it has none */
        uint32_t depth;
    };

    static constexpr uint32_t no_name = UINT32_MAX;

    std::vector<Node> nodes_;
    HashIndex children_; /* by parent and sub-identifier */
    std::string texts_;  /* each behind an octet with its length */
};

/* The tree while definitions are added, which name their parents. */
class MibDefinitions {
  public:
    MibTree tree;

    /* Names the node, and from now on the name means that node. */
    void define(uint32_t node, std::string_view name);
    /* The node that the name was given to last, or none. */
    uint32_t find(std::string_view name) const;

  private:
    struct Definition {
        uint32_t name; /* where it lies in the tree */
        uint32_t node;
    };

    uint32_t find_definition(std::string_view name) const;

    std::vector<Definition> definitions_;
    HashIndex by_name_;
};

/* Definitions that hold the built-in names. */
MibDefinitions builtin_definitions();

/*
 * read_dotted_numbers: ".1.3.6" or "1.3.6", as many numbers as `oid` takes. Their count, or nothing
 * for any other text.
 */
std::optional<size_t> read_dotted_numbers(std::string_view text, std::span<uint32_t> oid);

/* Why an intermediate file was not read. */
struct MibFileFault {
    int error = 0;              /* errno if the file could not be opened or read */
    size_t line = 0;            /* else the line that is wrong */
    const char* text = nullptr; /* what is wrong with it, or that the file could not be read */
};

/* Adds what the file defines. Nothing is returned when all went well. */
std::optional<MibFileFault> read_mib_file(const char* path, MibDefinitions& definitions);

}  // namespace wq

#endif
