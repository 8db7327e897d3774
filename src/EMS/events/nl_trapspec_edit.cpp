#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include <wqevents/alerts.h>

#include "EMS/events/nl_alloc.h"
#include "EMS/events/nl_trapspec.h"
#include "EMS/events/nl_trapspec_index.h"

namespace wq {

namespace {

// An array of `count` strings, which may be null or hold nulls.
std::span<char*> strings(char** list, int count) {
    return {list, list == nullptr ? 0 : static_cast<size_t>(std::max(count, 0))};
}

void release_each(char** list, int count) {
    std::ranges::for_each(strings(list, count), doFree);
}

void release_list(char** list, int count) {
    release_each(list, count);
    doFree(list);
}

void release_slots(prxSlotMapping* slots) {
    if (slots != nullptr) {
        release_list(slots->slotName, slots->slotCnt);
        release_list(slots->slotVal, slots->slotCnt);
        doFree(slots);
    }
}

void release_record(trap_record* rec) {
    // A pointer that somebody still holds then shows a record without a name.
    rec->name[0] = '\0';
    release_list(rec->nodeList, rec->nodeCnt);
    release_slots(rec->slotMap);
    doFree(rec->prxClassName);
    doFree(rec->trapDescription);
    release_texts(rec->description);
    release_element(rec->execargs_ptr);
    release_element(rec->exec_display_args_ptr);
    delete_ferlo_record(rec);
    model_index.free(rec);
}

// What a record is made or updated from, besides what it is found by.
struct NewTrap {
    std::string_view name;  // cut to what a record takes
    int nodeCnt;
    char** nodeList;
    char* rawformat;
    char* rawexec;
    char* rawdisplay;
    char* description;
    const char* eventClass;
    int slotCnt;
    char** slotNames;
    char** slotVals;
};

void release_unused(const NewTrap& trap) {
    release_list(trap.nodeList, trap.nodeCnt);
    release_each(trap.slotNames, trap.slotCnt);
    release_each(trap.slotVals, trap.slotCnt);
}

// `name` may be the record's own.
void store_name(trap_record& rec, std::string_view name) {
    std::memmove(rec.name, name.data(), name.size());
    std::memset(rec.name + name.size(), 0, sizeof rec.name - name.size());
}

// The first record with nodes that holds for one of them, taken in turn, else the one without.
trap_record* record_to_update(enterprise_info& enterprise, int generic, int specific,
                              const NewTrap& trap) {
    trap_record* first = model_index.first_record(enterprise, joined_numbers(generic, specific));
    if (first == nullptr) {
        return nullptr;
    }
    const std::span<char*> nodes = strings(trap.nodeList, trap.nodeCnt);
    try {
        if (NodeRuns* runs = model_index.node_runs()) {
            return nodes.empty() ? runs->find_general(enterprise, first)
                                 : runs->find(enterprise, first, nodes);
        }
    } catch (const std::bad_alloc&) {
        model_index.drop_node_runs();
    }
    return nodes.empty() ? findExactTrapRecord(&enterprise, generic, specific, nullptr)
                         : first_holding(first, nodes);
}

// What the parts of a record are made in.
using Allocate = void* (*)(size_t);

Allocate allocation() {
    return model_index.is_believed() ? file_block : doMalloc;
}

trap_element* compiled(char* raw) {
    auto* element = static_cast<trap_element*>(allocation()(sizeof(trap_element)));
    *element = {};
    compile_format(raw, *element, allocation());
    return element;
}

// Takes the texts that are given; those that are not stay what they are.
void store_texts(trap_record& rec, const NewTrap& trap) {
    if (trap.description != nullptr) {
        doFree(rec.trapDescription);
        rec.trapDescription = trap.description;
    }
    if (trap.rawformat != nullptr) {
        compile_format(trap.rawformat, rec.description, allocation());
    }
    if (trap.rawexec != nullptr) {
        release_element(rec.execargs_ptr);
        rec.execargs_ptr = compiled(trap.rawexec);
    }
    if (trap.rawdisplay != nullptr) {
        release_element(rec.exec_display_args_ptr);
        rec.exec_display_args_ptr = compiled(trap.rawdisplay);
    }
}

// The event class and the slots of a record that exists are kept: they are its operator's.
void update(trap_record& rec, const NewTrap& trap) {
    if (name_text(rec.name) != trap.name) {
        store_name(rec, trap.name);
        model_index.renamed(rec);
    }
    NewTrap unused = trap;
    if (rec.nodeCnt == 0) {
        std::swap(rec.nodeList, unused.nodeList);
        rec.nodeCnt = trap.nodeCnt;
        unused.nodeCnt = 0;
    }
    store_texts(rec, trap);
    release_unused(unused);
}

// The name, cut so that "_" and the number still fit.
std::string_view suffixed_name(std::string_view name, int number,
                               std::array<char, EMS_NAME_MAX>& room) {
    std::array<char, 12> suffix{'_'};
    const char* end = std::to_chars(suffix.data() + 1, suffix.data() + suffix.size(), number).ptr;
    const std::string_view digits(suffix.data(), static_cast<size_t>(end - suffix.data()));
    const std::string_view base = name.substr(0, room.size() - 1 - digits.size());
    const char* last = std::ranges::copy(digits, std::ranges::copy(base, room.begin()).out).out;
    return {room.data(), static_cast<size_t>(last - room.data())};
}

// The name, or its beginning with "_" and the first number from 1 on that makes a name of its own.
std::string_view unique_name(std::string_view name, std::array<char, EMS_NAME_MAX>& room) {
    if (!model_index.is_taken(name)) {
        return name;
    }
    int number = model_index.first_suffix(name);
    std::string_view text = suffixed_name(name, number, room);
    while (model_index.is_taken(text)) {
        text = suffixed_name(name, ++number, room);
    }
    model_index.set_first_suffix(name, number + 1);
    return text;
}

char** copy_of(char** list, int count) {
    auto** copy = static_cast<char**>(doMalloc(static_cast<size_t>(count) * sizeof *list));
    std::copy_n(list, count, copy);
    return copy;
}

prxSlotMapping* slots_of(const NewTrap& trap) {
    if (trap.slotCnt <= 0 || trap.slotNames == nullptr || trap.slotVals == nullptr) {
        release_each(trap.slotNames, trap.slotCnt);
        release_each(trap.slotVals, trap.slotCnt);
        return nullptr;
    }
    auto* slots = static_cast<prxSlotMapping*>(doMalloc(sizeof(prxSlotMapping)));
    slots->slotCnt = trap.slotCnt;
    slots->slotName = copy_of(trap.slotNames, trap.slotCnt);
    slots->slotVal = copy_of(trap.slotVals, trap.slotCnt);
    return slots;
}

// A record with nodes goes before those of the same numbers, one without behind them, so that a
// search meets the ones that say where they hold first.
void link(enterprise_info& enterprise, trap_record& rec) {
    const uint64_t numbers = numbers_of(rec);
    const bool behind = rec.nodeCnt == 0;
    trap_record* before = model_index.record_before(enterprise, numbers);
    while (behind && of_numbers(before->next, numbers) != nullptr) {
        before = before->next;
    }
    rec.next = before->next;
    before->next = &rec;
    model_index.add(enterprise, rec, behind);
}

trap_record& create(enterprise_info& enterprise, int generic, int specific, const NewTrap& trap) {
    trap_record* rec = model_index.make_record();
    std::array<char, EMS_NAME_MAX> room{};
    store_name(*rec, unique_name(trap.name, room));
    rec->generic_trap = generic;
    rec->specific_trap = specific;
    rec->nodeCnt = trap.nodeCnt;
    rec->nodeList = trap.nodeList;
    rec->prxClassName = doStrdup(trap.eventClass);
    rec->slotMap = slots_of(trap);
    store_texts(*rec, trap);
    link(enterprise, *rec);
    return *rec;
}

// Gives free what belongs to a record that is not made.
void release_all(const NewTrap& trap) {
    release_unused(trap);
    std::ranges::for_each(
        std::array{trap.rawformat, trap.rawexec, trap.rawdisplay, trap.description}, doFree);
}

// The item in front of `item` in the list, null where it is not in it: from `start` on, which is
// somewhere before it in a list that is in order, else from the head.
template <class Item>
Item* item_before(Item* head, Item* start, const Item* item) {
    for (Item* from : {start, head}) {
        for (Item* at = from; at != nullptr; at = at->next) {
            if (at->next == item) {
                return at;
            }
        }
    }
    return nullptr;
}

void remove(enterprise_info& enterprise, trap_record* rec) {
    trap_record* before = item_before(&enterprise.trap_rec_list_head,
                                      model_index.record_before(enterprise, numbers_of(*rec)), rec);
    before->next = rec->next;
    release_record(rec);
}

void release_enterprise_with_traps(enterprise_info* enterprise) {
    while (trap_record* rec = enterprise->trap_rec_list_head.next) {
        enterprise->trap_rec_list_head.next = rec->next;
        prefetch_record(rec->next);
        release_record(rec);
    }
    free_enterprise(enterprise);
}

std::span<actionCmd> actions() {
    return {actionCommands,
            actionCommands == nullptr ? 0 : static_cast<size_t>(std::max(numActionCommands, 0))};
}

}  // namespace
}  // namespace wq

