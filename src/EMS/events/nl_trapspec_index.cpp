#include "EMS/events/nl_trapspec_index.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>

namespace wq {
namespace {

uint32_t fold(uint64_t bits) {
    return static_cast<uint32_t>(bits >> 32 ^ bits);
}

constexpr uint64_t odd_multiplier = 0x9e3779b97f4a7c15U;  // 2^64 over the golden ratio

uint32_t hash_address(const void* address) {
    return fold((reinterpret_cast<uintptr_t>(address) >> 4) * odd_multiplier);
}

// The quarters of the number range, as bits 0 to 3, that sub-identifiers lie in.
uint32_t quadrants_of(OidView oid) {
    uint32_t quadrants = 0;
    for (const uint32_t number : oid) {
        quadrants |= 1U << (number >> 30);
    }
    return quadrants;
}

// The last item of the list that is `below`, followed from `start`, which is below or the head.
// `expected` are items that must be met on the way, the first one last; null where one is not.
template <class Item, class Below>
Item* follow(Item* start, Below below, std::span<Item* const> expected = {}) {
    Item* at = start;
    size_t missing = expected.size();
    while (at->next != nullptr && below(*at->next)) {
        at = at->next;
        if (missing > 0 && at == expected[missing - 1]) {
            --missing;
        }
    }
    return missing == 0 ? at : nullptr;
}

template <class Item>
bool leads_to(const Item& head, const Item* wanted) {
    const Item* at = head.next;
    while (at != nullptr && at != wanted) {
        at = at->next;
    }
    return at == wanted;
}

// The same, from the last of the items `passed` over those before it to the first and behind it.
template <class Item, class Below>
Item* pass(std::span<Item* const> passed, const Item* head, Below below) {
    // What is not edited is found without a look at more than the links, and these all at once.
    bool linked = passed.front() == head || below(*passed.front());
    for (size_t i = 1; i < passed.size(); ++i) {
        linked = linked && passed[i]->next == passed[i - 1];
    }
    if (linked) {
        return follow(passed.front(), below);
    }
    Item* start = passed.back();
    return start == head || below(*start) ? follow(start, below, passed.first(passed.size() - 1))
                                          : nullptr;
}

}  // namespace

int compare_oids(OidView a, OidView b) {
    const size_t common = std::min(a.size(), b.size());
    const auto [at_a, at_b] =
        std::mismatch(a.begin(), a.begin() + static_cast<ptrdiff_t>(common), b.begin());
    if (at_a != a.begin() + static_cast<ptrdiff_t>(common)) {
        return static_cast<int>(*at_a - *at_b);
    }
    // The longer one sorts first, so that a search meets the most specific enterprise first.
    return static_cast<int>(static_cast<ptrdiff_t>(b.size()) - static_cast<ptrdiff_t>(a.size()));
}

// A hash that differs from process to process, so that no file can be made to fill one place.
ModelIndex::ModelIndex() : seed_(reinterpret_cast<uintptr_t>(this) | 1U) {}

uint32_t ModelIndex::hash_name(std::string_view name) const {
    uint64_t hash = seed_;
    while (!name.empty()) {
        uint64_t bits = 0;
        const size_t size = std::min(name.size(), sizeof bits);
        std::memcpy(&bits, name.data(), size);
        hash = (hash ^ bits) * odd_multiplier;
        hash ^= hash >> 32;
        name.remove_prefix(size);
    }
    return fold(hash * odd_multiplier);
}

uint32_t ModelIndex::hash_oid(OidView oid) const {
    uint64_t hash = seed_;
    for (const uint32_t number : oid) {
        hash = (hash ^ number) * odd_multiplier;
        hash ^= hash >> 32;
    }
    return fold(hash * odd_multiplier);
}

uint32_t ModelIndex::id_of(const trap_record* record) const {
    uint32_t found = none;
    records_by_address_.visit(hash_address(record), [&](uint32_t id) {
        found = record_nodes_[id].item == record ? id : none;
        return found == none;
    });
    return found;
}

uint32_t ModelIndex::id_of(const enterprise_info* enterprise) const {
    if (last_enterprise_ < enterprise_nodes_.size() &&
        enterprise_nodes_[last_enterprise_].item == enterprise) {
        return last_enterprise_;
    }
    uint32_t found = none;
    enterprises_by_address_.visit(hash_address(enterprise), [&](uint32_t id) {
        found = enterprise_nodes_[id].item == enterprise ? id : none;
        return found == none;
    });
    if (found != none) {
        last_enterprise_ = found;
    }
    return found;
}

namespace {

template <class Nodes>
uint32_t take_node(Nodes& nodes, ModelVector<uint32_t>& unused) {
    if (unused.empty()) {
        nodes.emplace_back();
        return static_cast<uint32_t>(nodes.size() - 1);
    }
    const uint32_t id = unused.back();
    unused.pop_back();
    return id;
}

enterprise_info* follow_enterprises(OidView oid) {
    return follow(&enterprise_list_head,
                  [&](const enterprise_info& e) { return compare_oids(oid_of(e), oid) < 0; });
}

trap_record* follow_records(enterprise_info& enterprise, uint64_t numbers) {
    return follow(&enterprise.trap_rec_list_head,
                  [&](const trap_record& record) { return numbers_of(record) < numbers; });
}

NamedTrap follow_names(std::string_view name) {
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            if (name_text(r->name) == name) {
                return {e, r};
            }
        }
    }
    return {};
}

