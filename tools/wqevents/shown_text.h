// What others wrote, made fit for a terminal: traps, files, arguments and the library's messages.
//
// All that the command prints goes through here. Control characters (C0, DEL, C1), what starts a
// line or turns the direction of letters round (U+2028 to U+202E, U+2066 to U+2069), and octets
// that are not UTF-8 become \xHH, octet by octet. A tab and every other character stay, the
// backslash included: an octet that was escaped cannot be told from the same four letters.
#pragma once

#include <string>
#include <string_view>

namespace wq::command {

// shown: `text` as a part of a line: a newline is escaped, too.
std::string shown(std::string_view text);

// show_lines: escapes in whole lines, whose newlines stay.
void show_lines(std::string& lines);

// indented: `text` with a tab before every line but the first, so that no other line looks like
// the beginning of a message.
std::string indented(std::string_view text);

}  // namespace wq::command
