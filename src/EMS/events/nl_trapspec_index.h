// The index beside the lists of the configuration: it tells where in a list to look.
//
// The lists are the model, and a program may edit single items of them without telling. So the
// index never answers by itself. It knows the items that the library made and has not freed, and
// names one of them from which the list itself is then followed. Items that a program made are met
// on the way and never kept.
//
// The questions and where they are answered:
//   nl_trapspec_index.cpp  What is known at all, and when is it given up? It is given up when there
//                          is no memory for it and when trapspec_relinked() says so, and made anew
//                          from the lists by the next question. Without it the lists are followed.
//   nl_trapspec_order.cpp  Where do an object identifier and a pair of numbers belong? By binary
//                          search; sure if the links before the place lead to it.
//   nl_trapspec_names.cpp  Which trap has a name? By a hash; sure if the record still has the name
//                          and is in its list.
#pragma once

#include <wqevents/configuration.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "EMS/events/internal/index_tables.h"
#include "EMS/events/internal/item_pool.h"
#include "EMS/events/nl_trapspec_nodes.h"

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

// The record, if there is one with these numbers.
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

// What is known of an enterprise that the library made.
struct EnterpriseEntry {
    struct Record {
        uint64_t numbers;
        trap_record* item;
    };

    enterprise_info* item = nullptr;
    std::vector<uint32_t> oid;  // a copy: the enterprise's own is the program's to change
    uint32_t oid_hash = 0;
    bool in_order = false;                    // in ModelIndex::Tables::enterprises
    const EnterpriseEntry* before = nullptr;  // the one before it there
    OrderedBlocks<Record> records;
};

// The notes beside the items: what the index holds of them.
struct EnterpriseNote {
    std::unique_ptr<EnterpriseEntry> entry;
};
struct RecordNote {
    EnterpriseEntry* owner = nullptr;  // in whose `records` it is
    trap_record* before = nullptr;     // the one before it there
    uint64_t numbers = 0;              // by which it is there
    uint32_t name_hash = 0;
    uint32_t generation = 0;  // of the tables that it is about
    bool named = false;       // in ModelIndex::Tables::by_name
};

class ModelIndex {
  public:
    // Items of zeros, for the lists. They are never refused but as doMalloc() does.
    trap_record* make_record();
    enterprise_info* make_enterprise();
    // Frees an item, which may be a program's, after it was unlinked.
    void free(trap_record* record);
    void free(enterprise_info* enterprise);

    // How many records the library made and has not freed.
    size_t records() const { return records_.size(); }

    // What the library does to the lists: called once it is done.
    void add(enterprise_info& enterprise);
    void add(enterprise_info& enterprise, trap_record& record, bool after_equals);
    void renamed(trap_record& record);
    // Forgets all: the next question makes it anew from the lists.
    void drop();

    // The last enterprise, or the head, before the first one that `oid` does not sort after.
    enterprise_info* enterprise_before(OidView oid);
    // The last record, or the head, of lower numbers before the first one that has them not.
    trap_record* record_before(enterprise_info& enterprise, uint64_t numbers);
    // True if a search by order finds what following the list from its head does.
    bool is_searchable(OidView oid);
    // The first enterprise with this object identifier, or null if that is not certain at once.
    enterprise_info* known_enterprise(OidView oid);
    // True if the enterprise is in the list.
    bool is_listed(enterprise_info& enterprise);
    // The first record of these numbers, or null.
    trap_record* first_record(enterprise_info& enterprise, uint64_t numbers) {
        return of_numbers(record_before(enterprise, numbers)->next, numbers);
    }

    // Makes a search for the name that follows soon a quick one.
    void prefetch_name(std::string_view name) const;
    // The first trap of that name.
    NamedTrap find_trap(std::string_view name);
    // True if a trap has the name. In a very large model a name that was written by hand counts
    // once find_trap() has come upon it.
    bool is_taken(std::string_view name);
    // Numbers from 1 to below it make names of that beginning that are all taken.
    int first_suffix(std::string_view name);
    void set_first_suffix(std::string_view name, int number);

