// The operator's lines of a trap, so that no trap can make a line that looks like another's.
#pragma once

#include <wqevents.h>

#include <string>
#include <string_view>

namespace wq::command {

// is_one_plain_line: whether trap_lines() would leave the text as it is, as it does most texts.
bool is_one_plain_line(std::string_view text, std::string_view host);

// trap_lines: `text` as trp_format() laid it out in the layout `kind` for the source `host`, with a
// tab before each continuation that would stand bare. The host is escaped as shown() does, and so
// is a tab that the first line begins with.
std::string trap_lines(rtrap_user kind, std::string_view text, std::string_view host);

}  // namespace wq::command
