// Messages of the catalogue with their arguments in place.
#pragma once

#include <initializer_list>
#include <string>
#include <variant>

namespace wq {

using MessageArg = std::variant<const char*, int>;

// Message `msg` of set 1, its conversions replaced by the arguments. "%s" and "%d" take the next
// argument, "%2$s" the one of that number; flags, width and precision have up to three digits. A
// translation that asks for anything else, or for an argument that there is not, is not used: the
// default text is.
std::string message_text(int msg, const char* default_text, std::initializer_list<MessageArg> args);

// The same for a text that is at hand. False if the text asks for anything else.
bool expand_message(std::string& result, const char* text, std::initializer_list<MessageArg> args);

}  // namespace wq