enterprise_info* follow_enterprise_names(std::string_view name) {
    enterprise_info* e = enterprise_list_head.next;
    while (e != nullptr && (e->enterprise_name == nullptr || e->enterprise_name != name)) {
        e = e->next;
    }
    return e;
}

std::string_view text_of(const char* text) {
    return text == nullptr ? std::string_view() : text;
}

}  // namespace

uint32_t ModelIndex::enter(trap_record& record) {
    const uint32_t id = take_node(record_nodes_, free_records_);
    record_nodes_[id].item = &record;
    record_nodes_[id].name_hash = hash_name(name_text(record.name));
    records_by_address_.insert(hash_address(&record), id);
    records_by_name_.insert(record_nodes_[id].name_hash, id);
    return id;
}

uint32_t ModelIndex::enter(enterprise_info& enterprise) {
    const uint32_t id = take_node(enterprise_nodes_, free_enterprises_);
    enterprise_nodes_[id].item = &enterprise;
    enterprises_by_address_.insert(hash_address(&enterprise), id);
    enter_name(id);
    return id;
}

// Enterprises may well share a name: then the index knows one of them, and that there are others.
void ModelIndex::enter_name(uint32_t id) {
    EnterpriseNode& node = enterprise_nodes_[id];
    node.name_hash = hash_name(text_of(node.item->enterprise_name));
    node.named = true;
    node.name_shared = unknown_names_;
    enterprises_by_name_.visit(node.name_hash, [&](uint32_t other) {
        if (other != stranger) {
            enterprise_nodes_[other].name_shared = true;
        }
        node.named = false;
        return false;
    });
    if (node.named) {
        enterprises_by_name_.insert(node.name_hash, id);
    }
}

void ModelIndex::drop_name(uint32_t id) {
    if (enterprise_nodes_[id].named) {
        enterprises_by_name_.erase(enterprise_nodes_[id].name_hash, id);
        enterprise_nodes_[id].named = false;
        unknown_names_ = unknown_names_ || enterprise_nodes_[id].name_shared;
    }
}

void ModelIndex::put_in_order(uint32_t id, uint32_t enterprise, bool behind_equals) {
    RecordNode& node = record_nodes_[id];
    const uint64_t numbers = numbers_of(*node.item);
    auto& records = enterprise_nodes_[enterprise].records;
    const auto at = records.first_not([&](const RecordEntry& entry) {
        return behind_equals ? entry.numbers <= numbers : entry.numbers < numbers;
    });
    node.before = at == records.begin() ? none : records[records.before(at)].id;
    if (at != records.end()) {
        record_nodes_[records[at].id].before = id;
    }
    records.insert(at, {numbers, node.item, id});
    node.numbers = numbers;
    node.enterprise = enterprise;
}

