#include "EMS/events/nl_ferlospec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <wqevents/configuration.h>
#include <wqplatform.h>

#include "EMS/events/internal/conf_lines.h"
#include "EMS/events/internal/field_scan.h"
#include "EMS/events/internal/guarded.h"
#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/internal/text_append.h"
#include "EMS/events/internal/text_scan.h"
#include "EMS/events/nl_trapspec.h"

const uint32_t TA_GA_ALERT_TYPES[7] = {18, 18, 1, 18, 17, 1, 18};
const uint32_t TA_GA_ALERT_TYPES_NC[7] = {18, 18, 1, 18, 18, 1, 18};
const uint32_t TA_GA_CODEPOINTS[7] = {0xA000, 0xA000, 0x3300, 0xA000, 0xC00A, 0x3305, 0xB00C};
const uint32_t TA_PC_CODEPOINTS[7] = {0xFE00, 0xFE00, 0x2132, 0x2132, 0x6700, 0x2200, 0xFE00};

namespace wq {

void free_alert_list(alert_record* list) {
    while (list != nullptr) {
        alert_record* const gone = list;
        list = list->next;
        for (int i = 0; gone->detailed_data != nullptr && i < gone->num_detaileddata; ++i) {
            if (detailed_data_record* item = gone->detailed_data[i]; item != nullptr) {
                release_element(item->dd_args);
                doFree(item);
            }
        }
        doFree(static_cast<void*>(gone->detailed_data));
        doFree(gone->codepoints);
        doFree(gone);
    }
}

struct AlertMessage {
    std::string text;
    KeptText handed_out;
};

std::string& alert_message() {
    return lasting<AlertMessage>().text;
}

char* kept_alert_message() {
    static char nothing[] = "";
    auto& message = lasting<AlertMessage>();
    return guarded<char*>(nothing, [&] { return message.handed_out.keep(message.text); });
}

void report_unlocked(const AlertFile& file, int error) {
    append(alert_message(), "Could not lock ferlo format file \"", file.name,
           "\": ", std::strerror(error), "\n");
}

namespace {

// A line of 1023 bytes, its newline counted, is too long.
constexpr std::size_t line_max = 1022;
constexpr int oid_max = 512;
constexpr int name_line_fields = 4;
constexpr std::array<uint32_t, 5> alert_types{1, 2, 3, 17, 18};

constexpr const char* wrong_item_count = "Not the right number of Detailed Data subfields defined";
constexpr const char* too_few_texts = "Not enough Detailed Data subfields defined";

// ---- what a record's body says

struct Body {
    std::vector<uint32_t> numbers;
    std::vector<std::string> texts;
};

// A check of the body that failed: its text, and how the message goes on.
struct Problem {
    const char* text = nullptr;
    const char* place = "around line";

    explicit operator bool() const { return text != nullptr; }
};

// The numbers and texts of a body that are not used yet.
struct BodyCursor {
    std::span<const uint32_t> numbers;
    std::span<const std::string> texts;

