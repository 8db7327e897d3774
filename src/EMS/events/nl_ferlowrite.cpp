#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include "EMS/events/internal/text_append.h"
#include "EMS/events/nl_alertfile.h"
#include "EMS/events/nl_confreplace.h"
#include "EMS/events/nl_ferlospec.h"

namespace wq {
namespace {

void append_hexadecimal(std::string& text, int number) {
    append_number(text, static_cast<uint32_t>(number), 16);
    text.push_back(' ');
}

// "%2x ": keys have two digits, but a record made by a program may hold any number.
void append_key(std::string& text, int key) {
    text.push_back('\n');
    if (key >= 0 && key < 0x10) {
        text.push_back(' ');
    }
    append_hexadecimal(text, key);
}

// Records come from programs too: an array that is not there has no entries.
template <typename Entry>
std::span<Entry> entries(Entry* first, int count) {
    return {first, first == nullptr ? 0 : static_cast<std::size_t>(std::max(count, 0))};
}

std::span<const int> code_points_of(const alert_record& rec) {
    return entries<const int>(rec.codepoints, rec.num_codepoints);
}

std::span<detailed_data_record* const> items_of(const alert_record& rec) {
    return entries<detailed_data_record* const>(rec.detailed_data, rec.num_detaileddata);
}

void append_code_points(std::string& text, const alert_record& rec) {
    const auto points = code_points_of(rec);
    append_hexadecimal(text, static_cast<int>(points.size()));
    for (const int point : points) {
        append_hexadecimal(text, point);
    }
}

const char* text_of(const detailed_data_record& item) {
    return item.dd_args == nullptr ? nullptr : item.dd_args->rawstring;
}

void append_items(std::string& text, const alert_record& rec) {
    const auto items = items_of(rec);
    append_hexadecimal(text, static_cast<int>(items.size()));
    for (const detailed_data_record* item : items) {
        append_hexadecimal(text, item == nullptr ? 0 : item->dataid);
        append(text, '"', item == nullptr ? nullptr : text_of(*item), "\" ");
    }
}

void append_subvector(std::string& text, const alert_record& rec) {
    append_key(text, rec.subvector);
    switch (rec.subvector) {
        case generic_alert:
            append_hexadecimal(text, rec.type);
            append_hexadecimal(text, code_points_of(rec).empty() ? 0 : rec.codepoints[0]);
            break;
        case detailed_data:
            append_items(text, rec);
            break;
        default:
            append_code_points(text, rec);
            if (!items_of(rec).empty()) {
                append_items(text, rec);
            }
            break;
    }
}

void append_alert(std::string& text, const trap_record& rec, std::string_view oid) {
    append(text, rec.alert_record_name, " {", oid, "} ", rec.generic_trap, ' ',
           static_cast<uint32_t>(rec.specific_trap), ' ');
    for (const alert_record* part = rec.alert_element; part != nullptr; part = part->next) {
        append_subvector(text, *part);
    }
    append(text, " ;\n");
}

bool has_alerts(const enterprise_info& enterprise) {
    const trap_record* rec = enterprise.trap_rec_list_head.next;
    while (rec != nullptr && rec->alert_element == nullptr) {
        rec = rec->next;
    }
    return rec != nullptr;
}

// One that has alerts, which could not be read back; or null.
const enterprise_info* enterprise_without_identifier() {
    const enterprise_info* e = enterprise_list_head.next;
    while (e != nullptr && (has_identifier(*e) || !has_alerts(*e))) {
        e = e->next;
    }
    return e;
}

std::string alerts_text() {
    std::string text;
    append(text, "#\n# Created by zeltrap at ", local_time_text(), "\n#\n###################\n#\n");
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        if (!has_alerts(*e)) {
            continue;
        }
        const std::string oid = oid_to_string(e->enterprise_oid, e->oid_len);
        for (const trap_record* rec = e->trap_rec_list_head.next; rec != nullptr; rec = rec->next) {
            if (rec->alert_element != nullptr) {
                append_alert(text, *rec, oid);
            }
        }
    }
    return text;
}

int write_alerts() {
    if (const enterprise_info* nameless = enterprise_without_identifier()) {
        alert_message() = no_identifier(*nameless, "ferlo format");
        errno = EINVAL;
        return -1;
    }
    const std::string text = alerts_text();
    // Not truncated on opening: the old alerts stay until there is room for the new ones.
    const AlertFile file = open_alert_file("w+", false);
    int error = errno;
    const AlertStream stream(file.stream);
    Replaced replaced = Replaced::no_room;
    if (file.state == AlertFileState::ready) {
        replaced = replace_contents(fileno(file.stream), text);
        error = errno;
    }
    if (replaced != Replaced::done) {
        report_unlocked(file, error);
    }
    return replaced == Replaced::done ? 0 : -1;
}

}  // namespace
}  // namespace wq

int write_ferlospec_file(char** errmsg) {
    if (errmsg == nullptr) {
        return -1;
    }
    wq::alert_message().clear();
    int result = -1;
    try {
        result = wq::write_alerts();
    } catch (const std::exception&) {  // no memory for the text: the file is as it was
        result = -1;
    }
    *errmsg = wq::kept_alert_message();
    return result;
}

void print_ferlo_rec(FILE* stream, trap_record* rec, const uint32_t* oid, uint32_t len) {
    if (stream == nullptr || rec == nullptr || oid == nullptr) {
        return;
    }
    try {
        std::string text;
        wq::append_alert(text, *rec, oid_to_string(oid, len));
        std::fwrite(text.data(), 1, text.size(), stream);
    } catch (const std::exception&) {  // no memory for the text
        return;
    }
}