void ModelIndex::take_out_of_order(RecordNode& node) {
    if (node.enterprise == none) {
        return;
    }
    auto& records = enterprise_nodes_[node.enterprise].records;
    auto at =
        records.first_not([&](const RecordEntry& entry) { return entry.numbers < node.numbers; });
    while (records[at].item != node.item) {
        at = records.after(at);
    }
    const auto next = records.after(at);
    if (next != records.end()) {
        record_nodes_[records[next].id].before = node.before;
    }
    records.erase(at);
    node.enterprise = none;
}

void ModelIndex::put_in_order(EnterpriseNode& node) {
    const OidView oid = oid_of(*node.item);
    node.oid.assign(oid.begin(), oid.end());
    quadrants_ |= quadrants_of(oid);
    node.in_order = in_one_order(oid);
    if (node.in_order) {
        const auto at = enterprises_.first_not([&](const EnterpriseEntry& entry) {
            return compare_oids(entry.node->oid, node.oid) <= 0;
        });
        node.before =
            at == enterprises_.begin() ? nullptr : enterprises_[enterprises_.before(at)].node;
        if (at != enterprises_.end()) {
            enterprises_[at].node->before = &node;
        }
        enterprises_.insert(at, {&node, node.item});
        node.oid_hash = hash_oid(node.oid);
        enterprises_by_oid_.insert(node.oid_hash, id_of(node.item));
    }
}

void ModelIndex::take_out_of_order(EnterpriseNode& node) {
    if (!node.in_order) {
        return;
    }
    auto at = enterprises_.first_not(
        [&](const EnterpriseEntry& entry) { return compare_oids(entry.node->oid, node.oid) < 0; });
    while (enterprises_[at].node != &node) {
        at = enterprises_.after(at);
    }
    const auto next = enterprises_.after(at);
    if (next != enterprises_.end()) {
        enterprises_[next].node->before = node.before;
    }
    enterprises_.erase(at);
    enterprises_by_oid_.erase(node.oid_hash, id_of(node.item));
    node.in_order = false;
}

// oidcmp() takes a difference of 2^31 and more for one of the other sign, so it orders numbers for
// certain where they lie in two quarters of their range that are neighbours, first and last
// included. No search among others can be cut short.
bool ModelIndex::in_one_order(OidView oid) const {
    const uint32_t quadrants = quadrants_ | quadrants_of(oid);
    return std::ranges::any_of(std::array<uint32_t, 4>{0b0011, 0b0110, 0b1100, 0b1001},
                               [&](uint32_t pair) { return (quadrants & ~pair) == 0; });
}

bool ModelIndex::is_searchable(OidView oid) const {
    return enterprises_.size() > short_list && in_one_order(oid);
}

// The last item below what is searched, by the word of the index; null where the list says
// something else.
template <class Item, class Order, class EntryBelow, class Below>
Item* ModelIndex::last_below(Item* head, const Order& order, EntryBelow entry_below,
                             Below below) const {
    auto at = order.first_not(entry_below);
    if (trust_ > 0) {
        return follow(at == order.begin() ? head : order[order.before(at)].item, below);
    }
    std::array<Item*, short_list + 1> passed;
    const size_t wanted = order.size() <= short_list ? short_list : checked_links + 1;
    size_t count = 0;
    for (; count < wanted && at != order.begin(); ++count) {
        at = order.before(at);
        passed[count] = order[at].item;
        __builtin_prefetch(passed[count]);
    }
    if (at == order.begin()) {
        passed[count++] = head;
    } else if (!leads_to(*head, order.front().item)) {
        return nullptr;
    }
    return pass(std::span<Item* const>(passed.data(), count), head, below);
}

enterprise_info* ModelIndex::enterprise_before(OidView oid) {
    if (!is_searchable(oid)) {
        return follow_enterprises(oid);
    }
    const auto find = [&] {
        return last_below(
            &enterprise_list_head, enterprises_,
            [&](const EnterpriseEntry& entry) { return compare_oids(entry.node->oid, oid) < 0; },
            [&](const enterprise_info& e) { return compare_oids(oid_of(e), oid) < 0; });
    };
    if (enterprise_info* found = find()) {
        return found;
    }
    index_enterprises();
    return follow_enterprises(oid);
}

