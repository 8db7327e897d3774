// The nodes that a record holds for, and the search for a record by them.
#include "EMS/events/nl_trapspec_nodes.h"

#include <new>
#include <string_view>

#include "EMS/events/nl_trapspec_index.h"

namespace wq {
namespace {

trap_record* next_of_run(const trap_record& rec) {
    return of_numbers(rec.next, numbers_of(rec));
}

trap_record* first_holding_one(trap_record* first, const char* node) {
    trap_record* at = first;
    while (at != nullptr && (at->nodeCnt <= 0 || trapRecNodesMatch(at, node) == 0)) {
        at = next_of_run(*at);
    }
    return at;
}

// Node by node, which takes no memory.
trap_record* first_holding_in_turn(trap_record* first, std::span<char* const> nodes) {
    for (const char* node : nodes) {
        if (trap_record* found = first_holding_one(first, node)) {
            return found;
        }
    }
    return nullptr;
}

// Record by record: the lowest place among `nodes` that one of the records holds for counts.
trap_record* first_holding_at_once(trap_record* first, std::span<char* const> nodes) {
    std::unordered_map<std::string_view, size_t> places;
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (nodes[i] != nullptr) {
            places.try_emplace(nodes[i], i);
        }
    }
    trap_record* found = nullptr;
    size_t lowest = nodes.size();
    for (trap_record* at = first; at != nullptr && lowest != 0; at = next_of_run(*at)) {
        for_each_node(*at, [&](std::string_view name) {
            const auto place = places.find(name);
            if (place != places.end() && place->second < lowest) {
                lowest = place->second;
                found = at;
            }
            return lowest != 0;
        });
    }
    return found;
}

}  // namespace

trap_record* first_holding(trap_record* first, std::span<char* const> nodes) {
    if (nodes.size() > 1) {
        try {
            return first_holding_at_once(first, nodes);
        } catch (const std::bad_alloc&) {
            // It takes longer then.
        }
    }
    return first_holding_in_turn(first, nodes);
}

NodeRuns::Run& NodeRuns::run_of(const enterprise_info& enterprise, const trap_record& rec) {
    return runs_[{&enterprise, numbers_of(rec)}];
}

trap_record* NodeRuns::find(const enterprise_info& enterprise, trap_record* first,
                            std::span<char* const> nodes) {
    Run& run = run_of(enterprise, *first);
    if (!run.knows_nodes) {
        for (trap_record* at = first; at != nullptr; at = next_of_run(*at)) {
            for_each_node(*at, [&](std::string_view name) {
                run.by_node.try_emplace(std::string(name), at);
                return true;
            });
        }
        run.knows_nodes = true;
    }
    for (const char* node : nodes) {
        const auto found = node == nullptr ? run.by_node.end() : run.by_node.find(node);
        if (found != run.by_node.end()) {
            return found->second;
        }
    }
    return nullptr;
}

trap_record* NodeRuns::find_general(const enterprise_info& enterprise, trap_record* first) {
    Run& run = run_of(enterprise, *first);
    if (!run.knows_general) {
        trap_record* at = first;
        while (at != nullptr && at->nodeCnt > 0) {
            at = next_of_run(*at);
        }
        run.general = at;
        run.knows_general = true;
    }
    return run.general;
}

void NodeRuns::add(const enterprise_info& enterprise, trap_record& rec) {
    const auto found = runs_.find({&enterprise, numbers_of(rec)});
    if (found == runs_.end()) {
        return;
    }
    Run& run = found->second;
    if (rec.nodeCnt <= 0) {
        run.general = run.general == nullptr ? &rec : run.general;
        return;
    }
    // It went before the others, so what both hold for is its own now.
    const bool wanted = run.knows_nodes;
    for_each_node(rec, [&](std::string_view name) {
        if (wanted) {
            run.by_node.insert_or_assign(std::string(name), &rec);
        }
        return wanted;
    });
}

}  // namespace wq

int trapRecNodesMatch(trap_record* rec, const char* node) {
    if (rec == nullptr) {
        return 0;
    }
    if (rec->nodeCnt <= 0) {
        return 1;
    }
    bool found = false;
    if (node != nullptr) {
        const std::string_view wanted = node;
        wq::for_each_node(*rec, [&](std::string_view name) {
            found = name == wanted;
            return !found;
        });
    }
    return found ? 1 : 0;
}
