#include <wqevents/names.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <forward_list>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "EMS/events/internal/labels.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/internal/oid_lines.h"
#include "EMS/events/internal/sibling_index.h"
#include "EMS/events/internal/text_scan.h"

oidnode* oidTree = nullptr;

namespace wq {
namespace {

// Chains up to this length are walked and have no index.
constexpr int short_chain = 32;
// So far every chain is walked before an index is asked for.
constexpr int first_steps = 8;

// As much of an identifier's text is used.
constexpr std::size_t oid_text_max = 127;
// Each number but the last needs a character and a dot.
constexpr std::size_t oid_text_numbers_max = (oid_text_max + 1) / 2;

constexpr int ent_oid_max = sizeof(local_map::ent_oid) / sizeof(std::uint32_t);

struct NameTrees {
    SiblingIndexes indexes;
    std::forward_list<std::string> found;  // results of findOidInTree(), the last one first
    bool has_dumped = false;
};

NameTrees& trees() {
    return lasting<NameTrees>();
}

// The text as a result that stays readable: the next one overwrites it, but never frees it.
char* keep_found(NameTrees& of, const std::string& text) {
    constexpr std::size_t least_capacity = 256;
    if (of.found.empty() || of.found.front().capacity() < text.size()) {
        std::string longer;
        longer.reserve(std::max(2 * text.size(), least_capacity));
        of.found.push_front(std::move(longer));
    }
    return of.found.front().assign(text).data();
}

struct SubIdentifier {
    std::uint32_t value = 0;
    bool is_number = false;
};

// An unsigned number, hexadecimal behind 0x, octal behind 0, with blanks before it and anything
// after it. A 0 is a number only where the text begins with it; what exceeds 32 bits is none.
SubIdentifier read_sub_identifier(std::string_view text) {
    SubIdentifier result;
    result.is_number = text.starts_with('0');
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const int base = is_hexadecimal ? 16 : text.starts_with('0') ? 8 : 10;
    text.remove_prefix(is_hexadecimal ? 2 : 0);
    const auto read = std::from_chars(text.data(), text.data() + text.size(), result.value, base);
    if (read.ec == std::errc::result_out_of_range) {
        return {};
    }
    result.is_number = result.is_number || result.value != 0;
    return result;
}

// Cuts the part before the first dot off `text`; all of it where there is none.
std::string_view take_part(std::string_view& text) {
    const std::size_t dot = text.find('.');
    const std::string_view part = text.substr(0, dot);
    text.remove_prefix(dot == std::string_view::npos ? text.size() : dot + 1);
    return part;
}

struct OidNumbers {
    std::array<std::uint32_t, oid_text_numbers_max> numbers;
    std::size_t count = 0;

