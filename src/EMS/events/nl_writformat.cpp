#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include <wqevents/configuration.h>

#include "EMS/events/internal/text_append.h"
#include "EMS/events/nl_conflock.h"
#include "EMS/events/nl_confreplace.h"
#include "EMS/events/nl_trapspec.h"
#include "EMS/events/nl_trapspec_index.h"

namespace wq {
namespace {

std::string user_name() {
    const passwd* const user = getpwuid(geteuid());
    return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

// The title says enterprises although the categories follow: editors of the platform know the file
// by this header.
void append_header(std::string& text) {
    append(text, "#\n# Created by zeltrap at ", local_time_text(), " by ", user_name(),
           "\n#\n###################\n#\n# enterprises:\n#\n");
}

void append_categories(std::string& text) {
    append(text, "###################\n#\n# display categories:\n#\n");
    for (int slot = 0; slot < EMS_CATEGORIES_MAX; ++slot) {
        if (EMScategories[slot] != nullptr) {
            append(text, categoryKeyword, ' ', slot, " \"", EMScategories[slot], "\"\n");
        }
    }
}

std::span<const actionCmd> actions() {
    const int count = actionCommands == nullptr ? 0 : std::max(numActionCommands, 0);
    return {actionCommands, static_cast<std::size_t>(count)};
}

void append_actions(std::string& text) {
    if (actions().empty()) {
        return;
    }
    append(text, "###################\n#\n# Operator Actions:\n#\n");
    for (const actionCmd& action : actions()) {
        append(text, actionKeyword, ' ', action.waitTime, " \"", action.name, "\" ", action.cmd,
               '\n', sdescKeyword, '\n', action.description, '\n', edescKeyword, '\n');
    }
}

void append_enterprises(std::string& text) {
    append(text, "###################\n#\n# enterprises:\n#\n");
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        append(text, e->enterprise_name, " {", oid_to_string(e->enterprise_oid, e->oid_len), "}\n");
    }
}

// A slot may have been emptied since the record was read; its name is empty then.
const char* category_name(int number) {
    return number >= 0 && number < EMS_CATEGORIES_MAX ? EMScategories[number] : nullptr;
}

void append_keyword_line(std::string& text, const char* keyword, const char* rest) {
    if (rest != nullptr) {
        append(text, keyword, ' ', rest, '\n');
    }
}

const char* raw_text(const trap_element* element) {
    return element == nullptr ? nullptr : element->rawstring;
}

void append_nodes(std::string& text, const trap_record& rec) {
    if (rec.nodeCnt == 0 || rec.nodeList == nullptr) {
        return;
    }
    append(text, nodesKeyword);
    for (int i = 0; i < rec.nodeCnt; ++i) {
        append(text, ' ', rec.nodeList[i]);
    }
    append(text, '\n');
}

void append_slot_mapping(std::string& text, const prxSlotMapping* map) {
    if (map == nullptr) {
        return;
    }
    append(text, smapKeyword, '\n');
    for (int i = 0; i < map->slotCnt; ++i) {
        append(text, ' ', map->slotName[i], ' ', map->slotVal[i], '\n');
    }
    append(text, emapKeyword, '\n');
}

void append_description(std::string& text, const char* description) {
    append(text, sdescKeyword, '\n');
    if (description != nullptr && description[0] != '\0') {
        append(text, description, '\n');
    }
    append(text, edescKeyword, '\n');
}

// `oid` is the enterprise's as text.
void append_trap(std::string& text, const trap_record& rec, std::string_view oid) {
    append(text, rec.name, " {", oid, "} ", rec.generic_trap, ' ', rec.specific_trap, ' ',
           rec.source, ' ', rec.severity, ' ', rec.status, " \"",
           category_name(rec.category_number), "\"\n", rec.description.rawstring, '\n');
    append_keyword_line(text, execKeyword, raw_text(rec.execargs_ptr));
    append_keyword_line(text, displayKeyword, raw_text(rec.exec_display_args_ptr));
    if (rec.forward != 0) {
        append(text, forwardKeyword, '\n');
    }
    append_nodes(text, rec);
    append_keyword_line(text, eventclassKeyword, rec.prxClassName);
    append_slot_mapping(text, rec.slotMap);
    append_description(text, rec.trapDescription);
}

void append_traps(std::string& text) {
    append(text, "#\n# User added trap formats:\n#\n");
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        const std::string oid = oid_to_string(e->enterprise_oid, e->oid_len);
        for (const trap_record* rec = e->trap_rec_list_head.next; rec != nullptr; rec = rec->next) {
            prefetch_record(rec->next);
            append_trap(text, *rec, oid);
        }
    }
}

// Room for a text as it usually is: one that grows is copied again and again.
void reserve(std::string& text) {
    constexpr std::size_t bytes_a_trap = 400;
    try {
        text.reserve(model_index.records() * bytes_a_trap);
    } catch (const std::bad_alloc&) {
        // It may need less.
    }
}

std::string configuration_text() {
    std::string text;
    reserve(text);
    append_header(text);
    append_categories(text);
    append_actions(text);
    append_enterprises(text);
    append_traps(text);
    return text;
}

const enterprise_info* enterprise_without_identifier() {
    const enterprise_info* e = enterprise_list_head.next;
    while (e != nullptr && has_identifier(*e)) {
        e = e->next;
    }
    return e;
}

int write_configuration(std::FILE* stream) {
    if (const enterprise_info* nameless = enterprise_without_identifier()) {
        std::fputs(no_identifier(*nameless, "vortdconf").c_str(), stderr);
        errno = EINVAL;
        return -1;
    }
    std::rewind(stream);
    const Replaced replaced = replace_contents(fileno(stream), configuration_text());
    const int error = errno;
    if (replaced == Replaced::not_written) {
        std::fputs("Cannot write to vortdconf file\n", stderr);
    }
    if (replaced != Replaced::done) {
        std::fputs("Bad return code from truncate of vortdconf file\n", stderr);
        errno = error;
        return -1;
    }
    unlock_file(fileno(stream));
    std::fclose(stream);
    return 0;
}

}  // namespace
}  // namespace wq

int write_trapspec_file(FILE* stream) {
    if (stream == nullptr) {
        return -1;
    }
    try {
        return wq::write_configuration(stream);
    } catch (const std::exception&) {  // no memory for the text: the file is as it was
        std::fputs("Cannot write to vortdconf file\n", stderr);
        errno = ENOMEM;
        return -1;
    }
}

void print_trap_rec(FILE* stream, trap_record* rec, const uint32_t* oid, uint32_t len) {
    if (stream == nullptr || rec == nullptr || oid == nullptr) {
        return;
    }
    try {
        std::string text;
        wq::append_trap(text, *rec, oid_to_string(oid, len));
        std::fwrite(text.data(), 1, text.size(), stream);
    } catch (const std::exception&) {  // no memory for the text
        return;
    }
}
