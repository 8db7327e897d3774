// The trap configuration as a file: locked, read whole, kept beside and replaced.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace wq::command {

struct CloseLocked {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
// Closing it gives up the lock.
using LockedFile = std::unique_ptr<std::FILE, CloseLocked>;

// Takes the place of the first line while a file is written; see is_unfinished().
inline constexpr std::string_view unfinished_mark = "!\n";

// The file that getVortdConfFile() names, open and locked. While another process has the lock it is
// tried again for `patience` seconds. A Failure with the library's message.
LockedFile lock_configuration(double patience);

// All bytes of the locked file. A Failure where they cannot be read.
std::string bytes_of(const LockedFile& file);

// All bytes of the file of that name, without a lock: one whole state of it, waited for while it is
// being written. A Failure where it cannot be read, changes all the time, or is no regular file.
std::string read_configuration_bytes(const std::string& name);

// True where the bytes are those of a file whose writer has not finished.
bool is_unfinished(std::string_view bytes);

// Puts `bytes` into a file beside `name`, which has the permissions of the open `fd` and only then
// takes the name `copy`: at no time is there a part of it. A Failure leaves what was there.
void put_beside(const std::string& copy, int fd, std::string_view bytes);

// Replaces what the locked file holds. A Failure says whether the old contents are still there.
void replace_bytes(const LockedFile& file, std::string_view bytes);

// Makes the file `name`; a Failure where there is one already.
void create_file(const std::string& name, std::string_view bytes);

}  // namespace wq::command
