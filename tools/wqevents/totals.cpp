#include "totals.h"

namespace wq::command {
namespace {

std::string counters_text(const char* name, const Counters& counters) {
    std::uint64_t sum = 0;
    std::string parts;
    for (const auto& [reason, count] : counters) {
        sum += count;
        parts += parts.empty() ? ": " : ", ";
        parts += std::string(reason) + " " + std::to_string(count);
    }
    return std::string(name) + " " + std::to_string(sum) + parts + "\n";
}

}  // namespace

std::string totals_text(const Totals& totals) {
    return "received " + std::to_string(totals.received) + " traps\n" +
           (totals.withheld ? counters_text("withheld", *totals.withheld) : "") +
           (totals.not_logged ? "not logged " + std::to_string(*totals.not_logged) + "\n" : "") +
           counters_text("undecodable", totals.undecodable) +
           counters_text("refused", totals.refused) +
           counters_text("unfinished", totals.unfinished) + "dropped by the kernel " +
           std::to_string(totals.dropped) + "\n";
}

}  // namespace wq::command