trap_record* ModelIndex::record_before(enterprise_info& enterprise, uint64_t numbers) {
    const uint32_t id = id_of(&enterprise);
    if (id == none) {
        return follow_records(enterprise, numbers);
    }
    trap_record* found = last_below(
        &enterprise.trap_rec_list_head, enterprise_nodes_[id].records,
        [&](const RecordEntry& entry) { return entry.numbers < numbers; },
        [&](const trap_record& record) { return numbers_of(record) < numbers; });
    if (found != nullptr) {
        return found;
    }
    index_records(id);
    return follow_records(enterprise, numbers);
}

// True where the links of the enterprises before it lead to this one, and nothing else does.
bool ModelIndex::is_linked(const EnterpriseNode& node) const {
    const EnterpriseNode* at = &node;
    for (size_t i = 0; i < checked_links && at->before != nullptr; ++i) {
        if (at->before->item->next != at->item) {
            return false;
        }
        at = at->before;
    }
    return enterprise_list_head.next == enterprises_.front().item;
}

bool ModelIndex::is_listed(enterprise_info& enterprise) {
    const uint32_t id = id_of(&enterprise);
    if (id != none && enterprise_nodes_[id].in_order &&
        (trust_ > 0 || is_linked(enterprise_nodes_[id]))) {
        return true;
    }
    const OidView oid = oid_of(enterprise);
    const enterprise_info* at = enterprise_before(oid)->next;
    while (at != nullptr && at != &enterprise && compare_oids(oid_of(*at), oid) == 0) {
        at = at->next;
    }
    return at == &enterprise || leads_to(enterprise_list_head, &enterprise);
}

enterprise_info* ModelIndex::known_enterprise(OidView oid) const {
    const EnterpriseNode* found = nullptr;
    enterprises_by_oid_.visit(hash_oid(oid), [&](uint32_t id) {
        const EnterpriseNode& node = enterprise_nodes_[id];
        found = std::ranges::equal(oid_of(*node.item), oid) ? &node : nullptr;
        return found == nullptr;
    });
    if (found == nullptr) {
        return nullptr;
    }
    const bool first =
        trust_ > 0 || (is_linked(*found) && (found->before == nullptr ||
                                             compare_oids(oid_of(*found->before->item), oid) < 0));
    return first ? found->item : nullptr;
}

// What is out of order is left out, as a search by order does not come upon it.
void ModelIndex::index_enterprises() {
    for (EnterpriseNode& node : enterprise_nodes_) {
        node.in_order = false;
    }
    enterprises_.clear();
    enterprises_by_oid_ = {};
    quadrants_ = 0;
    OidView last;
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        uint32_t id = id_of(e);
        if (id == none && trust_ > 0) {
            id = enter(*e);
            guest_enterprises_.push_back(e);
        }
        const bool first = e == enterprise_list_head.next;
        const bool behind = first || compare_oids(last, oid_of(*e)) <= 0;
        last = behind ? oid_of(*e) : last;
        if (behind && id != none) {
            put_in_order(enterprise_nodes_[id]);
        }
    }
}

void ModelIndex::release_records(EnterpriseNode& node) {
    node.records.for_each(
        [this](const RecordEntry& entry) { record_nodes_[entry.id].enterprise = none; });
    node.records.clear();
}

void ModelIndex::index_records(uint32_t enterprise) {
    EnterpriseNode& node = enterprise_nodes_[enterprise];
    release_records(node);
    uint64_t last = 0;
    for (trap_record* r = node.item->trap_rec_list_head.next; r != nullptr; r = r->next) {
        uint32_t id = id_of(r);
        if (id == none && trust_ > 0) {
            id = enter(*r);
            guest_records_.push_back(r);
        }
        const bool behind = numbers_of(*r) >= last;
        last = std::max(last, numbers_of(*r));
        if (behind && id != none) {
            take_out_of_order(record_nodes_[id]);
            put_in_order(id, enterprise, true);
        }
    }
}

