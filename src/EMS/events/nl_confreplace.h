// Replacing what a configuration file holds, so that neither a full disk nor the death of the
// process costs an operator his configuration unnoticed.
#pragma once

#include <string_view>

namespace wq {

enum class Replaced { done, no_room, not_written };

// Makes `text`, which begins with an empty comment, "#\n", the contents of the regular file that
// `fd` is open on for writing. The file keeps its identity, and with it its locks. On failure errno
// says why.
//   no_room      nothing of the file was changed: room for the whole text could not be reserved
//   not_written  writing failed all the same; the old contents were put back if `fd` can read them
//                and the file can be written
//
// Before anything else of the file changes, its length included, its first line is made "!", which
// no reader of the configuration accepts, and it stays so until all the rest is on the disk. A
// process that is killed meanwhile leaves a file that the next read reports.
Replaced replace_contents(int fd, std::string_view text);

}  // namespace wq
