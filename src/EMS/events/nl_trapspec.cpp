#include <wqevents/configuration.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "EMS/events/nl_trapspec_index.h"

enterprise_info enterprise_list_head = {};
trap_record default_trap_record = {};
char* EMScategories[EMS_CATEGORIES_MAX] = {};
actionCmd* actionCommands = nullptr;
int numActionCommands = 0;

const char* threshCatString = "Threshold Events";
const char* nettopCatString = "Network Topology Events";
const char* errorCatString = "Error Events";
const char* statusCatString = "Status Events";
const char* nodeconfCatString = "Node Configuration Events";
const char* applalertCatString = "Application Alert Events";
const char* logOnlyCatString = "LOGONLY";
const char* ignoreCatString = "IGNORE";

namespace wq {
namespace {

OidView view_of(const uint32_t* oid, uint32_t len) {
    return {oid, oid == nullptr ? 0 : size_t{len}};
}

bool begins_with(OidView oid, OidView beginning) {
    return beginning.size() <= oid.size() &&
           std::equal(beginning.begin(), beginning.end(), oid.begin());
}

size_t common_length(OidView a, OidView b) {
    const auto length = static_cast<ptrdiff_t>(std::min(a.size(), b.size()));
    const auto end = a.begin() + length;
    return static_cast<size_t>(std::mismatch(a.begin(), end, b.begin()).first - a.begin());
}

// Of the enterprises from `start` on the first one that `oid` begins with.
enterprise_info* follow_beginnings(OidView oid, enterprise_info* start) {
    enterprise_info* at = start;
    while (at != nullptr && !begins_with(oid, oid_of(*at))) {
        at = at->next;
    }
    return at;
}

// The same among all enterprises that the beginning `part` of `oid` does not sort behind. Of the
// beginnings of an object identifier the longest sorts first, and all that sorts between two of
// them extends the shorter one. So the first enterprise here is the one that is searched, or what
// it has in common with `oid` is as much as another can still have.
enterprise_info* longest_beginning(OidView oid, OidView part) {
    for (;;) {
        enterprise_info* next = model_index.enterprise_before(part)->next;
        if (next == nullptr || begins_with(oid, oid_of(*next))) {
            return next;
        }
        const size_t common = common_length(part, oid_of(*next));
        if (common == part.size()) {
            return follow_beginnings(oid, next);  // a list that is out of order
        }
        part = part.first(common);
    }
}

enterprise_info* find_from(OidView oid, enterprise_info* start) {
    const bool all = start != nullptr && start == enterprise_list_head.next;
    if (enterprise_info* known = all ? model_index.known_enterprise(oid) : nullptr) {
        return known;
    }
    if (start == nullptr || !model_index.is_searchable(oid)) {
        return follow_beginnings(oid, start);
    }
    if (all) {
        return longest_beginning(oid, oid);
    }
    const OidView from = oid_of(*start);
    if (begins_with(oid, from) || !model_index.is_listed(*start)) {
        return follow_beginnings(oid, start);
    }
    const bool after = compare_oids(oid, from) >= 0;
    return longest_beginning(oid, after ? oid : oid.first(common_length(oid, from)));
}

constexpr std::string_view oid_separators = " \t.,";

std::string_view skip_separators(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(oid_separators), text.size()));
    return text;
}

// Takes a run of digits off the text; a number beyond 32 bits keeps its lower 32.
uint32_t take_number(std::string_view& text) {
    uint32_t number = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        number = number * 10 + static_cast<uint32_t>(text.front() - '0');
        text.remove_prefix(1);
    }
    return number;
}

constexpr size_t shown_numbers = 100;

struct OidText {
    std::array<char, shown_numbers * 11> text{};  // each up to 10 digits and a dot

    char* write(OidView oid) {
        char* end = text.data();
        for (const uint32_t number : oid.first(std::min(oid.size(), shown_numbers))) {
            if (end != text.data()) {
                *end++ = '.';
            }
            end = std::to_chars(end, text.data() + text.size(), number).ptr;
        }
        *end = '\0';
        return text.data();
    }
};

