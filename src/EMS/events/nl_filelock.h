// Locks on whole files between processes.
#pragma once

namespace wq {

enum class Lock { shared, exclusive };
enum class Locked { yes, held_elsewhere, failed };

// Asks for a lock on the whole file that `fd` is open on, without waiting; errno tells why it was
// not given. An exclusive lock needs a descriptor that is open for writing, a shared one a
// descriptor that is open for reading.
//
// Only other processes are in the way. Each descriptor of this process has a lock of its own, of
// the kind that it asked for, until unlock_file() or until it is closed, in whatever order; so what
// the process holds never becomes weaker while a descriptor is open. A child that is forked has
// none of them, and its copies of the descriptors do not prolong any.
Locked lock_file(int fd, Lock kind);

// Gives back the lock taken on this descriptor. Keeps errno.
void unlock_file(int fd);

}  // namespace wq
