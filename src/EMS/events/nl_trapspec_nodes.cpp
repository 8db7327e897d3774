#include <wqevents/configuration.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

#include "EMS/events/internal/conf_lines.h"

namespace wq {
namespace {

enum class Listed { no, yes, unreadable };

Listed is_listed_in(const char* path, std::string_view node) {
    FileText list;
    if (!list.read(path, conf_limits)) {
        return Listed::unreadable;
    }
    bool found = false;
    for_each_listed_node(list, [&](std::string_view word) {
        found = word == node;
        return !found;
    });
    return found ? Listed::yes : Listed::no;
}

Listed matches(const char* entry, std::string_view node) {
    if (entry == nullptr) {
        return Listed::no;
    }
    if (entry == node) {
        return Listed::yes;
    }
    return *entry == '/' ? is_listed_in(entry, node) : Listed::no;
}

}  // namespace
}  // namespace wq

int trapRecNodesMatch(trap_record* rec, const char* node) WQEVENTS_NOEXCEPT {
    if (rec == nullptr) {
        return 0;
    }
    if (rec->nodeCnt <= 0) {
        return 1;
    }
    if (node == nullptr || rec->nodeList == nullptr) {
        return 0;
    }
    for (const char* entry : std::span(rec->nodeList, static_cast<size_t>(rec->nodeCnt))) {
        // A list that cannot be read may hold the node or not: the record then stays out of use.
        const wq::Listed listed = wq::matches(entry, node);
        if (listed != wq::Listed::no) {
            return listed == wq::Listed::yes ? 1 : 0;
        }
    }
    return 0;
}
