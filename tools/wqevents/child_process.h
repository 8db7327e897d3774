// Children that work for the command and never outlive it.
#pragma once

#include <sys/types.h>

namespace wq::command {

// What a child of fork_child() has its descriptors as.
inline constexpr int first_child_fd = 3;
inline constexpr int second_child_fd = 4;

// fork_child: a child that keeps the two descriptors, the second only if it is not -1, and the
// standard error stream; everything else is closed in it. It is killed when this thread ends. To be
// called while the process has no other thread. Returns 0 in the child, -1 if there can be none.
pid_t fork_child(int first, int second);

// end_child: kills the child and waits for its end; nothing for -1.
void end_child(pid_t child);

// kill_child: kills the child and does not wait, as for one that the system does not let go;
// nothing for -1.
void kill_child(pid_t child);

}  // namespace wq::command