    std::span<const std::uint32_t> all() const { return {numbers.data(), count}; }
};

// The numbers that `text` spells, a leading dot or none; false where a part is no number.
bool read_oid_text(const char* text, OidNumbers& oid) {
    std::string_view rest(text, strnlen(text, oid_text_max));
    rest.remove_prefix(rest.starts_with('.') ? 1 : 0);
    bool more = true;
    while (more) {
        more = rest.find('.') != std::string_view::npos;
        const SubIdentifier number = read_sub_identifier(take_part(rest));
        if (!number.is_number) {
            return false;
        }
        oid.numbers[oid.count++] = number.value;
    }
    return true;
}

// Walks at most `steps` siblings from `*link` on to the first that is not below `val`. Returns the
// link to it, null in the link standing for the end, or the link where it stopped.
oidnode** walk(oidnode** link, std::uint32_t val, int steps) {
    for (; steps > 0 && *link != nullptr && (*link)->val < val; --steps) {
        link = &(*link)->sib;
    }
    return link;
}

bool has_arrived(const oidnode* node, std::uint32_t val) {
    return node == nullptr || node->val >= val;
}

// Where a child is, or where it belongs: in front of `node`, which is null at the chain's end.
struct Place {
    oidnode** link;  // leads to `node`; null where the node itself is found without it
    oidnode* node;
};

Place walk_to_end(oidnode** link, std::uint32_t val) {
    while (!has_arrived(*link, val)) {
        link = &(*link)->sib;
    }
    return {link, *link};
}

// The place of `val` as find_place() gives it, or a link short of it. `link` is where to begin
// where the index has nothing to begin with; a node of that value has no link here.
Place place_by_index(const SiblingIndex& index, oidnode** link, std::uint32_t val) {
    oidnode* near = index.find_or_before(val);
    if (near != nullptr && near->val == val) {
        return {nullptr, near};
    }
    link = walk(near == nullptr ? link : &near->sib, val, short_chain);
    return {link, *link};
}

// Where the parent's child of that value is or belongs.
Place find_place(oidnode* parent, std::uint32_t val) {
    oidnode** link = walk(&parent->child, val, first_steps);
    if (has_arrived(*link, val)) {
        return {link, *link};
    }
    const SiblingIndex* index = trees().indexes.find(parent);
    if (index == nullptr) {
        return walk_to_end(link, val);
    }
    const Place place = place_by_index(*index, link, val);
    if (has_arrived(place.node, val)) {
        return place;
    }
    // More nodes were linked in by hand than are worth walking a second time.
    index = trees().indexes.build(parent);
    return index == nullptr ? walk_to_end(place.link, val)
                            : place_by_index(*index, place.link, val);
}

bool is_long_chain(const oidnode* node) {
    int length = 0;
    for (; node != nullptr && length <= short_chain; node = node->sib) {
        ++length;
    }
    return length > short_chain;
}

// The parent's child of that value, made where there is none; null when there is no memory.
oidnode* find_or_add_child(oidnode* parent, std::uint32_t val) {
    const Place place = find_place(parent, val);
    if (place.node != nullptr && place.node->val == val) {
        return place.node;
    }
    oidnode* node = newOidNode(val);
    if (node == nullptr) {
        return nullptr;
    }
    node->sib = place.node;
    *place.link = node;
    if (!trees().indexes.add(parent, node) && is_long_chain(parent->child)) {
        trees().indexes.build(parent);
    }
    return node;
}

oidnode* find_or_add_node(oidnode* root, std::span<const std::uint32_t> oid) {
    oidnode* node = root;
    for (const std::uint32_t val : oid) {
        if (node == nullptr) {
            break;
        }
        node = find_or_add_child(node, val);
    }
    return node;
}

oidnode* find_child(oidnode* parent, std::uint32_t val) {
    // Most chains are this short.
    oidnode* child = *walk(&parent->child, val, first_steps);
    if (!has_arrived(child, val)) {
        child = find_place(parent, val).node;
    }
    return child != nullptr && child->val == val ? child : nullptr;
}

// The node that the identifier leads to from there, or null.
oidnode* find_node(oidnode* from, std::span<const std::uint32_t> oid) {
    for (const std::uint32_t val : oid) {
        if (from == nullptr) {
            break;
        }
        from = find_child(from, val);
    }
    return from;
}

char* text_of(const oidnode* node) {
    return node == nullptr || node->data == nullptr ? nullptr : node->data->mapping_str;
}

void attach_name(oidnode& node, oiddata* data) {
    if (node.data != data) {
        std::free(node.data);
        node.data = data;
    }
}

using Trail = std::vector<const oidnode*>;

// The next node in depth-first order behind the last of the trail; an empty trail is the end.
void advance(Trail& trail) {
    if (trail.back()->child != nullptr) {
        trail.push_back(trail.back()->child);
        return;
    }
    while (!trail.empty() && trail.back()->sib == nullptr) {
        trail.pop_back();
    }
    if (!trail.empty()) {
        trail.back() = trail.back()->sib;
    }
}

// Calls `visit` with the nodes that lead to each named one from `first` on, depth first, until it
// returns false. There is no limit to the depth of a tree, so the stack is not the processor's.
template <class Visit>
void for_each_name(const oidnode* first, Visit visit) {
    Trail trail;
    if (first != nullptr) {
        trail.push_back(first);
    }
    for (; !trail.empty(); advance(trail)) {
        if (trail.back()->data != nullptr && !visit(trail)) {
            return;
        }
    }
}

std::string_view name_of(const oidnode& node) {
    return {node.data->mapping_str, strnlen(node.data->mapping_str, sizeof node.data->mapping_str)};
}

template <class Number>
void append_number(std::string& text, Number number) {
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text.append(digits.data(), end);
}

void print_name(const Trail& trail, const char* line) {
    std::string text("\t");
    text += line == nullptr ? "" : line;
    for (const oidnode* node : trail) {
        text += '.';
        append_number(text, static_cast<std::int32_t>(node->val));  // the listing has them signed
    }
    text.append(" -> '").append(name_of(*trail.back())).append("'\n");
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace

const char* find_label(oidnode* root, std::span<const std::uint32_t> oid) {
    return oid.empty() || root == nullptr ? nullptr : text_of(find_node(root, oid));
}

const char* find_label_below(oidnode* root, std::span<const std::uint32_t> oid,
                             std::uint32_t last) {
    oidnode* const parent = root == nullptr ? nullptr : find_node(root, oid);
    return parent == nullptr ? nullptr : text_of(find_child(parent, last));
}

bool iFindOidInTree(const oidnode* first, std::string_view name, std::string& path) {
    bool is_found = false;
    for_each_name(first, [&](const Trail& trail) {
        if (name_of(*trail.back()) != name) {
            return true;
        }
        path.clear();
        for (const oidnode* node : trail) {
            path.append(path.empty() ? 0 : 1, '.');
            append_number(path, node->val);
        }
        is_found = true;
        return false;
    });
    return is_found;
}

// Neither depth nor length has a limit, so children are moved to the front of the siblings that
// are still to be freed.
void oidFree(oidnode* first) {
    for (oidnode* node = first; node != nullptr;) {
        oidnode* next = node->child;
        if (next != nullptr) {
            node->child = next->sib;
            next->sib = node;
        } else {
            next = node->sib;
            trees().indexes.forget(node);
            std::free(node->data);
            std::free(node);
        }
        node = next;
    }
    trees().indexes.outdate();
}

}  // namespace wq

oidnode* insertOid(const char* oidtext, oiddata* data) {
    return TreeInsertOid(&oidTree, oidtext, data);
}

oidnode* TreeInsertOid(oidnode** root, const char* oidtext, oiddata* data) {
    wq::OidNumbers oid;
    if (root == nullptr || oidtext == nullptr || data == nullptr ||
        !wq::read_oid_text(oidtext, oid)) {
        return nullptr;
    }
    if (*root == nullptr) {
        *root = newOidNode(0);
    }
    oidnode* node = wq::find_or_add_node(*root, oid.all());
    if (node != nullptr) {
        wq::attach_name(*node, data);
    }
    return node;
}

oiddata* getOidData(const uint32_t* oid, int len) {
    return TreeGetOidData(oidTree, oid, len);
}

oiddata* TreeGetOidData(oidnode* root, const uint32_t* oid, int len) {
    if (root == nullptr || oid == nullptr || len <= 0) {
        return nullptr;
    }
    const oidnode* node = wq::find_node(root, {oid, static_cast<std::size_t>(len)});
    return node == nullptr ? nullptr : node->data;
}

char* lookupOid(const uint32_t* oid, int len) {
    return TreeLookupOid(oidTree, oid, len);
}

char* TreeLookupOid(oidnode* root, const uint32_t* oid, int len) {
    oiddata* data = TreeGetOidData(root, oid, len);
    return data == nullptr ? nullptr : data->mapping_str;
}

char* findOidInTree(oidnode* root, const char* name) {
    if (root == nullptr || name == nullptr) {
        return nullptr;
    }
    try {
        std::string path;
        return wq::iFindOidInTree(root->child, name, path) ? wq::keep_found(wq::trees(), path)
                                                           : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void dumpOidTree(oidnode* root, char* line) {
    if (root == nullptr) {
        return;
    }
    if (!wq::trees().has_dumped) {
        std::fputs("Exposed mappings:\n", stdout);
        wq::trees().has_dumped = true;
    }
    try {
        wq::for_each_name(root->child, [&](const wq::Trail& trail) {
            wq::print_name(trail, line);
            return true;
        });
    } catch (const std::bad_alloc&) {
        // The listing ends early.
    }
}

void oidFreeTree(oidnode* root) {
    if (root != nullptr && root == oidTree) {
        oidTree = nullptr;
    }
    wq::oidFree(root);
    wq::local_mapFree();
}

oidnode* newOidNode(uint32_t val) {
    auto* node = static_cast<oidnode*>(std::calloc(1, sizeof(oidnode)));
    if (node != nullptr) {
        node->val = val;
        // A tree that its owner freed by hand may have had a node here.
        wq::trees().indexes.forget(node);
    }
    return node;
}

oiddata* buildOidData(const char* text) {
    auto* data = text == nullptr ? nullptr : static_cast<oiddata*>(std::calloc(1, sizeof(oiddata)));
    if (data == nullptr) {
        return nullptr;
    }
    std::size_t length = 0;
    for (std::size_t end = 0; end < sizeof data->mapping_str && text[length] != '\0';) {
        end = length + static_cast<std::size_t>(wq::character_size(text + length));
        length = end < sizeof data->mapping_str ? end : length;
    }
    std::memcpy(data->mapping_str, text, length);
    return data;
}

int buildEntOid(uint32_t* oid, const char* text) {
    int count = 0;
    if (oid == nullptr || text == nullptr) {
        return count;
    }
    for (std::string_view rest(text); !rest.empty() && count < wq::ent_oid_max;) {
        const std::string_view part = wq::take_part(rest);
        if (!part.empty()) {
            oid[count++] = wq::read_sub_identifier(part).value;
        }
    }
    return count;
}
