/*
 * A configuration in memory for a test, emptied when the test ends, and the look-ups as they are
 * defined: by following the lists from their heads.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_TRAP_MODEL_H
#define WQEVENTS_TESTS_SUPPORT_TRAP_MODEL_H

#include <wqevents/configuration.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace wq::test {

using Oid = std::vector<uint32_t>;

struct TrapModel {
    TrapModel() { free_all_info(); }
    ~TrapModel() { free_all_info(); }
    TrapModel(const TrapModel&) = delete;
    TrapModel& operator=(const TrapModel&) = delete;

    static enterprise_info* enterprise(const Oid& oid, const std::string& name) {
        insert_enterprise(oid.data(), static_cast<uint32_t>(oid.size()), name.c_str());
        enterprise_info* found = enterprise_list_head.next;
        while (found != nullptr &&
               Oid(found->enterprise_oid, found->enterprise_oid + found->oid_len) != oid) {
            found = found->next;
        }
        return found;
    }

    static char** node_list(const std::vector<std::string>& nodes) {
        int count = 0;
        int capacity = 0;
        char** list = nullptr;
        for (const std::string& node : nodes) {
            trpFmtAddSourceToList(&count, &capacity, &list, node.c_str());
        }
        return list;
    }

    static trap_record* trap(enterprise_info* enterprise, const std::string& name, int generic,
                             int specific, const std::vector<std::string>& nodes = {}) {
        return insertMallocTrapRecord(enterprise, name.c_str(), generic, specific,
                                      static_cast<int>(nodes.size()), node_list(nodes), 2, 'A',
                                      nullptr, nullptr, nullptr, nullptr, 1, 0, 0, nullptr, 0,
                                      nullptr, nullptr);
    }

    /* A record made by the program, linked nowhere. */
    static trap_record* handmade_trap(const std::string& name, int generic, int specific) {
        auto* rec = static_cast<trap_record*>(doMalloc(sizeof(trap_record)));
        rename(rec, name);
        rec->generic_trap = generic;
        rec->specific_trap = specific;
        return rec;
    }

    static enterprise_info* handmade_enterprise(const Oid& oid, const std::string& name) {
        auto* made = static_cast<enterprise_info*>(doMalloc(sizeof(enterprise_info)));
        made->enterprise_name = doStrdup(name.c_str());
        made->oid_len = static_cast<uint32_t>(oid.size());
        made->enterprise_oid = static_cast<uint32_t*>(doMalloc(oid.size() * sizeof(uint32_t)));
        std::copy(oid.begin(), oid.end(), made->enterprise_oid);
        return made;
    }

    /* As a program does it: into the field. */
    static void rename(trap_record* rec, const std::string& name) {
        std::memset(rec->name, 0, sizeof rec->name);
        name.copy(rec->name, sizeof rec->name - 1);
    }
};

inline trap_record* head_of(enterprise_info* enterprise) {
    return &enterprise->trap_rec_list_head;
}

/* Takes an item that is in the list out of it, by hand. */
template <class Item>
Item* unlink(Item* head, Item* item) {
    while (head->next != item) {
        head = head->next;
    }
    head->next = item->next;
    return item;
}

/* Puts an item behind those of lower numbers, by hand. */
inline trap_record* link(enterprise_info* enterprise, trap_record* rec) {
    trap_record* at = head_of(enterprise);
    while (at->next != nullptr && (at->next->generic_trap < rec->generic_trap ||
                                   (at->next->generic_trap == rec->generic_trap &&
                                    at->next->specific_trap < rec->specific_trap))) {
        at = at->next;
    }
    rec->next = at->next;
    at->next = rec;
    return rec;
}

inline enterprise_info* link(enterprise_info* made) {
    enterprise_info* at = &enterprise_list_head;
    while (at->next != nullptr && oidcmp(at->next->enterprise_oid, made->enterprise_oid,
                                         at->next->oid_len, made->oid_len) < 0) {
        at = at->next;
    }
    made->next = at->next;
    at->next = made;
    return made;
}

/* The look-ups without an index. */
inline enterprise_info* walk_enterprise(const Oid& oid, enterprise_info* from) {
    for (; from != nullptr; from = from->next) {
        if (from->oid_len <= oid.size() &&
            std::equal(from->enterprise_oid, from->enterprise_oid + from->oid_len, oid.begin())) {
            return from;
        }
    }
    return nullptr;
}

inline trap_record* walk_numbers(enterprise_info* enterprise, int generic, int specific) {
    for (trap_record* r = head_of(enterprise)->next; r != nullptr; r = r->next) {
        if (r->generic_trap > generic ||
            (r->generic_trap == generic && r->specific_trap > specific)) {
            return nullptr;
        }
        if (r->generic_trap == generic && r->specific_trap == specific) {
            return r;
        }
    }
    return nullptr;
}

struct Named {
    enterprise_info* enterprise = nullptr;
    trap_record* record = nullptr;
    bool operator==(const Named&) const = default;
};

inline Named walk_name(const std::string& name) {
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (trap_record* r = head_of(e)->next; r != nullptr; r = r->next) {
            if (std::strncmp(r->name, name.c_str(), EMS_NAME_MAX) == 0) {
                return {e, r};
            }
        }
    }
    return {};
}

inline enterprise_info* walk_enterprise_name(const std::string& name) {
    enterprise_info* e = enterprise_list_head.next;
    while (e != nullptr && name != e->enterprise_name) {
        e = e->next;
    }
    return e;
}

/* The library's, with the same results. */
inline enterprise_info* find_enterprise(const Oid& oid) {
    enterprise_info* found = nullptr;
    const int result = ::find_enterprise(oid.data(), static_cast<uint32_t>(oid.size()), &found);
    return result == (found != nullptr ? 0 : -1) ? found : &enterprise_list_head;
}

inline enterprise_info* find_enterprise_from(const Oid& oid, enterprise_info* start) {
    find_enterprise_relative(oid.data(), static_cast<uint32_t>(oid.size()), &start);
    return start;
}

inline Named find_name(const std::string& name) {
    Named found;
    nameToTrapAndEnterprise(name.c_str(), &found.record, &found.enterprise);
    return found;
}

inline enterprise_info* find_enterprise_name(const std::string& name) {
    enterprise_info* found = nullptr;
    name_to_enterprise(name.c_str(), &found);
    return found;
}

inline std::vector<std::string> names_of(enterprise_info* enterprise) {
    std::vector<std::string> names;
    for (const trap_record* r = head_of(enterprise)->next; r != nullptr; r = r->next) {
        names.emplace_back(r->name);
    }
    return names;
}

inline std::vector<std::string> enterprise_names() {
    std::vector<std::string> names;
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        names.emplace_back(e->enterprise_name);
    }
    return names;
}

}  // namespace wq::test

#endif
