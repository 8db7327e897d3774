// The index beside the lists of the configuration: it tells where in a list to look.
//
// The lists are the model, and a program may relink them and edit records without telling. So the
// index never answers by itself. It keeps, in the order of each list, the records that the library
// made and has not freed yet, and names one of them from which the list itself is then followed.
// Only such records are ever read on the index's word, and free_trap_record() and
// free_enterprise() take them out, so none of them can be gone; records that a program made are
// come upon by following the list.
//
// What an answer by order needs, and how it is made sure of:
//   - The starting point sorts before what is searched: its fields are compared, not the copies.
//   - It is in the list: the links before it lead to it, from the head where the list is short and
//     else over `checked_links` of them, and the head still leads to the first record. Whatever was
//     unlinked, moved or renumbered there shows; the list is then followed from its head and
//     indexed anew.
//   - Behind it the list is in order, as whoever relinks it keeps it. A record out of order is not
//     found by following the list from its head either.
// What does not show is that more than `checked_links` neighbours were cut out of a longer list,
// not its first record among them, and still lead to each other. The public header rules that out.
//
// Order says nothing about names. The only item that is known by a name, has it still and is in its
// list is the answer; where several are known, the lists are asked. A name that no known item has
// may still have been written into one, so the lists are asked as well, and what they say is kept.
// That names are unique is what the public header asks of those who write them. Where few records
// are configured the lists alone are asked.
#pragma once

#include <wqevents/configuration.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "EMS/events/internal/index_tables.h"

namespace wq {

using OidView = std::span<const uint32_t>;

inline OidView oid_of(const enterprise_info& enterprise) {
    return {enterprise.enterprise_oid,
            enterprise.enterprise_oid == nullptr ? 0 : size_t{enterprise.oid_len}};
}

// oidcmp() of two views.
int compare_oids(OidView a, OidView b);

// The two numbers of a record as one, in the same order.
inline uint64_t joined_numbers(int32_t generic, int32_t specific) {
    const auto ordered = [](int32_t n) { return static_cast<uint32_t>(n) ^ 0x80000000U; };
    return uint64_t{ordered(generic)} << 32 | ordered(specific);
}

inline uint64_t numbers_of(const trap_record& record) {
    return joined_numbers(record.generic_trap, record.specific_trap);
}

// The record, where there is one with these numbers.
inline trap_record* of_numbers(trap_record* record, uint64_t numbers) {
    return record != nullptr && numbers_of(*record) == numbers ? record : nullptr;
}

// What of a name counts.
inline std::string_view name_text(const char* name) {
    return {name, ::strnlen(name, EMS_NAME_MAX)};
}

struct NamedTrap {
    enterprise_info* enterprise = nullptr;
    trap_record* record = nullptr;
};

class ModelIndex {
  public:
    ModelIndex();

    // The last enterprise, or the head, before the first one that `oid` does not sort behind.
    enterprise_info* enterprise_before(OidView oid);
    // The last record, or the head, of lower numbers before the first one that has them not.
    trap_record* record_before(enterprise_info& enterprise, uint64_t numbers);
    // True where a search by order finds what following the list from its head does, and sooner.
    bool is_searchable(OidView oid) const;
    // The first enterprise with this object identifier, or null where that is not certain at once.
    enterprise_info* known_enterprise(OidView oid) const;
    // True where the enterprise is in the list.
    bool is_listed(enterprise_info& enterprise);

    // The first record of these numbers, or null.
    trap_record* first_record(enterprise_info& enterprise, uint64_t numbers) {
        return of_numbers(record_before(enterprise, numbers)->next, numbers);
    }

    // The first trap, or enterprise, of that name.
    NamedTrap find_trap(std::string_view name);
    enterprise_info* find_enterprise(const char* name);
    // True where a trap has the name. One that a program gave by hand counts where the lists are
    // short or once find_trap() has come upon it.
    bool is_taken(std::string_view name);
    // The first of the numbers from 1 on that may still be free behind the name and "_".
    int& next_suffix(std::string_view name);

    // What the library does to the lists: called once it is done, but forget() before the free.
    void add(enterprise_info& enterprise);
    void add(enterprise_info& enterprise, trap_record& record, bool behind_equals);
    void renamed(enterprise_info& enterprise);
    void renamed(trap_record& record);
    void forget(const enterprise_info* enterprise);
    void forget(const trap_record* record);
    void clear();

