// Where in the lists of enterprises and of records an object identifier and a pair of numbers
// belong.
//
// A sorted sequence of what is in each list names the place. What it takes to be sure of it:
//   - The item before the place sorts before what is searched: its fields are compared, not copies.
//   - It is in the list: the links of some items before it lead to it, and the head leads to the
//     first one. Whatever single item was unlinked, moved or renumbered there shows; the list is
//     then followed from its head, and its sequence is made anew.
//   - From there on the list itself is followed, so items that a program linked in are met.
// A miss is as sure as a hit: the list says what comes after the place.
#include <algorithm>
#include <array>
#include <cstring>

#include "EMS/events/nl_trapspec_index.h"

namespace wq {
namespace {

constexpr uint64_t odd_multiplier = 0x9e3779b97f4a7c15U;  // 2^64 over the golden ratio

bool are_equal(OidView a, OidView b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size_bytes()) == 0;
}

// The quarters of the number range, as bits 0 to 3, that sub-identifiers lie in.
uint32_t quadrants_of(OidView oid) {
    uint32_t quadrants = 0;
    for (const uint32_t number : oid) {
        quadrants |= 1U << (number >> 30);
    }
    return quadrants;
}

bool is_one_order(uint32_t quadrants) {
    return std::ranges::any_of(std::array<uint32_t, 4>{0b0011, 0b0110, 0b1100, 0b1001},
                               [&](uint32_t pair) { return (quadrants & ~pair) == 0; });
}

// The last item of the list that is `below`, followed from `start`, which is below or the head.
// `expected` are items that must be met on the way, the first one last; null if one is not.
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

// The same, from the last of the items `passed` over those before it to the first and on from it.
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

enterprise_info* follow_enterprises(OidView oid) {
    return follow(&enterprise_list_head,
                  [&](const enterprise_info& e) { return compare_oids(oid_of(e), oid) < 0; });
}

trap_record* follow_records(enterprise_info& enterprise, uint64_t numbers) {
    return follow(&enterprise.trap_rec_list_head,
                  [&](const trap_record& record) { return numbers_of(record) < numbers; });
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

uint32_t ModelIndex::hash_oid(OidView oid) const {
    uint64_t hash = seed();
    size_t i = 0;
    for (; i + 1 < oid.size(); i += 2) {
        hash = (hash ^ (uint64_t{oid[i]} << 32 | oid[i + 1])) * odd_multiplier;
        hash ^= hash >> 32;
    }
    if (i < oid.size()) {
        hash = (hash ^ oid[i]) * odd_multiplier;
        hash ^= hash >> 32;
    }
    return static_cast<uint32_t>(hash);
}

// oidcmp() takes a difference of 2^31 and more for one of the other sign, so it orders numbers for
// certain if they lie in two quarters of their range that are neighbours, first and last included.
// No search among others can be cut short.
bool ModelIndex::in_one_order(OidView oid) const {
    return is_one_order(tables_->quadrants | quadrants_of(oid));
}

bool ModelIndex::is_searchable(OidView oid) {
    return is_made() && in_one_order(oid);
}

// The last item below what is searched, by the word of the index; null if the list says something
// else.
template <class Item, class Order, class Below, class EntryBelow, class ItemOf>
Item* ModelIndex::last_below(Item* head, const Order& order, EntryBelow entry_below, Below below,
                             ItemOf item_of) const {
    auto at = is_believed() ? order.first_not_from_end(entry_below) : order.first_not(entry_below);
    if (at != order.end()) {
        const auto* expected = reinterpret_cast<const char*>(item_of(order[at]));
        __builtin_prefetch(expected);
        __builtin_prefetch(expected + Chunks::alignment);
    }
    std::array<Item*, checked_links + 1> passed;
    size_t count = 0;
    for (; count < passed.size() && at != order.begin(); ++count) {
        at = order.before(at);
        passed[count] = item_of(order[at]);
        __builtin_prefetch(passed[count]);
    }
    if (is_believed()) {
        return follow(count == 0 ? head : passed[0], below);
    }
    if (count < passed.size()) {
        passed[count++] = head;
    } else if (!leads_to(*head, item_of(order.front()))) {
        return nullptr;
    }
    return pass(std::span<Item* const>(passed.data(), count), head, below);
}

enterprise_info* ModelIndex::enterprise_before(OidView oid) {
    if (!is_searchable(oid)) {
        return follow_enterprises(oid);
    }
    enterprise_info* found = last_below(
        &enterprise_list_head, tables_->enterprises,
        [&](const EnterpriseEntry* entry) { return compare_oids(entry->oid, oid) < 0; },
        [&](const enterprise_info& e) { return compare_oids(oid_of(e), oid) < 0; },
        [](const EnterpriseEntry* entry) { return entry->item; });
    if (found != nullptr) {
        return found;
    }
    change([this] { index_enterprises(); });
    return follow_enterprises(oid);
}

// The same for a list of records where nothing was edited near the place, at a glance.
trap_record* ModelIndex::record_before_at_once(const EnterpriseEntry& entry, uint64_t numbers) {
    const auto place = entry.records.first_not(
        [&](const EnterpriseEntry::Record& record) { return record.numbers < numbers; });
    const EnterpriseEntry::Record* at = entry.records.entry_after(checked_links + 1, place);
    if (at == nullptr) {
        return nullptr;
    }
    trap_record* before = at[-1].item;
    __builtin_prefetch(at->item);
    __builtin_prefetch(&at->item->generic_trap);
    __builtin_prefetch(&before->generic_trap);
    bool linked = entry.item->trap_rec_list_head.next == entry.records.front().item;
    for (size_t i = 0; i <= checked_links; ++i) {
        linked &= at[-1].item->next == at->item;
        --at;
    }
    return linked && numbers_of(*before) < numbers && numbers_of(*before->next) >= numbers
               ? before
               : nullptr;
}

trap_record* ModelIndex::record_before(enterprise_info& enterprise, uint64_t numbers) {
    EnterpriseEntry* entry = entry_of(enterprise);
    if (entry == nullptr) {
        return follow_records(enterprise, numbers);
    }
    if (trap_record* at_once = is_believed() ? nullptr : record_before_at_once(*entry, numbers)) {
        return at_once;
    }
    trap_record* found = last_below(
        &enterprise.trap_rec_list_head, entry->records,
        [&](const EnterpriseEntry::Record& record) { return record.numbers < numbers; },
        [&](const trap_record& record) { return numbers_of(record) < numbers; },
        [](const EnterpriseEntry::Record& record) { return record.item; });
    if (found != nullptr) {
        return found;
    }
    change([&] { index_records(*entry); });
    return follow_records(enterprise, numbers);
}

// True if the links of the enterprises before it lead to this one, and nothing else does.
bool ModelIndex::is_linked(const EnterpriseEntry& entry) const {
    const EnterpriseEntry* at = &entry;
    for (size_t i = 0; i < checked_links && at->before != nullptr; ++i) {
        if (at->before->item->next != at->item) {
            return false;
        }
        at = at->before;
    }
    return enterprise_list_head.next == tables_->enterprises.front()->item;
}

bool ModelIndex::is_listed(enterprise_info& enterprise) {
    const EnterpriseEntry* entry = entry_of(enterprise);
    if (entry != nullptr && entry->in_order && (is_believed() || is_linked(*entry))) {
        return true;
    }
    const OidView oid = oid_of(enterprise);
    const enterprise_info* at = enterprise_before(oid)->next;
    while (at != nullptr && at != &enterprise && compare_oids(oid_of(*at), oid) == 0) {
        at = at->next;
    }
    return at == &enterprise || leads_to(enterprise_list_head, &enterprise);
}

enterprise_info* ModelIndex::known_enterprise(OidView oid) {
    if (!is_made() || !is_one_order(tables_->quadrants)) {
        return nullptr;
    }
    EnterpriseEntry* found = nullptr;
    tables_->by_oid.visit(hash_oid(oid), [&](EnterpriseEntry* entry) {
        found = are_equal(oid_of(*entry->item), oid) ? entry : nullptr;
        return found == nullptr;
    });
    if (found == nullptr || !is_linked(*found) ||
        (found->before != nullptr && are_equal(oid_of(*found->before->item), oid))) {
        return nullptr;
    }
    last_entry_ = found;
    return found->item;
}

void ModelIndex::put_in_order(EnterpriseEntry& entry) {
    const OidView oid = oid_of(*entry.item);
    entry.oid.assign(oid.begin(), oid.end());
    tables_->quadrants |= quadrants_of(oid);
    if (!in_one_order(oid)) {
        return;
    }
    auto& order = tables_->enterprises;
    const auto at = order.first_not_from_end(
        [&](const EnterpriseEntry* other) { return compare_oids(other->oid, entry.oid) <= 0; });
    entry.before = at == order.begin() ? nullptr : order[order.before(at)];
    if (at != order.end()) {
        order[at]->before = &entry;
    }
    order.insert(at, &entry);
    entry.oid_hash = hash_oid(entry.oid);
    tables_->by_oid.insert(entry.oid_hash, &entry);
    entry.in_order = true;
}

void ModelIndex::take_out_of_order(EnterpriseEntry& entry) {
    if (!entry.in_order) {
        return;
    }
    auto& order = tables_->enterprises;
    auto at = order.first_not(
        [&](const EnterpriseEntry* other) { return compare_oids(other->oid, entry.oid) < 0; });
    while (order[at] != &entry) {
        at = order.after(at);
    }
    const auto next = order.after(at);
    if (next != order.end()) {
        order[next]->before = entry.before;
    }
    order.erase(at);
    tables_->by_oid.erase(entry.oid_hash, &entry);
    entry.in_order = false;
}

// What is out of order is left out, as a search by order does not come upon it.
void ModelIndex::index_enterprises() {
    enterprises_.for_each([](const enterprise_info& /*item*/, EnterpriseNote& note) {
        if (note.entry != nullptr) {
            note.entry->in_order = false;
        }
    });
    tables_->enterprises.clear();
    tables_->by_oid = {};
    tables_->quadrants = 0;
    OidView last;
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        const bool first = e == enterprise_list_head.next;
        const bool after = first || compare_oids(last, oid_of(*e)) <= 0;
        last = after ? oid_of(*e) : last;
        EnterpriseNote* note = enterprises_.note_of(e);
        if (note != nullptr && note->entry == nullptr) {
            new_entry(*e, *note);
            if (after) {
                put_in_order(*note->entry);
            }
            index_records(*note->entry);
        } else if (note != nullptr && after) {
            put_in_order(*note->entry);
        }
    }
}

void ModelIndex::put_in_order(trap_record& record, RecordNote& note, EnterpriseEntry& owner,
                              bool after_equals) {
    const uint64_t numbers = numbers_of(record);
    auto& records = owner.records;
    const auto at = records.first_not_from_end([&](const EnterpriseEntry::Record& other) {
        return after_equals ? other.numbers <= numbers : other.numbers < numbers;
    });
    note.before = at == records.begin() ? nullptr : records[records.before(at)].item;
    if (at != records.end()) {
        note_of(*records[at].item)->before = &record;
    }
    records.insert(at, {numbers, &record});
    note.numbers = numbers;
    note.owner = &owner;
}

void ModelIndex::take_out_of_order(const trap_record& record, RecordNote& note) {
    if (note.owner == nullptr) {
        return;
    }
    auto& records = note.owner->records;
    auto at = records.first_not(
        [&](const EnterpriseEntry::Record& other) { return other.numbers < note.numbers; });
    while (records[at].item != &record) {
        at = records.after(at);
    }
    const auto next = records.after(at);
    if (next != records.end()) {
        note_of(*records[next].item)->before = note.before;
    }
    records.erase(at);
    note.owner = nullptr;
}

void ModelIndex::release_records(EnterpriseEntry& entry) {
    entry.records.for_each(
        [this](const EnterpriseEntry::Record& record) { note_of(*record.item)->owner = nullptr; });
    entry.records.clear();
}

void ModelIndex::index_records(EnterpriseEntry& entry) {
    release_records(entry);
    uint64_t last = 0;
    for (trap_record* r = entry.item->trap_rec_list_head.next; r != nullptr; r = r->next) {
        const bool after = numbers_of(*r) >= last;
        last = std::max(last, numbers_of(*r));
        RecordNote* note = note_of(*r);
        if (after && note != nullptr) {
            take_out_of_order(*r, *note);
            put_in_order(*r, *note, entry, true);
        }
    }
}

}  // namespace wq