    bool take(uint32_t& number) {
        if (numbers.empty()) {
            return false;
        }
        number = numbers.front();
        numbers = numbers.subspan(1);
        return true;
    }
    // A count of things that each take a number at least.
    bool take_count(int& count) {
        uint32_t given = 0;
        if (!take(given) || given > numbers.size()) {
            return false;
        }
        count = static_cast<int>(given);
        return true;
    }
};

struct ListDeleter {
    void operator()(alert_record* list) const { free_alert_list(list); }
};
using AlertList = std::unique_ptr<alert_record, ListDeleter>;

bool read_code_points(BodyCursor& body, alert_record& rec, int count) {
    rec.codepoints = static_cast<int*>(doMalloc(sizeof(int) * static_cast<std::size_t>(count)));
    for (; rec.num_codepoints < count; ++rec.num_codepoints) {
        uint32_t number = 0;
        if (!body.take(number)) {
            return false;
        }
        rec.codepoints[rec.num_codepoints] = static_cast<int>(number);
    }
    return true;
}

detailed_data_record* make_item(uint32_t identifier, const std::string& text) {
    auto* const item = static_cast<detailed_data_record*>(doMalloc(sizeof(detailed_data_record)));
    item->dataid = static_cast<int>(identifier);
    item->dd_args = static_cast<trap_element*>(doMalloc(sizeof(trap_element)));
    makeFormatString(doStrdup(text.c_str()), item->dd_args);
    return item;
}

Problem read_items(BodyCursor& body, alert_record& rec, int count, const char* place) {
    rec.detailed_data = static_cast<detailed_data_record**>(
        doMalloc(sizeof(detailed_data_record*) * static_cast<std::size_t>(count)));
    for (; rec.num_detaileddata < count; ++rec.num_detaileddata) {
        uint32_t identifier = 0;
        if (!body.take(identifier)) {
            return {wrong_item_count};
        }
        if (body.texts.empty()) {
            return {too_few_texts, place};
        }
        rec.detailed_data[rec.num_detaileddata] = make_item(identifier, body.texts.front());
        body.texts = body.texts.subspan(1);
    }
    return {};
}

int items_asked_for(const alert_record& rec) {
    int sum = 0;
    for (int i = 0; i < rec.num_codepoints; ++i) {
        sum += items_of_code_point(static_cast<uint32_t>(rec.codepoints[i]));
    }
    return sum;
}

// Code points with the detailed data that they ask for.
Problem read_points_and_items(BodyCursor& body, alert_record& rec, const char* place) {
    int count = 0;
    if (!body.take_count(count) || !read_code_points(body, rec, count)) {
        return {wrong_item_count};
    }
    const int expected = items_asked_for(rec);
    if (expected == 0) {
        return {};
    }
    if (!body.take_count(count) || count != expected) {
        return {wrong_item_count};
    }
    return read_items(body, rec, count, place);
}

// Which subvectors stand before the one that is read.
struct Sequence {
    bool cause_without_actions = false;
};

Problem read_generic_alert(BodyCursor& body, alert_record& rec, Sequence& /*before*/) {
    uint32_t type = 0;
    if (!body.take(type)) {
        return {wrong_item_count};
    }
    if (std::find(alert_types.begin(), alert_types.end(), type) == alert_types.end()) {
        return {"Invalid type"};
    }
    rec.type = static_cast<int>(type);
    return {read_code_points(body, rec, 1) ? nullptr : wrong_item_count};
}

Problem read_probable_causes(BodyCursor& body, alert_record& rec, Sequence& /*before*/) {
    int count = 0;
    const bool complete = body.take_count(count) && read_code_points(body, rec, count);
    return {complete ? nullptr : wrong_item_count};
}

Problem read_cause(BodyCursor& body, alert_record& rec, Sequence& before) {
    if (before.cause_without_actions) {
        return {"Recommended Actions not defined"};
    }
    before.cause_without_actions = true;
    return read_points_and_items(body, rec, "around line");
}

// The message's place lacks a blank here and for detailed data: programs look for it that way.
constexpr const char* joined_place = "aroundline";

Problem read_actions(BodyCursor& body, alert_record& rec, Sequence& before) {
    if (!before.cause_without_actions) {
        return {"Cause subvector not define"};
    }
    before.cause_without_actions = false;
    return read_points_and_items(body, rec, joined_place);
}

Problem read_detailed_data(BodyCursor& body, alert_record& rec, Sequence& /*before*/) {
    int count = 0;
    if (!body.take_count(count)) {
        return {wrong_item_count};
    }
    return read_items(body, rec, count, joined_place);
}

struct SubvectorReader {
    uint32_t key;
    Problem (*read)(BodyCursor& body, alert_record& rec, Sequence& before);
};

constexpr std::array<SubvectorReader, 7> subvector_readers{{
    {generic_alert, read_generic_alert},
    {probable_causes, read_probable_causes},
    {user_causes, read_cause},
    {install_causes, read_cause},
    {failure_causes, read_cause},
    {recommended_actions, read_actions},
    {detailed_data, read_detailed_data},
}};

// Makes the list of subvectors that the body spells; `list` holds those before a problem.
Problem make_list(const Body& from, AlertList& list) {
    BodyCursor body{from.numbers, from.texts};
    Sequence before;
    alert_record* last = nullptr;
    for (uint32_t key = 0; body.take(key);) {
        const auto* const reader =
            std::find_if(subvector_readers.begin(), subvector_readers.end(),
                         [key](const SubvectorReader& row) { return row.key == key; });
        if (reader == subvector_readers.end()) {
            return {"Invalid subvector number"};
        }
        auto* const rec = static_cast<alert_record*>(doMalloc(sizeof(alert_record)));
        rec->subvector = static_cast<int>(key);
        if (last == nullptr) {
            list.reset(rec);
        } else {
            last->next = rec;
        }
        last = rec;
        if (const Problem problem = reader->read(body, *rec, before)) {
            return problem;
        }
    }
    return {};
}

// ---- the file

struct AlertInput {
    ConfLines lines;
    const char* path;
    std::string line;  // the line last read
};

enum class Outcome { going_on, finished, failed, failed_in_body };

// Writes the message: its parts around number and path of the line.
template <typename... Parts>
Outcome fail(Outcome outcome, const AlertInput& in, std::string_view before,
             const Parts&... after) {
    append(alert_message(), before, in.lines.number(), " of \"", in.path, "\"", after...);
    return outcome;
}

// The next line that is neither blank nor a comment.
bool next_line(AlertInput& in) {
    std::string_view line;
    while (in.lines.next(line)) {
        if (!line.empty()) {
            in.line = line;
            return true;
        }
    }
    return false;
}

bool is_separator(char c) {
    return c == ' ' || c == '\t';
}

// Splits off the next word of `rest`; a word that begins with a quote ends behind the next one, and
// is the whole rest where there is none. The line is terminated, and scanned by characters.
std::string_view take_word(const char*& rest) {
    while (is_separator(*rest)) {
        ++rest;
    }
    const char* const start = rest;
    const bool quoted = *rest == '"';
    rest += quoted ? 1 : 0;
    while (*rest != '\0' && (quoted ? *rest != '"' : !is_separator(*rest))) {
        rest += character_size(rest);
    }
    rest += quoted && *rest == '"' ? 1 : 0;
    return {start, static_cast<std::size_t>(rest - start)};
}

bool read_hexadecimal(std::string_view word, uint32_t& number) {
    if (word.starts_with("0x") || word.starts_with("0X")) {
        word.remove_prefix(2);
    }
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number, 16);
    return error == std::errc{} && stop == end;
}

// Adds one word to the body; false where it is none that a body may hold.
bool add_word(Body& body, std::string_view word) {
    if (word.size() >= 2 && word.front() == '"' && word.back() == '"') {
        body.texts.emplace_back(word.substr(1, word.size() - 2));
        return true;
    }
    uint32_t number = 0;
    if (!read_hexadecimal(word, number)) {
        return false;
    }
    body.numbers.push_back(number);
    return true;
}

// Adds the words of the line; `complete` once ";" has come, behind which nothing is read.
bool add_line(Body& body, const char* line, bool& complete) {
    for (std::string_view word = take_word(line); !word.empty(); word = take_word(line)) {
        if (word == ";") {
            complete = true;
            return true;
        }
        if (!add_word(body, word)) {
            return false;
        }
    }
    return true;
}

Outcome read_body(AlertInput& in, Body& body) {
    for (bool complete = false; !complete;) {
        if (!next_line(in)) {
            return in.lines.too_long() ? fail(Outcome::failed_in_body, in, "Line #", " too long\n")
                                       : fail(Outcome::failed_in_body, in,
                                              "Did not find a description line in line #", "\n");
        }
        if (!add_line(body, in.line.c_str(), complete)) {
            return fail(Outcome::failed_in_body, in, "Bad char in line #", ": ", in.line, "\n");
        }
    }
    return Outcome::going_on;
}

struct NameLine {
    std::string name;
    enterprise_info* enterprise = nullptr;
    int generic = 0;
    int specific = 0;
};

// %s {%[^}]} %d %lu %c; the numbers are not consulted, so %d counts the third as well.
int scan_name_line(std::string_view line, NameLine& name_line, std::string_view& oid) {
    std::string_view name;
    char extra = 0;
    FieldScan scan(line);
    scan.word(name).blanks().literal('{').until('}', oid).literal('}');
    scan.number(name_line.generic).number(name_line.specific).blanks().character(extra);
    name_line.name = name;
    return scan.count();
}

Outcome find_enterprise_of(AlertInput& in, std::string_view oid, NameLine& name_line) {
    std::string dotted(oid.starts_with('.') ? "" : ".");
    dotted.append(oid);
    std::array<uint32_t, oid_max> numbers{};
    int length = oid_max;
    if (WQmib_read_numeric_objid(dotted.c_str(), numbers.data(), &length) != 0) {
        return fail(Outcome::failed, in, "Bad oid char in line #", ": ", in.line, "\n");
    }
    enterprise_info*& enterprise = name_line.enterprise;
    if (find_enterprise(numbers.data(), static_cast<uint32_t>(length), &enterprise) != 0) {
        return fail(Outcome::failed, in, "No such enterprise as defined in line #", ": ", in.line,
                    "\n");
    }
    if (enterprise->oid_len != static_cast<uint32_t>(length)) {
        append(alert_message(), "No such enterprise exact (", enterprise->oid_len, " vs ", length,
               ") as defined in line #", in.lines.number(), " of\"", in.path, "\": ", in.line,
               "\n");
        return Outcome::failed;
    }
    return Outcome::going_on;
}

Outcome read_name_line(AlertInput& in, NameLine& name_line) {
    if (!next_line(in)) {
        return in.lines.too_long() ? fail(Outcome::failed, in, "Line #", " too long\n")
                                   : Outcome::finished;
    }
    std::string_view oid;
    const int matched = scan_name_line(in.line, name_line, oid);
    if (matched != name_line_fields) {
        return fail(Outcome::failed, in, "Bad name line in line #", ": ", in.line, "\n(matched ",
                    matched, ", not", name_line_fields, " tokens)\n");
    }
    const Outcome found = find_enterprise_of(in, oid, name_line);
    if (found == Outcome::going_on && nameToExactTrap(name_line.name.c_str()) == nullptr) {
        return fail(Outcome::failed, in, "Did not find a matching trap name at line #", "\n");
    }
    return found;
}

Outcome read_record(AlertInput& in) {
    NameLine name_line;
    Body body;
    AlertList list;
    Outcome outcome = read_name_line(in, name_line);
    if (outcome == Outcome::going_on) {
        outcome = read_body(in, body);
    }
    if (outcome != Outcome::going_on) {
        return outcome;
    }
    if (const Problem problem = make_list(body, list)) {
        append(alert_message(), problem.text, ' ', problem.place, " #", in.lines.number(), " of \"",
               in.path, "\": ", in.line, "\n");
        return Outcome::failed_in_body;
    }
    if (insert_malloc_alert_record(name_line.enterprise, name_line.name.c_str(), name_line.generic,
                                   name_line.specific, list.get()) != 0) {
        return fail(Outcome::failed, in, "Duplicate alert record line #", ": ", in.line, "\n");
    }
    static_cast<void>(list.release());  // the trap's now
    return Outcome::going_on;
}

int read_alerts() {
    const AlertFile file = open_alert_file("r", false);
    const int error = errno;
    AlertStream stream(file.stream);
    if (file.state != AlertFileState::ready) {
        report_unlocked(file, error);
        return -1;
    }
    FileText text;
    if (!text.read(fileno(stream.get()), {.longest_line = line_max})) {
        append(alert_message(), "Could not read ferlo format file \"", file.name,
               "\": ", std::strerror(errno), "\n");
        return -1;
    }
    AlertInput in{ConfLines(text, line_max), file.name, {}};
    Outcome outcome = Outcome::going_on;
    while (outcome == Outcome::going_on) {
        outcome = read_record(in);
    }
    // Errors in a body leave the file locked: an operator who repairs it is not overtaken.
    if (outcome == Outcome::failed_in_body) {
        leave_alert_file_open(stream.release());
    }
    return outcome == Outcome::finished ? 0 : -1;
}

}  // namespace

