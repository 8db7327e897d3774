/*
 * A child process with a machine of its own: private user, network, mount and host name
 * namespaces. In it the process is root, the loopback interface is up, no port is taken, the host
 * is called "sandbox-host", names come from the given /etc/hosts and /etc/services alone unless
 * another source is given, and /usr/WQ is empty and writable. Nothing of that is seen outside, and
 * nothing is left behind.
 *
 *     TEST(Module, NeedsAPrivilegedPort) {
 *         REQUIRE_SANDBOX();
 *         run_in_sandbox({.services = "name 1234/tcp\n"}, [] { ... EXPECT_EQ(...) ... });
 *     }
 *
 * Failures of expectations inside count. Where the machine refuses namespaces, REQUIRE_SANDBOX()
 * skips the test; with the environment variable CI set it fails instead.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_SANDBOX_H
#define WQEVENTS_TESTS_SUPPORT_SANDBOX_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "support/temp_dir.h"

namespace wq::test {

struct SandboxFiles {
    std::string hosts = "127.0.0.1 localhost sandbox-host\n";
    std::string services = "";
    std::string host_sources = "files"; /* of names, as in nsswitch.conf */
    std::string resolver = "";          /* resolv.conf */
};

namespace sandbox {

constexpr const char* host_name = "sandbox-host";

inline void check(bool succeeded, const std::string& what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

inline void write_file(const std::string& path, std::string_view content) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    check(fd >= 0, path);
    const ssize_t written = write(fd, content.data(), content.size());
    const int error = errno;
    close(fd);
    errno = error;
    check(written == static_cast<ssize_t>(content.size()), path);
}

inline void become_root_of_new_namespaces() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    check(unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS) == 0, "unshare");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    check(sethostname(host_name, std::strlen(host_name)) == 0, "sethostname");
}

inline void bring_loopback_up() {
    const int sd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::memcpy(request.ifr_name, "lo", sizeof "lo");
    const bool got = sd >= 0 && ioctl(sd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
    const bool up = got && ioctl(sd, SIOCSIFFLAGS, &request) == 0;
    close(sd);
    check(up, "loopback interface");
}

inline void bind_mount(const std::string& from, const std::string& onto) {
    check(mount(from.c_str(), onto.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, onto);
}

/* Makes `copy` show what `folder` holds but for `hidden`; more can be put into the copy. */
inline void mirror(const std::string& folder, const std::string& copy,
                   const std::vector<std::string>& hidden) {
    namespace fs = std::filesystem;
    fs::create_directory(copy);
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        const std::string target = copy + "/" + name;
        if (std::find(hidden.begin(), hidden.end(), name) != hidden.end()) {
            continue;
        }
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), target);
            continue;
        }
        if (entry.is_directory()) {
            fs::create_directory(target);
        } else {
            write_file(target, "");
        }
        bind_mount(entry.path(), target);
    }
}

inline void enter(const SandboxFiles& files, const std::string& staging) {
    become_root_of_new_namespaces();
    bring_loopback_up();
    check(mount("tmpfs", staging.c_str(), "tmpfs", 0, nullptr) == 0, "tmpfs");
    const std::string etc = staging + "/etc";
    mirror("/etc", etc, {"hosts", "services", "nsswitch.conf", "resolv.conf"});
    write_file(etc + "/hosts", files.hosts);
    write_file(etc + "/services", files.services);
    write_file(etc + "/resolv.conf", files.resolver);
    write_file(etc + "/nsswitch.conf",
               "passwd: files\ngroup: files\nhosts: " + files.host_sources + "\nservices: files\n");
    bind_mount(etc, "/etc");
    const std::string usr = staging + "/usr";
    mirror("/usr", usr, {"WQ"});
    std::filesystem::create_directory(usr + "/WQ");
    bind_mount(usr, "/usr");
}

/* Runs `body` in a child that dies with its parent; gives what the child ends with. */
inline int run_in_child(const std::function<int()>& body) {
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    check(child >= 0, "fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        std::exit(body());
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/* Why there can be no sandbox here; empty when there can. */
inline std::string find_obstacle() {
    const TempDir folder;
    const std::string report = folder.path("report");
    const TempDir staging;
    const int result = run_in_child([&] {
        try {
            const int fd = open(report.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            try {
                enter({}, staging.path());
            } catch (const std::exception& failure) {
                const std::string_view text = failure.what();
                check(write(fd, text.data(), text.size()) > 0, report);
                return 1;
            }
            return 0;
        } catch (const std::exception&) {
            return 1;
        }
    });
    const std::string reason = folder.read("report");
    return result == 0 ? "" : reason.empty() ? "the child ended early" : reason;
}

inline const std::string& obstacle() {
    static const std::string reason = find_obstacle();
    return reason;
}

}  // namespace sandbox

inline void run_in_sandbox(const SandboxFiles& files, const std::function<void()>& body) {
    const TempDir staging;
    const int result = sandbox::run_in_child([&] {
        try {
            sandbox::enter(files, staging.path());
            body();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
        return ::testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(result, 0) << "in the sandbox";
}

inline void run_in_sandbox(const std::function<void()>& body) {
    run_in_sandbox({}, body);
}

}  // namespace wq::test

#define REQUIRE_SANDBOX()                                                        \
    if (!::wq::test::sandbox::obstacle().empty()) {                              \
        if (std::getenv("CI") != nullptr) {                                      \
            FAIL() << "no sandbox: " << ::wq::test::sandbox::obstacle();         \
        }                                                                        \
        GTEST_SKIP() << "needs namespaces: " << ::wq::test::sandbox::obstacle(); \
    }                                                                            \
    static_assert(true)

#endif
