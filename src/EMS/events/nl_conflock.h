// Locks on configuration files that keep other processes out, and only them.
#pragma once

namespace wq {

enum class Lock { shared, exclusive };
enum class Locked { yes, held_elsewhere, failed };

// Asks for a lock on the whole file without waiting; errno tells why it was not given. The lock
// lasts until unlock_file() or until the descriptor is closed; other descriptors of the file may
// come and go. A process that holds a lock on the file gets a further one.
Locked lock_file(int fd, Lock kind);

// Gives back the lock taken on this descriptor.
void unlock_file(int fd);

// What the alert configuration's lock waits with between its attempts; tests replace it.
extern void (*pause_between_attempts)(unsigned seconds);

}  // namespace wq