    // Between the two no program edits the lists: after one look at all of them the index is
    // believed, records that it does not hold otherwise included.
    void begin_trust();
    void end_trust();

  private:
    static constexpr uint32_t none = UINT32_MAX;
    static constexpr uint32_t stranger = none - 1;  // in the place of an item not held
    static constexpr size_t checked_links = 3;
    static constexpr size_t short_list = 16;    // enterprises, or records of one
    static constexpr size_t few_records = 128;  // in all

    struct RecordEntry {
        uint64_t numbers;
        trap_record* item;
        uint32_t id;
    };
    struct RecordNode {
        trap_record* item = nullptr;
        uint64_t numbers = 0;
        uint32_t enterprise = none;  // in whose `records` it is
        uint32_t before = none;      // the one before it there
        uint32_t name_hash = 0;
    };
    struct EnterpriseNode {
        enterprise_info* item = nullptr;
        ModelVector<uint32_t> oid;  // a copy: the enterprise's own is the program's to change
        OrderedBlocks<RecordEntry> records;
        const EnterpriseNode* before = nullptr;  // in `enterprises_`
        uint32_t oid_hash = 0;
        uint32_t name_hash = 0;
        bool named = false;        // in `enterprises_by_name_`
        bool name_shared = false;  // or was: others have the name, too
        bool in_order = false;     // in `enterprises_`
    };
    struct EnterpriseEntry {
        EnterpriseNode* node;
        enterprise_info* item;
    };
    using Suffixes = std::unordered_map<std::string, int, std::hash<std::string>, std::equal_to<>,
                                        ModelAllocator<std::pair<const std::string, int>>>;

    template <class T>
    using Nodes = std::deque<T, ModelAllocator<T>>;

    uint32_t hash_name(std::string_view name) const;
    uint32_t hash_oid(OidView oid) const;
    uint32_t id_of(const trap_record* record) const;
    uint32_t id_of(const enterprise_info* enterprise) const;
    uint32_t enter(trap_record& record);
    uint32_t enter(enterprise_info& enterprise);
    void enter_name(uint32_t id);
    void drop_name(uint32_t id);

    void put_in_order(uint32_t id, uint32_t enterprise, bool behind_equals);
    void take_out_of_order(RecordNode& node);
    void put_in_order(EnterpriseNode& node);
    void take_out_of_order(EnterpriseNode& node);

    bool in_one_order(OidView oid) const;
    template <class Item, class Order, class EntryBelow, class Below>
    Item* last_below(Item* head, const Order& order, EntryBelow entry_below, Below below) const;
    bool is_linked(const EnterpriseNode& node) const;
    bool is_linked(const RecordNode& node) const;
    void index_enterprises();
    void index_records(uint32_t enterprise);
    void release_records(EnterpriseNode& node);

    static void note_stranger(IdTable& names, uint32_t hash);
    bool follows_names() const;
    bool is_in_list(const RecordNode& node);
    NamedTrap known_trap(std::string_view name);
    enterprise_info* known_name(const char* name);

    Nodes<RecordNode> record_nodes_;
    Nodes<EnterpriseNode> enterprise_nodes_;
    ModelVector<uint32_t> free_records_;  // numbers of nodes that are not in use
    ModelVector<uint32_t> free_enterprises_;
    IdTable records_by_address_;
    IdTable records_by_name_;
    IdTable enterprises_by_address_;
    IdTable enterprises_by_name_;
    IdTable enterprises_by_oid_;
    OrderedBlocks<EnterpriseEntry> enterprises_;
    uint32_t quadrants_ = 0;      // see in_one_order()
    bool unknown_names_ = false;  // the one known to share a name with enterprises has left
    Suffixes suffixes_;
    ModelVector<trap_record*> guest_records_;  // held for as long as the index is believed
    ModelVector<enterprise_info*> guest_enterprises_;
    int trust_ = 0;
    mutable uint32_t last_enterprise_ = 0;  // found last by its address
    uint64_t seed_;
};

// The one beside enterprise_list_head. It outlives every program's last call.
ModelIndex& model_index();

// While one lives the index is believed.
class IndexTrust {
  public:
    IndexTrust() { model_index().begin_trust(); }
    ~IndexTrust() { model_index().end_trust(); }
    IndexTrust(const IndexTrust&) = delete;
    IndexTrust& operator=(const IndexTrust&) = delete;
};

}  // namespace wq