// The same for a record, by the list of its enterprise.
bool ModelIndex::is_linked(const RecordNode& node) const {
    const EnterpriseNode& enterprise = enterprise_nodes_[node.enterprise];
    const size_t wanted = enterprise.records.size() <= short_list ? short_list : checked_links;
    const RecordNode* at = &node;
    for (size_t i = 0; i < wanted && at->before != none; ++i) {
        const RecordNode* before = &record_nodes_[at->before];
        if (before->item->next != at->item) {
            return false;
        }
        at = before;
    }
    return enterprise.item->trap_rec_list_head.next == enterprise.records.front().item;
}

bool ModelIndex::is_in_list(const RecordNode& node) {
    if (node.enterprise == none) {
        return false;
    }
    if (trust_ > 0 && enterprise_nodes_[node.enterprise].in_order) {
        return true;
    }
    enterprise_info& enterprise = *enterprise_nodes_[node.enterprise].item;
    if (!is_listed(enterprise)) {
        return false;
    }
    if (is_linked(node)) {
        return true;
    }
    const uint64_t numbers = numbers_of(*node.item);
    const trap_record* at = record_before(enterprise, numbers)->next;
    while (at != nullptr && at != node.item && numbers_of(*at) == numbers) {
        at = at->next;
    }
    return at == node.item;
}

// By the word of the index; nothing where it does not know the name or is wrong. Where it knows of
// several that have the name, the lists tell which one is the first in them.
NamedTrap ModelIndex::known_trap(std::string_view name) {
    uint32_t found = none;
    bool several = false;
    records_by_name_.visit(hash_name(name), [&](uint32_t id) {
        if (id == stranger) {
            several = true;
        } else if (name_text(record_nodes_[id].item->name) == name) {
            several = found != none;
            found = id;
        }
        return !several;
    });
    if (several) {
        return follow_names(name);
    }
    if (found == none) {
        return {};
    }
    const RecordNode& node = record_nodes_[found];
    const uint32_t enterprise = node.enterprise;
    return is_in_list(node) ? NamedTrap{enterprise_nodes_[enterprise].item, node.item}
                            : NamedTrap();
}

bool ModelIndex::follows_names() const {
    return trust_ == 0 && record_nodes_.size() - free_records_.size() <= few_records;
}

NamedTrap ModelIndex::find_trap(std::string_view name) {
    if (follows_names()) {
        return follow_names(name);
    }
    NamedTrap found = known_trap(name);
    if (found.record == nullptr && trust_ == 0) {
        found = follow_names(name);
        if (found.record != nullptr) {
            renamed(*found.record);
        }
    }
    return found;
}

bool ModelIndex::is_taken(std::string_view name) {
    bool known = follows_names();
    records_by_name_.visit(hash_name(name), [&](uint32_t id) {
        known = known || id == stranger || name_text(record_nodes_[id].item->name) == name;
        return !known;
    });
    return known && find_trap(name).record != nullptr;
}

int& ModelIndex::next_suffix(std::string_view name) {
    if (follows_names()) {
        suffixes_.clear();  // the lists may have lost one of the names
    }
    return suffixes_.try_emplace(std::string(name), 1).first->second;
}

// By the word of the index; null where it does not know one that is alone to have the name.
enterprise_info* ModelIndex::known_name(const char* name) {
    enterprise_info* found = nullptr;
    bool several = false;
    enterprises_by_name_.visit(hash_name(name), [&](uint32_t id) {
        several = several || id == stranger || enterprise_nodes_[id].name_shared;
        if (!several && text_of(enterprise_nodes_[id].item->enterprise_name) == name) {
            found = enterprise_nodes_[id].item;
        }
        return !several;
    });
    if (several || found == nullptr || !is_listed(*found)) {
        return nullptr;
    }
    return found;
}