// NOLINTNEXTLINE(readability-function-size): the interface has as many parameters as the file lines
trap_record* insertMallocTrapRecord(enterprise_info* enterprise, const char* name, int generic,
                                    int specific, int nodeCnt, char** nodeList, int category,
                                    char source, char* rawformat, char* rawexec, char* rawdisplay,
                                    char* description, int severity, int status, int forward,
                                    const char* eventClass, int slotCnt, char** slotNames,
                                    char** slotVals) {
    if (nodeCnt <= 0 || nodeList == nullptr) {
        doFree(nodeList);
        nodeCnt = 0;
        nodeList = nullptr;
    }
    const std::string_view text = name == nullptr ? "" : name;
    const wq::NewTrap trap{text.substr(0, EMS_NAME_MAX - 1),
                           nodeCnt,
                           nodeList,
                           rawformat,
                           rawexec,
                           rawdisplay,
                           description,
                           eventClass,
                           slotCnt,
                           slotNames,
                           slotVals};
    if (enterprise == nullptr || name == nullptr) {
        wq::release_all(trap);
        return nullptr;
    }
    trap_record* rec = wq::record_to_update(*enterprise, generic, specific, trap);
    if (rec != nullptr) {
        wq::update(*rec, trap);
    } else {
        rec = &wq::create(*enterprise, generic, specific, trap);
    }
    rec->category_number = category;
    rec->source = source;
    rec->severity = severity;
    rec->status = status;
    rec->forward = forward;
    return rec;
}

