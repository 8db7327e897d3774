// Replacing what a configuration file holds, so that neither a full disk nor the death of the
// process costs an operator his configuration unnoticed.
#pragma once

#include <string_view>

namespace wq {

enum class Replaced { done, no_room, not_written };

// Makes `text`, which begins with an empty comment, "#\n", the contents of the regular file that
// `fd` is open on for writing. The file keeps its identity, and with it its locks. Room for the
// whole text is reserved first; a write that fails all the same puts the old contents back, where
// `fd` can read them.
//
// While the contents change the file's first line is "!", which no reader of the configuration
// accepts, so that a process killed meanwhile leaves a file that the next read reports.
Replaced replace_contents(int fd, std::string_view text);

}  // namespace wq
