/*
 * What the parts of the configuration reader share: one read of one file, its lines, and the
 * readers of its sections. Their results: 0 the line is read, 1 it is none of this section's, -1
 * the read ends; the message tells why.
 */
#ifndef WQEVENTS_NL_READFORMAT_H
#define WQEVENTS_NL_READFORMAT_H

#include <wqevents/configuration.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "EMS/events/internal/conf_lines.h"
#include "EMS/events/nl_alloc.h"

namespace wq {

constexpr int not_recognised = 1;

/* Most sub-identifiers of an enterprise, and bytes of a description with its newlines. */
constexpr std::size_t conf_oid_max = 512;
constexpr std::size_t description_max = 5020;

struct Freed {
    void operator()(char* text) const { doFree(text); }
};
/* A text that goes to the model in the end. */
using ModelText = std::unique_ptr<char, Freed>;

inline ModelText model_text(std::string_view text) {
    auto* copy = static_cast<char*>(file_block(text.size() + 1));
    text.copy(copy, text.size());
    copy[text.size()] = '\0';
    return ModelText(copy);
}

/*
 * A keyword and how many of its characters a line is compared with. The length is that of the
 * spelling at the last read_trapspec_file(), whatever spelling augmentTrapspecFile() meets.
 */
struct Keyword {
    const char* text;
    std::size_t length;

    bool begins(std::string_view line) const;
    /* Whether it is the whole line. */
    bool is(std::string_view line) const { return line.size() == length && begins(line); }
    /* The line behind the keyword. */
    std::string_view rest(std::string_view line) const;
    /* The line behind the keyword and the one character that separates its text. */
    std::string_view argument(std::string_view line) const;
    /* As it is shown in messages. */
    const char* shown() const { return text != nullptr ? text : ""; }
};

/* A keyword whose length nobody keeps. */
Keyword measured(const char* text);

struct KeywordLengths {
    std::size_t category, action, exec, display, nodes, sdesc, edesc;
};

KeywordLengths measure_keywords();

/* A list of nodes that is read in its place. */
struct NodeListFile {
    bool is_open = false;
    int error = 0; /* errno of what failed */
    FileText text;
};

/* One read of one file. */
struct ConfReader {
    ConfReader(const FileText& file, const char* name, const KeywordLengths& kept,
               std::string& text)
        : lines(file), path(name), lengths(kept), message(text) {}

    ConfLines lines;
    const char* path;
    const KeywordLengths& lengths;
    std::string& message;
    std::string_view line; /* the line last read */

    std::string gathered; /* the description that is being read */
    /* The enterprise of the last event line and how that line wrote it: a file names each for
       many events in a row. */
    std::string last_oid;
    enterprise_info* last_enterprise = nullptr;
    std::size_t last_category = 0;
    /* Where the actions stand in the table, and for how many there is room. Filled at the first. */
    std::unordered_map<std::string, std::size_t> actions;
    std::size_t actions_room = 0;
    std::map<std::string, NodeListFile> lists;
};

/* An object identifier as the platform's MIB library reads it; the leading dot may be missing. */
struct ConfOid {
    std::array<std::uint32_t, conf_oid_max> ids;
    std::uint32_t length = 0;

    bool read(std::string_view text);
};

/* Reads the next line. False at the end of the file or when a line is too long, as the message
   then says. */
bool getline(ConfReader& reader);

/* getline() in the middle of a block: 0, or -1 with a message that names what has been read. */
int getNextLine(ConfReader& reader, const char* keyword);

/* Adds to the message which line it is about. */
void appendLineInfo(ConfReader& reader);

/* Makes `text` the message about the current line. Returns -1. */
int fail_line(ConfReader& reader, std::string_view text);

/* `text` without the white space around it. */
std::string_view stripped(std::string_view text);

/*
 * Reads a description block whose first line is the current one. `description` stays null where
 * descriptions are not kept.
 */
int mallocAndReadDescription(ConfReader& reader, ModelText& description);

/*
 * Reads the lists of nodes that the file names, if they are to be read in its place. -1 with a
 * message when one cannot be read; one that cannot be opened is the block's failure.
 */
int read_node_lists(ConfReader& reader, const FileText& file, const Keyword& keyword);

int readCategory(ConfReader& reader);
int readActions(ConfReader& reader);
int readEnterprise(ConfReader& reader);
int readTrapSpecInfo(ConfReader& reader);

}  // namespace wq

#endif