void trpFmtAddSourceToList(int* count, int* capacity, char*** list, const char* name) {
    constexpr int growth = 20;
    if (count == nullptr || capacity == nullptr || list == nullptr || name == nullptr) {
        return;
    }
    if (++*count > *capacity) {
        *capacity += growth;
        *list =
            static_cast<char**>(doRealloc(*list, static_cast<size_t>(*capacity) * sizeof **list));
    }
    (*list)[*count - 1] = doStrdup(name);
}

int insert_enterprise(const uint32_t* oid, uint32_t len, const char* name) {
    if (oid == nullptr || name == nullptr) {
        return -1;
    }
    char* own_name = doStrdup(name);
    const wq::OidView wanted(oid, len);
    enterprise_info* before = wq::model_index.enterprise_before(wanted);
    enterprise_info* next = before->next;
    if (next != nullptr && wq::compare_oids(wq::oid_of(*next), wanted) == 0) {
        doFree(next->enterprise_name);
        next->enterprise_name = own_name;
        return 0;
    }
    enterprise_info* added = wq::model_index.make_enterprise();
    added->enterprise_name = own_name;
    added->oid_len = len;
    added->enterprise_oid = static_cast<uint32_t*>(doMalloc(wanted.size_bytes()));
    std::ranges::copy(wanted, added->enterprise_oid);
    added->next = next;
    before->next = added;
    wq::model_index.add(*added);
    return 0;
}

int delete_enterprise_record(enterprise_info* enterprise) {
    if (enterprise == nullptr || enterprise->trap_rec_list_head.next != nullptr) {
        return -1;
    }
    enterprise_info* before =
        wq::item_before(&enterprise_list_head,
                        wq::model_index.enterprise_before(wq::oid_of(*enterprise)), enterprise);
    if (before == nullptr) {
        return -1;
    }
    before->next = enterprise->next;
    free_enterprise(enterprise);
    return 0;
}

int delete_trap_record(enterprise_info* enterprise, int generic, int specific) {
    trap_record* rec = nullptr;
    if (find_exact_trap_record(enterprise, generic, specific, &rec) != 0) {
        return -1;
    }
    wq::remove(*enterprise, rec);
    return 0;
}

int deleteTrapRecord(const char* name) {
    trap_record* rec = nullptr;
    enterprise_info* enterprise = nullptr;
    if (nameToTrapAndEnterprise(name, &rec, &enterprise) != 0) {
        return -1;
    }
    wq::remove(*enterprise, rec);
    return 0;
}

int deleteTrapAction(const char* name) {
    const std::span<actionCmd> all = wq::actions();
    const auto found = std::ranges::find_if(all, [&](const actionCmd& action) {
        return name != nullptr && action.name != nullptr && std::strcmp(action.name, name) == 0;
    });
    if (found == all.end()) {
        return 1;
    }
    freeAction(&*found);
    std::copy(found + 1, all.end(), found);
    if (--numActionCommands == 0) {
        freeAllActions();
        return 0;
    }
    actionCommands = static_cast<actionCmd*>(
        doRealloc(actionCommands, static_cast<size_t>(numActionCommands) * sizeof(actionCmd)));
    return 0;
}

void freeAction(actionCmd* action) {
    if (action != nullptr) {
        doFree(action->name);
        doFree(action->description);
        doFree(action->cmd);
        action->name = nullptr;
        action->description = nullptr;
        action->cmd = nullptr;
    }
}

void freeAllActions(void) {
    for (actionCmd& action : wq::actions()) {
        freeAction(&action);
    }
    doFree(actionCommands);
    actionCommands = nullptr;
    numActionCommands = 0;
}

void free_trap_record(trap_record* rec) {
    if (rec != nullptr) {
        wq::release_record(rec);
    }
}

void free_enterprise(enterprise_info* enterprise) {
    if (enterprise != nullptr) {
        doFree(enterprise->enterprise_name);
        doFree(enterprise->enterprise_oid);
        wq::model_index.free(enterprise);
    }
}

void free_all_info(void) {
    wq::model_index.drop();  // at once, not record by record
    while (enterprise_info* enterprise = enterprise_list_head.next) {
        enterprise_list_head.next = enterprise->next;
        wq::release_enterprise_with_traps(enterprise);
    }
    for (char*& category : EMScategories) {
        doFree(category);
        category = nullptr;
    }
    freeAllActions();
}
