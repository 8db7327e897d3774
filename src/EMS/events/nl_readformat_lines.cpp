/*
 * The configuration reader's lines: keywords, messages about a line, description blocks.
 */
#include "EMS/events/nl_readformat.h"

#include <algorithm>
#include <cstring>

#include "EMS/events/internal/text_scan.h"

namespace wq {

bool Keyword::begins(std::string_view line) const {
    if (text == nullptr) {
        return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const char c = i < line.size() ? line[i] : '\0';
        if (c != text[i]) {
            return false;
        }
        if (c == '\0') {
            break;
        }
    }
    return true;
}

std::string_view Keyword::rest(std::string_view line) const {
    return line.substr(std::min(length, line.size()));
}

std::string_view Keyword::argument(std::string_view line) const {
    return line.substr(std::min(length + 1, line.size()));
}

Keyword measured(const char* text) {
    return {text, text != nullptr ? std::strlen(text) : 0};
}

KeywordLengths measure_keywords() {
    return {.category = measured(categoryKeyword).length,
            .action = measured(actionKeyword).length,
            .exec = measured(execKeyword).length,
            .display = measured(displayKeyword).length,
            .nodes = measured(nodesKeyword).length,
            .sdesc = measured(sdescKeyword).length,
            .edesc = measured(edescKeyword).length};
}

bool getline(ConfReader& reader) {
    if (reader.lines.next(reader.line)) {
        return true;
    }
    if (reader.lines.too_long()) {
        reader.message = "Line too long";
    }
    return false;
}

int getNextLine(ConfReader& reader, const char* keyword) {
    if (getline(reader)) {
        return 0;
    }
    if (reader.message.empty()) {
        reader.message.append("End of file in \"").append(reader.path);
        reader.message.append("\" prematurely reached after ").append(keyword).append(" keyword");
    }
    return -1;
}

void appendLineInfo(ConfReader& reader) {
    reader.message.append(" in line #").append(std::to_string(reader.lines.number()));
    reader.message.append(" of \"").append(reader.path).append("\":\n");
    reader.message.append(reader.line).append(".\n");
}

int fail_line(ConfReader& reader, std::string_view text) {
    reader.message = text;
    appendLineInfo(reader);
    return -1;
}

std::string_view stripped(std::string_view text) {
    std::size_t end = text.size();
    while (end != 0 && is_space(text[end - 1])) {
        --end;
    }
    /* Only behind a byte that may begin a character can a blank be the second byte of one. */
    if (end != 0 && end != text.size() && static_cast<unsigned char>(text[end - 1]) >= 0x80) {
        end = length_without_trailing_space(std::string(text).c_str());
    }
    text = text.substr(0, end);
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

int mallocAndReadDescription(ConfReader& reader, ModelText& description) {
    const Keyword start{sdescKeyword, reader.lengths.sdesc};
    const Keyword end{edescKeyword, reader.lengths.edesc};
    if (!start.is(reader.line)) {
        return fail_line(reader,
                         std::string("Did not find a ").append(start.shown()).append(" keyword"));
    }
    reader.gathered.clear();
    while (getNextLine(reader, start.shown()) == 0) {
        if (end.is(reader.line)) {
            if (trpFormatDontMallocDesc == 0) {
                description = model_text(stripped(reader.gathered));
            }
            return 0;
        }
        reader.gathered.append(reader.line).push_back('\n');
        if (reader.gathered.size() > description_max) {
            return fail_line(reader, "Trap description too long");
        }
    }
    return -1;
}

}  // namespace wq
