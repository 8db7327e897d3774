// Locks on the configuration files.
#pragma once

#include "EMS/events/nl_filelock.h"

namespace wq {

// What the alert configuration's lock waits with between its attempts; tests replace it.
extern void (*pause_between_attempts)(unsigned seconds);

}  // namespace wq
