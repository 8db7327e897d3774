#include "platform/libmib.h"

#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/internal/text_sink.h"
#include "platform/weak.h"

namespace wq {
namespace {

constexpr size_t name_room = 2048; /* what sprint__objid() may write, terminator included */

/*
 * Eight children in a row lie side by side: most tables of names are read, and asked for, in the
 * order of their numbers.
 */
uint32_t hash_of_child(uint32_t parent, uint32_t sub_id) {
    uint64_t hash = (uint64_t{parent} << 32 | sub_id >> 3) * 0x9E3779B97F4A7C15U;
    hash = (hash ^ hash >> 32) * 0xD6E8FEB86659FD93U;
    return static_cast<uint32_t>(hash >> 32 << 3) | (sub_id & 7);
}

uint32_t hash_of_name(std::string_view name) {
    return static_cast<uint32_t>(std::hash<std::string_view>{}(name));
}

/* Numbers of 32 bits are used for places; beyond them there is no room, as where memory ends. */
uint32_t place_number(size_t place) {
    if (place >= UINT32_MAX) {
        throw std::length_error("too many names");
    }
    return static_cast<uint32_t>(place);
}

}  // namespace

void HashIndex::insert(uint32_t hash, uint32_t value) {
    if (2 * (count_ + 1) > slots_.size()) {
        grow();
    }
    put(slots_, {hash, value});
    ++count_;
}

void HashIndex::put(Slots& slots, Slot slot) {
    size_t at = slot.hash & (slots.size() - 1);
    while (slots[at].value != none) {
        at = (at + 1) & (slots.size() - 1);
    }
    slots[at] = slot;
}

void HashIndex::grow() {
    constexpr size_t smallest = 16;
    Slots wider(std::max(smallest, 2 * slots_.size()), Slot{0, none});
    for (const Slot& slot : slots_) {
        if (slot.value != none) {
            put(wider, slot);
        }
    }
    slots_.swap(wider);
}

MibTree::MibTree() : nodes_(1, Node{none, 0, no_name, 0}) {}

uint32_t MibTree::child(uint32_t parent, uint32_t sub_id) const {
    return children_.find(hash_of_child(parent, sub_id), [&](uint32_t node) {
        return nodes_[node].parent == parent && nodes_[node].sub_id == sub_id;
    });
}

uint32_t MibTree::make_child(uint32_t parent, uint32_t sub_id) {
    const uint32_t known = child(parent, sub_id);
    if (known != none) {
        return known;
    }
    const uint32_t depth = nodes_[parent].depth + 1;
    if (depth > depth_max) {
        return none;
    }
    const uint32_t node = place_number(nodes_.size());
    nodes_.push_back({parent, sub_id, no_name, depth});
    children_.insert(hash_of_child(parent, sub_id), node);
    return node;
}

uint32_t MibTree::set_name(uint32_t node, std::string_view name) {
    const uint32_t place = place_number(texts_.size());
    texts_.push_back(static_cast<char>(name.size()));
    texts_.append(name);
    nodes_[node].name = place;
    return place;
}

std::string_view MibTree::text_at(uint32_t place) const {
    return {texts_.data() + place + 1, static_cast<unsigned char>(texts_[place])};
}

size_t MibTree::render(std::span<const uint32_t> oid, std::span<char> room) const {
    TextSink sink(room.data(), room.size());
    uint32_t node = root;
    for (const uint32_t sub_id : oid) {
        if (sink.room() == 0) {
            break;
        }
        sink.append('.');
        node = node != none ? child(node, sub_id) : none;
        if (node != none && nodes_[node].name != no_name) {
            sink.append(text_at(nodes_[node].name));
        } else {
            sink.append_decimal(sub_id);
        }
    }
    return sink.length();
}

void MibDefinitions::define(uint32_t node, std::string_view name) {
    const uint32_t place = tree.set_name(node, name);
    const uint32_t known = find_definition(name);
    if (known != HashIndex::none) {
        definitions_[known].node = node;
        return;
    }
    const uint32_t number = place_number(definitions_.size());
    definitions_.push_back({place, node});
    by_name_.insert(hash_of_name(name), number);
}

uint32_t MibDefinitions::find_definition(std::string_view name) const {
    return by_name_.find(hash_of_name(name), [&](uint32_t definition) {
        return tree.text_at(definitions_[definition].name) == name;
    });
}

uint32_t MibDefinitions::find(std::string_view name) const {
    const uint32_t known = find_definition(name);
    return known != HashIndex::none ? definitions_[known].node : MibTree::none;
}

std::optional<size_t> read_dotted_numbers(std::string_view text, std::span<uint32_t> oid) {
    const char* at = text.data();
    const char* end = at + text.size();
    if (text.starts_with('.')) {
        ++at;
    }
    for (size_t count = 0; count < oid.size(); ++at) {
        const auto [stop, error] = std::from_chars(at, end, oid[count]);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        ++count;
        if (stop == end) {
            return count;
        }
        if (*stop != '.') {
            return std::nullopt;
        }
        at = stop;
    }
    return std::nullopt;
}

namespace {

/*
 * The names given out last. A storm of traps asks for the same few identifiers again and again, and
 * finding a name here takes a tenth of the time that the way down the tree takes.
 */
class RecentNames {
  public:
    /* What is longer is not remembered. */
    struct Entry {
        uint32_t length; /* of oid; 0: unused */
        uint32_t text_length;
        std::array<uint32_t, 30> oid;
        std::array<char, 128> text; /* terminated */
    };