    // Between the two no program edits the lists: the index is believed, and what is not in it is
    // not in the lists.
    void begin_reading();
    void end_reading();
    bool is_believed() const { return reading_ != nullptr; }
    // The records by their nodes; null unless a file is read and there is memory for them.
    NodeRuns* node_runs() { return reading_ == nullptr ? nullptr : &reading_->runs; }
    void drop_node_runs();

  private:
    static constexpr size_t checked_links = 3;
    static constexpr size_t few_records = 1000;  // whose names the lists alone are asked for
    // From here on a name that is not known counts as free: following the lists for each new record
    // would cost the square of their number.
    static constexpr size_t very_many_records = 20000;

    struct Tables {
        OrderedBlocks<EnterpriseEntry*> enterprises;
        HashTable<EnterpriseEntry> by_oid;
        uint32_t quadrants = 0;  // see in_one_order()
        HashTable<trap_record> by_name;
        std::unordered_set<uint32_t> foreign_names;  // hashes of names that other records have
    };
    struct Reading {
        std::map<std::string, NamedTrap, std::less<>> foreign;  // records that are in no order
        std::map<std::string, int, std::less<>> suffixes;
        NodeRuns runs;
    };

    struct Bearers {
        trap_record* record = nullptr;
        int count = 0;
    };

    bool is_made();
    void make_tables();
    // False when there was no memory for the change: then the index is given up.
    template <class Change>
    bool change(Change change) {
        try {
            change();
            return true;
        } catch (const std::bad_alloc&) {
            drop();
            return false;
        }
    }

    RecordNote* note_of(const trap_record& record);
    EnterpriseEntry* entry_of(enterprise_info& enterprise);
    EnterpriseEntry* known_entry(const enterprise_info& enterprise);
    static EnterpriseEntry& new_entry(enterprise_info& enterprise, EnterpriseNote& note);
    void put_in_order(trap_record& record, RecordNote& note, EnterpriseEntry& owner,
                      bool after_equals);
    void take_out_of_order(const trap_record& record, RecordNote& note);
    static trap_record* record_before_at_once(const EnterpriseEntry& entry, uint64_t numbers);
    void put_in_order(EnterpriseEntry& entry);
    void take_out_of_order(EnterpriseEntry& entry);
    void release_records(EnterpriseEntry& entry);
    void index_enterprises();
    void index_records(EnterpriseEntry& entry);
    bool in_one_order(OidView oid) const;
    bool is_linked(const EnterpriseEntry& entry) const;

    template <class Item, class Order, class Below, class EntryBelow, class ItemOf>
    Item* last_below(Item* head, const Order& order, EntryBelow entry_below, Below below,
                     ItemOf item_of) const;

    uint32_t hash_name(std::string_view name) const;
    uint32_t hash_oid(OidView oid) const;
    void enter_name(trap_record& record, RecordNote& note);
    void note_foreign(enterprise_info& enterprise, trap_record& record);
    bool is_linked(const trap_record& record);
    bool is_in_list(trap_record& record, enterprise_info& enterprise);
    Bearers bearers(std::string_view name, uint32_t hash) const;
    bool follows_names() const;
    NamedTrap known_trap(std::string_view name, uint32_t hash);

    uint64_t seed() const { return reinterpret_cast<uintptr_t>(tables_) | 1U; }

    ItemPool<trap_record, RecordNote> records_;
    ItemPool<enterprise_info, EnterpriseNote> enterprises_;
    Tables* tables_ = nullptr;    // null: to be made anew
    Reading* reading_ = nullptr;  // null: programs may edit the lists
    int readers_ = 0;
    uint32_t generation_ = 0;                // of the tables
    EnterpriseEntry* last_entry_ = nullptr;  // found last by its object identifier
};

// The one beside enterprise_list_head.
extern constinit ModelIndex model_index;

// While one lives the index is believed.
class IndexTrust {
  public:
    IndexTrust() { model_index.begin_reading(); }
    ~IndexTrust() { model_index.end_reading(); }
    IndexTrust(const IndexTrust&) = delete;
    IndexTrust& operator=(const IndexTrust&) = delete;
};

}  // namespace wq