void read_alert_configuration(char** errmsg) {
    char* problem = nullptr;
    if (read_ferlospec_file(&problem) != 0) {
        *errmsg = problem;
    }
}

}  // namespace wq

int read_ferlospec_file(char** errmsg) {
    if (errmsg == nullptr) {
        return -1;
    }
    wq::alert_message().clear();
    int result = -1;
    try {
        result = wq::read_alerts();
    } catch (const std::exception&) {  // no memory for the record: none is attached
        result = -1;
    }
    *errmsg = wq::kept_alert_message();
    return result;
}

int insert_malloc_alert_record(enterprise_info* /*enterprise*/, const char* name, int /*generic*/,
                               int /*specific*/, alert_record* list) {
    trap_record* const rec = name == nullptr ? nullptr : nameToExactTrap(name);
    if (rec == nullptr) {
        return -1;
    }
    if (rec->alert_element != list) {
        delete_ferlo_record(rec);
    }
    rec->alert_element = list;
    const std::size_t kept = std::min(std::strlen(name), sizeof rec->alert_record_name - 1);
    std::memcpy(rec->alert_record_name, name, kept);
    rec->alert_record_name[kept] = '\0';
    return 0;
}

void delete_ferlo_record(trap_record* rec) {
    if (rec != nullptr) {
        wq::free_alert_list(rec->alert_element);
        rec->alert_element = nullptr;
    }
}