    const Entry* find(std::span<const uint32_t> oid) const {
        const Entry& entry = entries_[place(oid)];
        const bool same = entry.length == oid.size() &&
                          std::memcmp(entry.oid.data(), oid.data(), oid.size_bytes()) == 0;
        return same ? &entry : nullptr;
    }

    void remember(std::span<const uint32_t> oid, std::string_view text) {
        Entry& entry = entries_[place(oid)];
        if (oid.size() > entry.oid.size() || text.size() >= entry.text.size()) {
            return;
        }
        std::copy(oid.begin(), oid.end(), entry.oid.begin());
        text.copy(entry.text.data(), text.size());
        entry.text[text.size()] = '\0';
        entry.text_length = static_cast<uint32_t>(text.size());
        entry.length = static_cast<uint32_t>(oid.size());
    }

    void forget_all() {
        for (Entry& entry : entries_) {
            entry.length = 0;
        }
    }

  private:
    /* By the end of the identifier: what binding it is, and of which row. */
    static size_t place(std::span<const uint32_t> oid) {
        const auto tail = oid.last(std::min<size_t>(oid.size(), 8));
        uint64_t hash = oid.size();
        uint64_t factor = 0x9E3779B97F4A7C15U;
        for (const uint32_t sub_id : tail) {
            hash += (sub_id + 1) * factor;
            factor += 0xBF58476D1CE4E5BAU;
        }
        return hash >> 56;
    }

    std::array<Entry, 256> entries_{};
};

struct MibState {
    MibTree tree = builtin_definitions().tree;
    RecentNames recent;
    KeptText file_names;
};

/* One thread at a time uses it, as all that formats traps. */
MibState& mib_state() {
    return lasting<MibState>();
}

void write_name(MibState& state, std::span<const uint32_t> oid, char* buf) {
    if (const RecentNames::Entry* known = state.recent.find(oid)) {
        std::memcpy(buf, known->text.data(), known->text_length + 1);
        return;
    }
    const size_t length = state.tree.render(oid, {buf, name_room});
    state.recent.remember(oid, {buf, length});
}

/* The file is that of the platform's own choice, which need not have one. */
bool is_file_optional() {
    return std::getenv("WQMIBFILE") == nullptr;
}

void log_fault(const char* path, const MibFileFault& fault) {
    if (fault.line != 0) {
        WQuLogS(0, 0, nullptr, 0, 0, "%s:%zu: %s", path, fault.line, fault.text);
    } else if (fault.text != nullptr) {
        WQuLogS(0, 0, nullptr, 0, 0, "%s %s: %s", fault.text, path, std::strerror(fault.error));
    } else {
        WQuLogS(0, 0, nullptr, 0, 0, "%s: %s", path, std::strerror(fault.error));
    }
}

/* What was loaded before stays where this fails. */
int load_mib(const char* path) {
    MibDefinitions definitions = builtin_definitions();
    const std::optional<MibFileFault> fault = read_mib_file(path, definitions);
    const bool missing = fault && (fault->error == ENOENT || fault->error == ENOTDIR);
    if (fault && !(missing && is_file_optional())) {
        log_fault(path, *fault);
        return -1;
    }
    MibState& state = mib_state();
    state.tree = std::move(definitions.tree);
    state.recent.forget_all();
    return 0;
}

void find_file_name(std::string& name) {
    if (const char* given = std::getenv("WQMIBFILE")) {
        name = given;
        return;
    }
    const std::unique_ptr<char, decltype(&std::free)> path(
        _WQConcatPath(_WQconfDirName(nullptr), "mib.txt"), std::free);
    name = path != nullptr ? path.get() : "mib.txt";
}

}  // namespace
}  // namespace wq

WQ_STAND_IN void sprint__objid(char* buf, const uint32_t* oid, int len) {
    if (buf == nullptr) {
        return;
    }
    *buf = '\0';
    if (oid == nullptr || len <= 0) {
        return;
    }
    const std::span<const uint32_t> whole(oid, static_cast<size_t>(len));
    try {
        wq::write_name(wq::mib_state(), whole, buf);
    } catch (const std::exception&) { /* no memory for the names */
        *buf = '\0';
    }
}

WQ_STAND_IN int WQmib_load_mib(void) {
    try {
        const char* path = WQmib_get_mib_filename();
        return path != nullptr ? wq::load_mib(path) : -1;
    } catch (const std::exception&) { /* no memory */
        return -1;
    }
}

WQ_STAND_IN const char* WQmib_get_mib_filename(void) {
    try {
        std::string name;
        wq::find_file_name(name);
        return wq::mib_state().file_names.keep(name);
    } catch (const std::exception&) { /* no memory */
        return "mib.txt";
    }
}

WQ_STAND_IN int WQmib_read_numeric_objid(const char* text, uint32_t* oid, int* len) {
    if (text == nullptr || oid == nullptr || len == nullptr || *len <= 0) {
        return -1;
    }
    const auto count = wq::read_dotted_numbers(text, {oid, static_cast<size_t>(*len)});
    if (!count) {
        return -1;
    }
    *len = static_cast<int>(*count);
    return 0;
}
