// Starting and ending children.
#include "child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace wq::command {
namespace {

constexpr int beyond = 16;  // above any of the descriptors that a child gets

void keep_only(int first, int second) {
    const int first_copy = fcntl(first, F_DUPFD, beyond);
    const int second_copy = second < 0 ? -1 : fcntl(second, F_DUPFD, beyond);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(first_copy, first_child_fd);
    if (second_copy >= 0) {
        dup2(second_copy, second_child_fd);
    }
    const int kept = second_copy >= 0 ? second_child_fd : first_child_fd;
    close_range(static_cast<unsigned>(kept) + 1, ~0U, 0);
}

}  // namespace

pid_t fork_child(int first, int second) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        keep_only(first, second);
    }
    return child;
}

void kill_child(pid_t child) {
    if (child > 0) {
        kill(child, SIGKILL);
    }
}

void end_child(pid_t child) {
    if (child > 0) {
        kill_child(child);
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

}  // namespace wq::command