enterprise_info* ModelIndex::find_enterprise(const char* name) {
    enterprise_info* found = nullptr;
    if (enterprises_.size() > short_list) {
        found = known_name(name);
    }
    if (found == nullptr) {
        found = follow_enterprise_names(name);
        if (found != nullptr) {
            renamed(*found);
        }
    }
    return found;
}

void ModelIndex::add(enterprise_info& enterprise) {
    put_in_order(enterprise_nodes_[enter(enterprise)]);
}

void ModelIndex::add(enterprise_info& enterprise, trap_record& record, bool behind_equals) {
    const uint32_t id = enter(record);
    const uint32_t owner = id_of(&enterprise);
    if (owner != none) {
        put_in_order(id, owner, behind_equals);
    }
}

// A name that an item has which the index must not hold: for that name the lists are asked. The
// mark stays, as nobody tells when the item goes.
void ModelIndex::note_stranger(IdTable& names, uint32_t hash) {
    bool noted = false;
    names.visit(hash, [&](uint32_t id) {
        noted = id == stranger;
        return !noted;
    });
    if (!noted) {
        names.insert(hash, stranger);
    }
}

void ModelIndex::renamed(enterprise_info& enterprise) {
    const uint32_t id = id_of(&enterprise);
    const uint32_t hash = hash_name(text_of(enterprise.enterprise_name));
    if (id == none) {
        note_stranger(enterprises_by_name_, hash);
    } else if (!(enterprise_nodes_[id].named && enterprise_nodes_[id].name_hash == hash)) {
        drop_name(id);
        enter_name(id);
    }
}

void ModelIndex::renamed(trap_record& record) {
    const uint32_t id = id_of(&record);
    const uint32_t hash = hash_name(name_text(record.name));
    if (id == none) {
        note_stranger(records_by_name_, hash);
    } else if (record_nodes_[id].name_hash != hash) {
        records_by_name_.erase(record_nodes_[id].name_hash, id);
        records_by_name_.insert(hash, id);
        record_nodes_[id].name_hash = hash;
        suffixes_.clear();
    }
}

void ModelIndex::forget(const enterprise_info* enterprise) {
    const uint32_t id = id_of(enterprise);
    if (id == none) {
        return;
    }
    EnterpriseNode& node = enterprise_nodes_[id];
    release_records(node);
    take_out_of_order(node);
    drop_name(id);
    enterprises_by_address_.erase(hash_address(enterprise), id);
    node = EnterpriseNode();
    free_enterprises_.push_back(id);
}

void ModelIndex::forget(const trap_record* record) {
    const uint32_t id = id_of(record);
    if (id == none) {
        return;
    }
    RecordNode& node = record_nodes_[id];
    take_out_of_order(node);
    records_by_name_.erase(node.name_hash, id);
    records_by_address_.erase(hash_address(record), id);
    node = RecordNode();
    free_records_.push_back(id);
    suffixes_.clear();
}

void ModelIndex::clear() {
    record_nodes_.clear();
    enterprise_nodes_.clear();
    free_records_ = {};
    free_enterprises_ = {};
    records_by_address_ = {};
    records_by_name_ = {};
    enterprises_by_address_ = {};
    enterprises_by_name_ = {};
    enterprises_ = {};
    enterprises_by_oid_ = {};
    quadrants_ = 0;
    unknown_names_ = false;
    suffixes_ = {};
    guest_records_ = {};
    guest_enterprises_ = {};
}

void ModelIndex::begin_trust() {
    if (++trust_ > 1) {
        return;
    }
    index_enterprises();
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        index_records(id_of(e));
        renamed(*e);
        for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            renamed(*r);
        }
    }
}

void ModelIndex::end_trust() {
    if (--trust_ > 0) {
        return;
    }
    for (trap_record* r : guest_records_) {
        forget(r);
        renamed(*r);
    }
    for (enterprise_info* e : guest_enterprises_) {
        forget(e);
        renamed(*e);
    }
    guest_records_ = {};
    guest_enterprises_ = {};
}

ModelIndex& model_index() {
    static ModelIndex* const index = std::make_unique<ModelIndex>().release();
    return *index;
}

}  // namespace wq
