// Opening the alert configuration, for its reader and its writer.
#pragma once

#include <cstdio>

namespace wq {

// The numbers are open_ferlo_lock_file()'s results.
enum class AlertFileState { ready = 0, not_opened = -1, held_elsewhere = -2 };

struct AlertFile {
    std::FILE* stream;  // the caller's to close; null where not opened
    char* name;         // stays readable; the next call may overwrite it
    AlertFileState state;
};

// Opens and locks the alert configuration. Mode "w" truncates it if `truncate` says so, once the
// lock is held. errno tells what went wrong. What leave_alert_file_open() kept is closed first.
AlertFile open_alert_file(const char* mode, bool truncate);

// Releases the lock and closes the file.
void close_alert_file(std::FILE* stream);

// Keeps the file open and locked until it is opened again.
void leave_alert_file_open(std::FILE* stream);

}  // namespace wq
