/*
 * The trap blocks of the trap configuration: the event line and what follows it, up to the end of
 * the description.
 */
#include <wqplatform.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "EMS/events/internal/field_scan.h"
#include "EMS/events/nl_readformat.h"
#include "EMS/events/nl_trapspec_index.h"

namespace wq {
namespace {

/* The longest name that a line may give; the last character of such a name is not kept. */
constexpr std::size_t name_max = EMS_NAME_MAX;

class NodeList {
  public:
    NodeList() = default;
    ~NodeList() {
        for (int i = 0; i < count_; ++i) {
            doFree(names_[i]);
        }
        doFree(names_);
    }
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;

    void add(const char* name) { trpFmtAddSourceToList(&count_, &capacity_, &names_, name); }
    int count() const { return count_; }
    char** release() {
        count_ = 0;
        return std::exchange(names_, nullptr);
    }

  private:
    int count_ = 0;
    int capacity_ = 0;
    char** names_ = nullptr;
};

/* What the lines of one block say; freed unless it is handed to the model. */
struct TrapBlock {
    enterprise_info* enterprise = nullptr;
    std::array<char, name_max + 1> name{};
    int generic = 0;
    int specific = 0;
    char source = 0;
    int severity = 0;
    int status = 0;
    std::size_t category = 0;
    ModelText format;
    ModelText exec;
    ModelText display;
    int forward = 0;
    NodeList nodes;
    ModelText event_class;
    std::vector<ModelText> slot_names;
    std::vector<ModelText> slot_values;
    ModelText description;
};

/* --- the event line --- */

bool find_category(std::string_view name, std::size_t& slot) {
    const auto is_named = [name](const char* text) { return text != nullptr && name == text; };
    if (is_named(EMScategories[slot])) {
        return true;
    }
    const auto* found = std::find_if(std::begin(EMScategories), std::end(EMScategories), is_named);
    slot = found != std::end(EMScategories)
               ? static_cast<std::size_t>(found - std::begin(EMScategories))
               : 0;
    return found != std::end(EMScategories);
}

int check_exact(ConfReader& reader, const enterprise_info* enterprise, std::uint32_t length) {
    if (enterprise == nullptr) {
        return fail_line(reader, "No such enterprise");
    }
    if (enterprise->oid_len != length) {
        return fail_line(reader, std::string("No such exact enterprise (")
                                     .append(std::to_string(enterprise->oid_len))
                                     .append(" vs ")
                                     .append(std::to_string(length))
                                     .append(")"));
    }
    return 0;
}

int check_category(ConfReader& reader, std::string_view name) {
    if (find_category(name, reader.last_category)) {
        return 0;
    }
    return fail_line(reader,
                     std::string("No such display category \"").append(name).append("\" defined"));
}

/* The enterprise goes to `reader.last_enterprise`. */
int check_oid_and_category(ConfReader& reader, const EventFields& event) {
    if (reader.last_enterprise != nullptr && event.oid == reader.last_oid) {
        return check_category(reader, event.category);
    }
    reader.last_enterprise = nullptr;
    ConfOid oid;
    if (!oid.read(event.oid)) {
        return fail_line(reader,
                         std::string("Bad oid char '").append(event.oid.substr(0, 1)).append("'"));
    }
    if (check_category(reader, event.category) != 0) {
        return -1;
    }
    enterprise_info* enterprise = nullptr;
    find_enterprise(oid.ids.data(), oid.length, &enterprise);
    if (check_exact(reader, enterprise, oid.length) != 0) {
        return -1;
    }
    reader.last_oid = event.oid;
    reader.last_enterprise = enterprise;
    return 0;
}

bool is_same_trap(const TrapBlock& block, const trap_record& record,
                  const enterprise_info* enterprise) {
    return record.generic_trap == block.generic && record.specific_trap == block.specific &&
           enterprise == block.enterprise;
}

int check_name(ConfReader& reader, const TrapBlock& block) {
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
    if (nameToTrapAndEnterprise(block.name.data(), &record, &enterprise) != 0 ||
        is_same_trap(block, *record, enterprise)) {
        return 0;
    }
    return fail_line(reader, std::string("Not loading trap format.  Trap name ")
                                 .append(block.name.data())
                                 .append(" is already in use.\n"
                                         "Rename the event to avoid the conflict"));
}

int check_fields(ConfReader& reader, int count, const EventFields& event) {
    if (count != 8) {
        return fail_line(reader, std::string("Bad name line (matched ")
                                     .append(std::to_string(count))
                                     .append(", not 8 tokens)\n"));
    }
    if (event.name.size() > name_max) {
        return fail_line(reader,
                         std::string("vortd.conf file not loaded because trap name length [")
                             .append(std::to_string(event.name.size()))
                             .append("] exceeds maximum size permitted of 40\n "));
    }
    model_index.prefetch_name(event.name.substr(0, EMS_NAME_MAX));
    return check_oid_and_category(reader, event);
}

int read_event_line(ConfReader& reader, TrapBlock& block) {
    EventFields event;
    const int count = scan_event(reader.line, event);
    if (check_fields(reader, count, event) != 0) {
        return -1;
    }
    event.name.copy(block.name.data(), name_max);
    block.enterprise = reader.last_enterprise;
    block.generic = event.generic;
    block.specific = event.specific;
    block.source = event.source;
    block.severity = event.severity;
    block.status = event.status;
    block.category = reader.last_category;
    return check_name(reader, block);
}

/* --- the lines behind it: each takes the line that it is about and reads the next one --- */

int read_format(ConfReader& reader, TrapBlock& block) {
    if (!getline(reader)) {
        if (reader.message.empty()) {
            reader.message = "Did not find an event log format";
        }
        return -1;
    }
    block.format = model_text(reader.line);
    return getNextLine(reader, "format");
}

int read_text(ConfReader& reader, const Keyword& keyword, ModelText& text) {
    if (!keyword.begins(reader.line)) {
        return 0;
    }
    text = model_text(stripped(keyword.argument(reader.line)));
    return getNextLine(reader, keyword.shown());
}

int read_exec(ConfReader& reader, TrapBlock& block) {
    return read_text(reader, {execKeyword, reader.lengths.exec}, block.exec);
}

int read_display(ConfReader& reader, TrapBlock& block) {
    return read_text(reader, {displayKeyword, reader.lengths.display}, block.display);
}

int read_forward(ConfReader& reader, TrapBlock& block) {
    const Keyword keyword = measured(forwardKeyword);
    if (!keyword.begins(reader.line)) {
        return 0;
    }
    block.forward = 1;
    return getNextLine(reader, keyword.shown());
}

/* The source list file of that name, as it was when it was first asked for. */
const NodeListFile& list_at(ConfReader& reader, const std::string& path) {
    const auto [place, added] = reader.lists.try_emplace(path);
    NodeListFile& list = place->second;
    if (added) {
        const Fd fd = open_for_reading(path.c_str());
        list.is_open = static_cast<bool>(fd);
        list.error = fd && list.text.read(fd.get(), conf_limits) ? 0 : errno;
    }
    return list;
}

int fail_unreadable(ConfReader& reader, const std::string& path, int error) {
    reader.message = "Could not read source list file \"" + path + "\": " + std::strerror(error);
    return -1;
}

/* Takes the names of a source list file. A line there that is too long ends the list; the message
   ends the read when the block is done. */
int add_listed_nodes(ConfReader& reader, NodeList& nodes, const std::string& path) {
    const NodeListFile& list = list_at(reader, path);
    if (!list.is_open) {
        reader.message = "Could not open source list file \"" + path + "\"";
        return -1;
    }
    if (list.error != 0) {
        return fail_unreadable(reader, path, list.error);
    }
    std::string name;
    const auto add = [&](std::string_view word) {
        name = word;
        nodes.add(name.c_str());
        return true;
    };
    if (for_each_listed_node(list.text, add)) {
        reader.message = "Line too long";
    }
    return 0;
}

bool is_list(const char* name) {
    return trpFormatExpandSourceFiles != 0 && *name == '/';
}

/* Calls `visit` with each name of a NODES line until it returns something else than 0. */
template <class Visit>
int for_each_name(const Keyword& keyword, std::string_view line, Visit visit) {
    std::string names(stripped(keyword.argument(line)));
    const std::string separators(node_separators);
    int result = 0;
    for (const char* name = _WQstrtok(names.data(), separators.c_str());
         name != nullptr && result == 0; name = _WQstrtok(nullptr, separators.c_str())) {
        result = visit(name);
    }
    return result;
}

int read_nodes(ConfReader& reader, TrapBlock& block) {
    const Keyword keyword{nodesKeyword, reader.lengths.nodes};
    if (!keyword.begins(reader.line)) {
        return 0;
    }
    const auto add = [&](const char* name) {
        if (is_list(name)) {
            return add_listed_nodes(reader, block.nodes, name);
        }
        block.nodes.add(name);
        return 0;
    };
    if (for_each_name(keyword, reader.line, add) != 0) {
        return -1;
    }
    return getNextLine(reader, keyword.shown());
}

int read_event_class(ConfReader& reader, TrapBlock& block) {
    const Keyword keyword = measured(eventclassKeyword);
    if (!keyword.begins(reader.line)) {
        return 0;
    }
    block.event_class = model_text(keyword.argument(reader.line));
    return getNextLine(reader, keyword.shown());
}

bool add_slot(TrapBlock& block, std::string_view line) {
    const std::string_view pair = stripped(line);
    const std::size_t blank = pair.find(' ');
    if (blank == std::string_view::npos) {
        return false;
    }
    block.slot_names.push_back(model_text(pair.substr(0, blank)));
    block.slot_values.push_back(model_text(stripped(pair.substr(blank))));
    return true;
}

/* A line that is no pair ends the read without a word, as it always has. */
int read_slots(ConfReader& reader, TrapBlock& block) {
    const Keyword start = measured(smapKeyword);
    const Keyword end = measured(emapKeyword);
    if (!start.begins(reader.line)) {
        return 0;
    }
    while (getNextLine(reader, start.shown()) == 0) {
        if (end.is(reader.line)) {
            return getNextLine(reader, end.shown());
        }
        if (!add_slot(block, reader.line)) {
            return -1;
        }
    }
    return -1;
}

int read_description(ConfReader& reader, TrapBlock& block) {
    return mallocAndReadDescription(reader, block.description);
}

/* In the order in which a block has them; all but the first and the last may be missing. */
constexpr std::array block_readers = {read_format,  read_exec,       read_display,
                                      read_forward, read_nodes,      read_event_class,
                                      read_slots,   read_description};

int read_block(ConfReader& reader, TrapBlock& block) {
    for (const auto& read : block_readers) {
        if (read(reader, block) != 0) {
            return -1;
        }
    }
    return 0;
}

/* --- into the model --- */

/* Into `all`, which has room for them. */
void release(std::vector<ModelText>& texts, std::vector<char*>& all) {
    for (ModelText& text : texts) {
        all.push_back(text.release());
    }
}

void insert_trap(TrapBlock& block) {
    std::vector<char*> names;
    std::vector<char*> values;
    names.reserve(block.slot_names.size());
    values.reserve(block.slot_values.size());
    /* Nothing fails any more, so nothing is lost. */
    release(block.slot_names, names);
    release(block.slot_values, values);
    const int node_count = block.nodes.count();
    insertMallocTrapRecord(block.enterprise, block.name.data(), block.generic, block.specific,
                           node_count, block.nodes.release(), static_cast<int>(block.category),
                           block.source, block.format.release(), block.exec.release(),
                           block.display.release(), block.description.release(), block.severity,
                           block.status, block.forward, block.event_class.get(),
                           static_cast<int>(names.size()), names.data(), values.data());
}

}  // namespace

int read_node_lists(ConfReader& reader, const FileText& file, const Keyword& keyword) {
    ConfLines lines(file);
    int result = 0;
    for (std::string_view line;
         trpFormatExpandSourceFiles != 0 && result == 0 && lines.next(line);) {
        if (keyword.begins(line)) {
            result = for_each_name(keyword, line, [&](const char* name) {
                const NodeListFile* list = is_list(name) ? &list_at(reader, name) : nullptr;
                return list != nullptr && list->is_open && list->error != 0
                           ? fail_unreadable(reader, name, list->error)
                           : 0;
            });
        }
    }
    return result;
}

int readTrapSpecInfo(ConfReader& reader) {
    TrapBlock block;
    if (read_event_line(reader, block) != 0 || read_block(reader, block) != 0) {
        return -1;
    }
    insert_trap(block);
    return 0;
}

}  // namespace wq
