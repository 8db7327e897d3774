#include "conf_trap.h"

#include <wqevents/formatter.h>

#include <algorithm>
#include <span>
#include <string_view>

#include "conf_model.h"
#include "oid_text.h"
#include "shown_text.h"

namespace wq::command {
namespace {

struct Place {
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
};

Place place_of(const std::string& name) {
    Place place;
    /* The look-up compares as much as a record can hold. */
    if (name.size() >= EMS_NAME_MAX ||
        nameToTrapAndEnterprise(name.c_str(), &place.record, &place.enterprise) != 0) {
        throw no_trap(name);
    }
    return place;
}

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

std::optional<std::string> text_of(const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

std::optional<std::string> raw_text(const trap_element* element) {
    return element == nullptr ? std::nullopt : text_of(element->rawstring);
}

TrapValues values_of(const Place& place) {
    const trap_record& record = *place.record;
    TrapValues trap;
    trap.name = record.name;
    trap.enterprise = place.enterprise;
    trap.generic = record.generic_trap;
    trap.specific = record.specific_trap;
    trap.source = record.source;
    trap.severity = record.severity;
    trap.status = record.status;
    trap.category = record.category_number;
    trap.format = text_or_empty(record.description.rawstring);
    trap.exec = raw_text(record.execargs_ptr);
    trap.display = raw_text(record.exec_display_args_ptr);
    trap.forward = record.forward != 0;
    trap.nodes.assign(record.nodeList, record.nodeList + record.nodeCnt);
    trap.event_class = text_of(record.prxClassName);
    for (int i = 0; record.slotMap != nullptr && i < record.slotMap->slotCnt; ++i) {
        trap.slots.emplace_back(record.slotMap->slotName[i], record.slotMap->slotVal[i]);
    }
    trap.description = text_or_empty(record.trapDescription);
    return trap;
}

/* --- what a file can hold --- */

void refuse_if(bool wrong, std::string_view what, std::string_view why) {
    if (wrong) {
        throw Failure(std::string("the ").append(what).append(" ").append(why));
    }
}

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

void check_one_line(std::string_view what, std::string_view text) {
    refuse_if(text.find('\n') != std::string_view::npos, what, "contains a line break");
}

void check_word(std::string_view what, std::string_view text) {
    refuse_if(text.empty(), what, "is empty");
    refuse_if(std::ranges::any_of(text, is_space), what, "contains white space");
}

void check_name(std::string_view name) {
    check_word("name", name);
    refuse_if(name.size() >= EMS_NAME_MAX, "name", "is longer than 39 characters");
    refuse_if(name.front() == '#', "name", "begins with '#': its line would be a comment");
}

/* A text that is compiled, where a longer one is replaced by a message. */
void check_format_text(std::string_view what, std::string_view text) {
    constexpr std::size_t longest = 4094;
    check_one_line(what, text);
    refuse_if(text.size() > longest, what, "is longer than 4094 bytes");
}

void check_format(std::string_view format) {
    check_format_text("format", format);
    refuse_if(format.empty(), "format", "is empty");
    refuse_if(format.front() == ' ' || format.front() == '\t', "format", "begins with a blank");
    refuse_if(format.front() == '#', "format", "begins with '#': its line would be a comment");
}

/* --- into the model --- */

bool holds_for_one(trap_record& record, const std::vector<std::string>& nodes) {
    return std::ranges::any_of(nodes, [&record](const std::string& node) {
        return trapRecNodesMatch(&record, node.c_str()) != 0;
    });
}

/* Whether a file with both would have one of them change the other. */
bool is_mistaken_for(trap_record& record, const TrapValues& trap) {
    return record.generic_trap == trap.generic && record.specific_trap == trap.specific &&
           (trap.nodes.empty() ? record.nodeCnt == 0
                               : record.nodeCnt != 0 && holds_for_one(record, trap.nodes));
}

void check_free(const TrapValues& trap) {
    if (nameToExactTrap(trap.name.c_str()) != nullptr) {
        throw Failure("there is a trap " + command::quoted(trap.name) + " already");
    }
    for (trap_record* record = trap.enterprise->trap_rec_list_head.next; record != nullptr;
         record = record->next) {
        if (is_mistaken_for(*record, trap)) {
            throw Failure("the trap " + command::quoted(record->name) +
                          " has these numbers already, for the same nodes");
        }
    }
}

char* duplicate(const std::optional<std::string>& text) {
    return text ? doStrdup(text->c_str()) : nullptr;
}

trap_record* insert(const TrapValues& trap) {
    int count = 0;
    int capacity = 0;
    char** nodes = nullptr;
    for (const std::string& node : trap.nodes) {
        trpFmtAddSourceToList(&count, &capacity, &nodes, node.c_str());
    }
    std::vector<char*> names;
    std::vector<char*> values;
    for (const auto& [name, value] : trap.slots) {
        names.push_back(doStrdup(name.c_str()));
        values.push_back(doStrdup(value.c_str()));
    }
    return insertMallocTrapRecord(
        trap.enterprise, trap.name.c_str(), trap.generic, trap.specific, count, nodes,
        trap.category, trap.source, doStrdup(trap.format.c_str()), duplicate(trap.exec),
        duplicate(trap.display), doStrdup(trap.description.c_str()), trap.severity, trap.status,
        trap.forward ? 1 : 0, trap.event_class ? trap.event_class->c_str() : nullptr,
        static_cast<int>(names.size()), names.data(), values.data());
}

/* The item of the enterprise's list in front of the record. */
trap_record* before(enterprise_info& enterprise, const trap_record* record) {
    trap_record* at = &enterprise.trap_rec_list_head;
    while (at->next != record) {
        at = at->next;
    }
    return at;
}

bool has_same_place(const TrapValues& one, const TrapValues& other) {
    return one.enterprise == other.enterprise && one.generic == other.generic &&
           one.specific == other.specific && one.nodes.empty() == other.nodes.empty();
}

void move_behind(enterprise_info& enterprise, trap_record* place, trap_record* record) {
    if (place->next != record) {
        before(enterprise, record)->next = record->next;
        record->next = place->next;
        place->next = record;
    }
}

/* --- as text --- */

std::string category_text(int number) {
    const bool named =
        number >= 0 && number < EMS_CATEGORIES_MAX && EMScategories[number] != nullptr;
    return named ? EMScategories[number] : "";
}

std::string enterprise_text(const enterprise_info* enterprise) {
    return enterprise == nullptr ? ""
                                 : oid_to_text(std::span<const std::uint32_t>(
                                       enterprise->enterprise_oid, enterprise->oid_len));
}

std::string nodes_text(const std::vector<std::string>& nodes) {
    std::string text;
    for (const std::string& node : nodes) {
        text.append(text.empty() ? "" : ", ").append(node);
    }
    return text;
}

std::string slots_text(const TrapValues& trap) {
    std::string text;
    for (const auto& [name, value] : trap.slots) {
        text.append(text.empty() ? "" : ", ").append(name).append("=").append(value);
    }
    return text;
}

}  // namespace

Failure no_trap(const std::string& name) {
    return Failure(std::string("no trap ")
                       .append(command::quoted(name))
                       .append(" is configured in ")
                       .append(shown(getVortdConfFile()))
                       .append("; 'wqevents conf add' makes one"));
}

TrapValues find_trap(const std::string& name) {
    return values_of(place_of(name));
}

bool has_alert(const std::string& name) {
    load_alerts();
    return place_of(name).record->alert_element != nullptr;
}

std::string in_one_line(const std::string& text) {
    std::string line;
    for (const char c : text) {
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return line;
}

std::vector<ShownValue> shown_values(const TrapValues& trap) {
    return {{"name", trap.name},
            {"enterprise", enterprise_text(trap.enterprise)},
            {"generic", std::to_string(trap.generic)},
            {"specific", std::to_string(trap.specific)},
            {"source", std::string(1, trap.source)},
            {"severity", std::to_string(trap.severity)},
            {"status", std::to_string(trap.status)},
            {"category", category_text(trap.category)},
            {"format", trap.format},
            {"exec", trap.exec.value_or("")},
            {"display", trap.display.value_or("")},
            {"forward", trap.forward ? "yes" : "no"},
            {"nodes", nodes_text(trap.nodes)},
            {"class", trap.event_class.value_or("")},
            {"slots", slots_text(trap)},
            {"description", trap.description}};
}

void check_values(const TrapValues& trap) {
    check_name(trap.name);
    check_format(trap.format);
    check_format_text("command to execute", trap.exec.value_or(""));
    check_format_text("command to display", trap.display.value_or(""));
    check_one_line("class", trap.event_class.value_or(""));
    for (const std::string& node : trap.nodes) {
        check_word("name of a node", node);
        refuse_if(node.find(',') != std::string::npos, "name of a node", "contains a comma");
    }
    for (const auto& [name, value] : trap.slots) {
        check_word("name of a slot", name);
        refuse_if(name.front() == '#', "name of a slot", "begins with '#'");
        check_one_line("value of a slot", value);
        refuse_if(value.empty(), "value of a slot", "is empty");
    }
}

void add_trap(const TrapValues& trap) {
    check_free(trap);
    insert(trap);
}

void replace_trap(const std::string& name, const TrapValues& trap) {
    const Place old = place_of(name);
    const bool stays = has_same_place(values_of(old), trap);
    trap_record* const place = before(*old.enterprise, old.record);
    deleteTrapRecord(name.c_str());
    check_free(trap);
    trap_record* const record = insert(trap);
    if (stays) {
        move_behind(*trap.enterprise, place, record);
    }
}

}  // namespace wq::command