OidText oid_text;

}  // namespace
}  // namespace wq

char* oid_to_string(const uint32_t* oid, uint32_t len) {
    return oid == nullptr ? nullptr : wq::oid_text.write(wq::view_of(oid, len));
}

int oidcmp(const uint32_t* a, const uint32_t* b, uint32_t alen, uint32_t blen) {
    return wq::compare_oids(wq::view_of(a, alen), wq::view_of(b, blen));
}

int find_enterprise(const uint32_t* oid, uint32_t len, enterprise_info** result) {
    if (result == nullptr) {
        return -1;
    }
    *result = enterprise_list_head.next;
    return find_enterprise_relative(oid, len, result);
}

int find_enterprise_relative(const uint32_t* oid, uint32_t len,
                             enterprise_info** start_and_result) {
    if (start_and_result == nullptr) {
        return -1;
    }
    enterprise_info* start = *start_and_result;
    *start_and_result = oid == nullptr ? nullptr : wq::find_from({oid, len}, start);
    return *start_and_result != nullptr ? 0 : -1;
}

int name_to_enterprise(const char* name, enterprise_info** result) {
    if (result == nullptr) {
        return -1;
    }
    enterprise_info* at = name == nullptr ? nullptr : enterprise_list_head.next;
    while (at != nullptr &&
           (at->enterprise_name == nullptr || std::strcmp(at->enterprise_name, name) != 0)) {
        at = at->next;
    }
    *result = at;
    return *result != nullptr ? 0 : -1;
}

int oid_to_name(const uint32_t* oid, uint32_t len, char* buffer, int size) {
    if (buffer == nullptr || size < 1) {
        return -1;
    }
    *buffer = '\0';
    enterprise_info* found = nullptr;
    if (find_enterprise(oid, len, &found) != 0 || found->enterprise_name == nullptr) {
        return -1;
    }
    const std::string_view name = found->enterprise_name;
    if (name.size() >= static_cast<size_t>(size)) {
        return -1;
    }
    *std::copy(name.begin(), name.end(), buffer) = '\0';
    return 0;
}

int cname_to_oid(const char* text, uint32_t* oid, int* count) {
    if (text == nullptr || oid == nullptr || count == nullptr) {
        return -1;
    }
    *count = 0;
    std::string_view rest = wq::skip_separators(text);
    while (!rest.empty() && rest.front() >= '0' && rest.front() <= '9') {
        oid[(*count)++] = wq::take_number(rest);
        rest = wq::skip_separators(rest);
    }
    return rest.empty() ? 0 : 1;
}

trap_record* findExactTrapRecord(enterprise_info* enterprise, int generic, int specific,
                                 const char* node) {
    if (enterprise == nullptr) {
        return nullptr;
    }
    const uint64_t numbers = wq::joined_numbers(generic, specific);
    trap_record* at = wq::model_index.first_record(*enterprise, numbers);
    while (at != nullptr && trapRecNodesMatch(at, node) == 0) {
        at = wq::of_numbers(at->next, numbers);
    }
    return at;
}

int find_exact_trap_record(enterprise_info* enterprise, int generic, int specific,
                           trap_record** result) {
    if (result == nullptr) {
        return -1;
    }
    *result = enterprise == nullptr ? nullptr
                                    : wq::model_index.first_record(
                                          *enterprise, wq::joined_numbers(generic, specific));
    return *result != nullptr ? 0 : -1;
}

int nameToTrapAndEnterprise(const char* name, trap_record** rec, enterprise_info** enterprise) {
    if (rec == nullptr || enterprise == nullptr) {
        return -1;
    }
    const wq::NamedTrap found =
        name == nullptr ? wq::NamedTrap() : wq::model_index.find_trap(wq::name_text(name));
    *rec = found.record;
    *enterprise = found.enterprise;
    return found.record != nullptr ? 0 : -1;
}

trap_record* nameToExactTrap(const char* name) {
    return name == nullptr ? nullptr : wq::model_index.find_trap(wq::name_text(name)).record;
}
