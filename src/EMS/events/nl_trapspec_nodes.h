// Which of the records that share their numbers holds for a node.
#pragma once

#include <wqevents/configuration.h>

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

#include "EMS/events/internal/conf_lines.h"

namespace wq {

// Calls `visit` with each name in the list file `path` until it returns false. False if the file
// cannot be read.
template <class Visit>
bool for_each_name_in(const char* path, Visit visit) {
    FileText list;
    if (!list.read(path, conf_limits)) {
        return false;
    }
    for_each_listed_node(list, visit);
    return true;
}

// Calls `visit` with each name that the record's nodes stand for, in their order, until it returns
// false: an entry that begins with '/' stands for itself and for the names in the list file. One
// that cannot be read may hold any node: the entries after it count for none.
template <class Visit>
void for_each_node(const trap_record& rec, Visit visit) {
    if (rec.nodeList == nullptr || rec.nodeCnt <= 0) {
        return;
    }
    for (const char* entry : std::span(rec.nodeList, static_cast<size_t>(rec.nodeCnt))) {
        if (entry == nullptr) {
            continue;
        }
        bool wanted = visit(std::string_view(entry));
        const bool known =
            !wanted || *entry != '/' || for_each_name_in(entry, [&](std::string_view word) {
                wanted = visit(word);
                return wanted;
            });
        if (!wanted || !known) {
            return;
        }
    }
}

// Of the records from `first` on that have its numbers: the first one with nodes that holds for one
// of `nodes`, taken in turn; null where none does.
trap_record* first_holding(trap_record* first, std::span<char* const> nodes);

// The same for many searches, each of them quick, among records that only the library edits
// meanwhile.
class NodeRuns {
  public:
    // As first_holding().
    trap_record* find(const enterprise_info& enterprise, trap_record* first,
                      std::span<char* const> nodes);
    // The first record from `first` on that has its numbers and no nodes.
    trap_record* find_general(const enterprise_info& enterprise, trap_record* first);
    // A record that was put into the list.
    void add(const enterprise_info& enterprise, trap_record& rec);
    void clear() { runs_.clear(); }

  private:
    struct Run {
        bool knows_nodes = false;
        bool knows_general = false;
        trap_record* general = nullptr;
        std::unordered_map<std::string, trap_record*> by_node;
    };

    Run& run_of(const enterprise_info& enterprise, const trap_record& rec);

    // By enterprise and numbers; only those that were searched.
    std::map<std::pair<const enterprise_info*, uint64_t>, Run> runs_;
};

}  // namespace wq
