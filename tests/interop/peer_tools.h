/*
 * Other makers' tools as peers of a test: whether they are there, and a folder of their own.
 */
#ifndef WQEVENTS_TESTS_INTEROP_PEER_TOOLS_H
#define WQEVENTS_TESTS_INTEROP_PEER_TOOLS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace wq::test {

/* Where programs are looked for: PATH, and where daemons are. */
inline std::string program_folders() {
    const char* path = std::getenv("PATH");
    return std::string(path == nullptr ? "/usr/bin:/bin" : path) + ":/usr/sbin:/sbin";
}

inline bool is_installed(const std::string& program) {
    std::istringstream folders(program_folders());
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

/* An environment in which the tools read and write nothing but the folder. */
inline SubprocessOptions tool_environment(const TempDir& folder) {
    SubprocessOptions options;
    options.environment = {{"HOME", folder.path()},
                           {"SNMPCONFPATH", folder.path()},
                           {"SNMP_PERSISTENT_DIR", folder.path("state")},
                           {"MIBS", ""},
                           {"XDG_CONFIG_HOME", folder.path()},
                           {"LC_ALL", "C"},
                           {"PATH", program_folders()}};
    return options;
}

}  // namespace wq::test

/* Skips the test where the program is missing. */
#define REQUIRE_PROGRAM(program)                          \
    if (!::wq::test::is_installed(program)) {             \
        GTEST_SKIP() << (program) << " is not installed"; \
    }                                                     \
    static_assert(true)

#endif
