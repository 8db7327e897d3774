// Reading the configuration again while traps go on being formatted by the one that was read
// before.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "file_descriptor.h"

namespace wq::command {

// Which file a name stands for, and its state; two that differ in nothing hold the same text.
class FileState {
  public:
    FileState() = default;
    // The state of the file of that name.
    explicit FileState(const std::string& name);

    // False if the file changed so lately that another change may not show.
    bool is_settled() const { return settled_; }
    bool operator==(const FileState& other) const;

  private:
    bool there_ = false;
    bool settled_ = true;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t size_ = 0;
    timespec modified_ = {};
};

// What formatting reads: the trap configuration with its alerts, and the MIB.
//
// A changed file is tried out by a child first, the trap configuration by a copy that it makes.
// Only what the child could read is read by this process, from the copy, so that neither a mistake,
// nor a writer, nor a read error takes away what is in use. A part is read at most once a second,
// and only if its files are others than those that were read last.
class Configuration {
  public:
    using Clock = std::chrono::steady_clock;

    enum class Part { traps, mib };

    // Reads all, the traps from the file of that name, or, if it is "", from the one that the
    // platform names. A Failure if it cannot be read. What is wrong with the alerts goes to
    // report().
    explicit Configuration(const std::string& name);
    ~Configuration();
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    // ask: has the part read again as soon as it may be.
    void ask(Part part);

    // start: starts the child if there is something to try out and the time has come, and puts an
    // end to one that takes too long. True if a child was started. To be called while the process
    // has no other thread.
    bool start(Clock::time_point now);

    // When start() has something to do; the end of time if only after ask().
    Clock::time_point next() const;

    // Readable while a child has something to say; -1 if there is no child.
    int fd() const { return answer_.get(); }

    // Whether what was last tried out is in use. While files are broken, or somebody goes on
    // writing them, nobody should wait for them.
    bool is_sound() const;

    // take: takes what the child says; true once that is all. Does not wait.
    bool take();

    // apply: after take() said so, reads what the child could read, or keeps what is there. Returns
    // a complaint, or "".
    std::string apply();

  private:
    struct State {
        bool wanted = false;
        bool failed = false;                  // the last time: the files are looked at each second
        Clock::time_point may = {};           // not before is it read again
        std::array<FileState, 2> tried = {};  // its files as they were when they were last read
    };

    State& state(Part part) { return states_[static_cast<std::size_t>(part)]; }
    std::array<FileState, 2> look(Part part) const;
    bool start(Part part, Clock::time_point now);
    bool run_child(Part part);
    std::string load(Part part);

    std::string name_;
    FileDescriptor text_;  // the copy of the trap configuration that is in use
    std::array<State, 2> states_;

    pid_t child_ = -1;
    Part trying_ = Part::traps;
    FileDescriptor fresh_;   // the copy that the child makes
    FileDescriptor answer_;  // what the child says: "+" or "-", and a message
    std::string said_;
    Clock::time_point give_up_ = {};
};

// configured_nodes: the names of hosts in the NODES lists of the configuration that was read, each
// once.
std::vector<std::string> configured_nodes();

}  // namespace wq::command
