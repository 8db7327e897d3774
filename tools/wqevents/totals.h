/*
 * What a listener has counted.
 */
#ifndef WQEVENTS_TOOL_TOTALS_H
#define WQEVENTS_TOOL_TOTALS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace wq::command {

/* Reasons, all of them constant texts, with how often each came up. */
using Counters = std::map<std::string_view, std::uint64_t>;

struct Totals {
    std::uint64_t received = 0;
    std::optional<Counters> withheld;         // traps whose text was not printed, or not all of it
    std::optional<std::uint64_t> not_logged;  // traps that the log did not take
    Counters undecodable;                     // traps
    Counters refused;                         // peers that lost step, or were too many
    Counters unfinished;                      // traps that never ended
    std::uint64_t dropped = 0;                // datagrams, by the system
};

/*
 * totals_text: a line for each, the second and the third only where they are counted:
 *   received 12 traps
 *   withheld 2: cut short 1, not to be shown 1
 *   not logged 0
 *   undecodable 3: bindings 2, not a trap 1
 *   refused 1: message that is not a BER sequence 1
 *   unfinished 0
 *   dropped by the kernel 0
 */
std::string totals_text(const Totals& totals);

}  // namespace wq::command

#endif
