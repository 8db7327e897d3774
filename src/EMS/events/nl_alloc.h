// Memory for the texts of a configuration file.
#pragma once

#include <cstddef>

namespace wq {

// A block that doFree() and doRealloc() take, as they take those of doMalloc(), which it ends the
// process as. Its contents are not set. There is one arena: only what reads a file may call.
void* file_block(std::size_t size);

}  // namespace wq
