/*
 * Reading the trap configuration: opening the file, its sections, and the lines of all sections but
 * the last.
 */
#include "EMS/events/nl_readformat.h"

#include <wqevents/trace.h>

#include <wqplatform.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "EMS/events/internal/field_scan.h"
#include "EMS/events/internal/guarded.h"
#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/nl_ferlospec.h"
#include "EMS/events/nl_trapspec_index.h"

const char* categoryKeyword = "CATEGORY";
const char* actionKeyword = "ACTION";
const char* execKeyword = "EXEC";
const char* displayKeyword = "DISPLAY";
const char* forwardKeyword = "FORWARD";
const char* nodesKeyword = "NODES";
const char* eventclassKeyword = "EVENT_CLASS";
const char* smapKeyword = "BEGIN_SLOT_MAPPING";
const char* emapKeyword = "END_SLOT_MAPPING";
const char* sdescKeyword = "SDESC";
const char* edescKeyword = "EDESC";

int trpFormatDontMallocDesc = 0;
int trpFormatExpandSourceFiles = 0;
int have_read_vortdconf = 0;
int trace_vortdconf = 0;

namespace wq {
namespace {

struct ReadFormatState {
    KeywordLengths lengths = measure_keywords();
    KeptText messages;         /* of the file itself */
    KeptText augment_messages; /* of files that were read into the model */
};

ReadFormatState& state() {
    return lasting<ReadFormatState>();
}

void trace(const char* routine, const char* text) {
    if (trace_vortdconf != 0) {
        log_trace(routine, "%s", text);
    }
}

/* --- categories --- */

struct StandardCategory {
    std::size_t slot;
    const char** name;
};

/* The order in which a file without categories of its own gets them. */
constexpr std::array<StandardCategory, 8> standard_categories = {{
    {9, &ignoreCatString},
    {7, &logOnlyCatString},
    {2, &errorCatString},
    {0, &threshCatString},
    {1, &nettopCatString},
    {3, &statusCatString},
    {4, &nodeconfCatString},
    {5, &applalertCatString},
}};

/* Only one slot a file: the others stay for CATEGORY lines, which name what a file really uses. */
void add_standard_category() {
    for (const StandardCategory& category : standard_categories) {
        if (EMScategories[category.slot] == nullptr) {
            EMScategories[category.slot] = doStrdup(*category.name);
            return;
        }
    }
}

bool has_category(std::string_view name) {
    return std::any_of(std::begin(EMScategories), std::end(EMScategories),
                       [name](const char* other) { return other != nullptr && name == other; });
}

/* The highest empty slot, or 0: the first slot is given on request only. */
std::size_t spare_slot() {
    std::size_t slot = EMS_CATEGORIES_MAX - 1;
    while (slot != 0 && EMScategories[slot] != nullptr) {
        --slot;
    }
    return slot;
}

int store_category(ConfReader& reader, std::size_t slot, std::string_view name) {
    if (EMScategories[slot] != nullptr) {
        if (has_category(name)) {
            return 0;
        }
        slot = spare_slot();
        if (slot == 0) {
            return fail_line(reader,
                             "Category could not be added (64 categories already defined)\n");
        }
    }
    EMScategories[slot] = model_text(name).release();
    return 0;
}

/* --- actions --- */

void index_actions(ConfReader& reader) {
    reader.actions_room = static_cast<std::size_t>(std::max(numActionCommands, 0));
    for (std::size_t i = 0; i < reader.actions_room; ++i) {
        const char* name = actionCommands[i].name;
        reader.actions.emplace(name != nullptr ? name : "", i);
    }
}

/* The entry for an action of that name: the one it replaces, or a new one. */
actionCmd& action_entry(ConfReader& reader, std::string_view name) {
    if (reader.actions.empty()) {
        index_actions(reader);
    }
    const auto count = static_cast<std::size_t>(numActionCommands);
    const auto [place, added] = reader.actions.try_emplace(std::string(name), count);
    if (!added) {
        freeAction(&actionCommands[place->second]);
        return actionCommands[place->second];
    }
    if (count == reader.actions_room) {
        reader.actions_room = std::max<std::size_t>(2 * count, 8);
        actionCommands = static_cast<actionCmd*>(
            doRealloc(actionCommands, reader.actions_room * sizeof(actionCmd)));
    }
    ++numActionCommands;
    return actionCommands[count];
}

/* --- sections --- */

struct Section {
    const char* trace;
    int (*read)(ConfReader& reader);
};

constexpr std::array<Section, 4> sections = {{
    {"starting read of vortd.conf", readCategory},
    {"starting read of ACTIONS", readActions},
    {"starting read of ENTERPRISES", readEnterprise},
    {"starting read of TRAPS", readTrapSpecInfo},
}};

/* Offers the line to the section and to those behind it. There is no way back. */
int read_in_section(ConfReader& reader, std::size_t& section) {
    int result = sections[section].read(reader);
    while (result == not_recognised) {
        ++section;
        trace("doReadTrapspecFile", sections[section].trace);
        result = sections[section].read(reader);
    }
    return result;
}

int end_with_message(const ConfReader& reader) {
    if (trace_vortdconf != 0) {
        log_trace("doReadTrapspecFile", "error reading vortd.conf file <%s>",
                  reader.message.c_str());
    }
    return -1;
}

int end_with_error(int result) {
    if (trace_vortdconf != 0) {
        log_trace("doReadTrapspecFile", "error reading vortd.conf file [%d]", result);
    }
    return result;
}

int doReadTrapspecFile(ConfReader& reader) {
    const IndexTrust trust;
    std::size_t section = 0;
    trace("doReadTrapspecFile", sections[section].trace);
    while (getline(reader)) {
        if (!reader.message.empty()) {
            return end_with_message(reader);
        }
        const int result = read_in_section(reader, section);
        if (result < 0) {
            return end_with_error(result);
        }
    }
    have_read_vortdconf = 1;
    trace("doReadTrapspecFile", "finished read of vortd.conf");
    return 0;
}

void fill_default_record() {
    trap_record& record = default_trap_record;
    if (record.description.format != nullptr) {
        return;
    }
    constexpr std::string_view name = "HARD_DEFAULT";
    record.name[name.copy(record.name, sizeof record.name - 1)] = '\0';
    record.category_number = 2;
    record.source = '?';
    record.severity = 1;
    record.trapDescription = doStrdup("Trap used when no other trap is configured.");
    makeFormatString(doStrdup("NO FMT IN VORTD.CONF: $E ($e) generic:$G specific:$S args($#): $*"),
                     &record.description);
}

int fail_file(std::string& message, std::string_view what, const char* path) {
    const char* reason = std::strerror(errno);
    message.append(what).append(" \"").append(path).append("\": ").append(reason).append("\n");
    return -1;
}

int read_main_file(std::string& message) {
    char* path = nullptr;
    const Stream stream(fopenConfFile("r", &path));
    if (!stream) {
        return fail_file(message, "Could not open trap format file", path);
    }
    /* The old model goes only once all that is to be read is at hand. */
    FileText file;
    if (!file.read(::fileno(stream.get()), conf_limits)) {
        return fail_file(message, "Could not read trap format file", path);
    }
    ConfReader reader(file, path, state().lengths, message);
    if (read_node_lists(reader, file, measured(nodesKeyword)) != 0) {
        return -1;
    }
    if (enterprise_list_head.next != nullptr) {
        trace("read_trapspec_file", "freeing old info.");
        free_all_info();
    }
    fill_default_record();
    trace("read_trapspec_file", "resetting keyword strlens");
    state().lengths = measure_keywords();
    return doReadTrapspecFile(reader);
}

int read_further_file(const char* path, std::string& message) {
    const Fd fd = open_for_reading(path);
    if (!fd) {
        return fail_file(message, "Could not open new trap format file", path);
    }
    FileText file;
    if (!file.read(fd.get(), conf_limits)) {
        return fail_file(message, "Could not read new trap format file", path);
    }
    ConfReader reader(file, path, state().lengths, message);
    if (read_node_lists(reader, file, {nodesKeyword, reader.lengths.nodes}) != 0) {
        return -1;
    }
    return doReadTrapspecFile(reader);
}

/* The result of `read`, and its message where the caller looks for it. */
template <class Read>
int read_and_tell(KeptText& messages, char*& handed_out, Read read) {
    static char nothing[] = "";
    handed_out = nothing;
    std::string message;
    int result = guarded(-1, [&] { return read(message); });
    guarded([&] { handed_out = messages.keep(message); });
    return result;
}

}  // namespace

bool ConfOid::read(std::string_view text) {
    std::string dotted(text.starts_with('.') ? "" : ".");
    dotted.append(text);
    int count = static_cast<int>(ids.size());
    if (WQmib_read_numeric_objid(dotted.c_str(), ids.data(), &count) != 0) {
        return false;
    }
    length = static_cast<std::uint32_t>(count);
    return true;
}

int readCategory(ConfReader& reader) {
    const Keyword keyword{categoryKeyword, reader.lengths.category};
    if (!keyword.begins(reader.line)) {
        add_standard_category();
        return not_recognised;
    }
    CategoryFields fields;
    const int count = scan_category(keyword.rest(reader.line), fields);
    if (fields.slot < 0 || fields.slot >= EMS_CATEGORIES_MAX) {
        return fail_line(reader, "Bad category number (must be < 64)");
    }
    if (count != 2) {
        return fail_line(reader, std::string("Invalid number of fields (")
                                     .append(std::to_string(count))
                                     .append("), expect 2"));
    }
    return store_category(reader, static_cast<std::size_t>(fields.slot), fields.name);
}

int readActions(ConfReader& reader) {
    const Keyword keyword{actionKeyword, reader.lengths.action};
    ActionFields fields;
    if (!keyword.begins(reader.line) || scan_action(keyword.rest(reader.line), fields) < 2) {
        return not_recognised;
    }
    if (fields.wait_time < 0) {
        return fail_line(
            reader, std::string("Invalid wait time ").append(std::to_string(fields.wait_time)));
    }
    ModelText name = model_text(fields.name);
    ModelText command = model_text(fields.command);
    ModelText description;
    if (getNextLine(reader, keyword.shown()) != 0 ||
        mallocAndReadDescription(reader, description) != 0) {
        return -1;
    }
    actionCmd& action = action_entry(reader, name.get());
    action = {.name = name.release(),
              .description = description.release(),
              .waitTime = fields.wait_time,
              .cmd = command.release()};
    return 0;
}

int readEnterprise(ConfReader& reader) {
    EnterpriseFields fields;
    if (scan_enterprise(reader.line, fields) != 2) {
        return not_recognised;
    }
    ConfOid oid;
    if (!oid.read(fields.oid)) {
        return fail_line(reader, "Bad oid char");
    }
    insert_enterprise(oid.ids.data(), oid.length, std::string(fields.name).c_str());
    return 0;
}

}  // namespace wq

int read_trapspec_file(char** errmsg) {
    if (errmsg == nullptr) {
        return -1;
    }
    const int result = wq::read_and_tell(wq::state().messages, *errmsg, [](std::string& message) {
        return wq::read_main_file(message);
    });
    if (result == 0) {
        wq::trace("read_trapspec_file", "about to read ferlospec_file.");
        wq::read_alert_configuration(errmsg);
    }
    return result;
}

int augmentTrapspecFile(char** errmsg, const char* path) {
    if (errmsg == nullptr) {
        return -1;
    }
    return wq::read_and_tell(wq::state().augment_messages, *errmsg, [path](std::string& message) {
        return path != nullptr ? wq::read_further_file(path, message) : -1;
    });
}
