// The command under strace, which lists its system calls or has some of them fail.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "listening_process.h"

namespace wq::test {

// The sanitizers' search for leaks needs the ptrace that strace has.
inline SubprocessOptions traceable(SubprocessOptions options) {
    options.environment["ASAN_OPTIONS"] = "detect_leaks=0";
    return options;
}

// Runs strace with `options`, which must name a file for its own output, on the command.
inline CommandRun traced_run(Words options, const Words& words, const SubprocessOptions& process) {
    options.insert(options.begin(), {"strace", "-f", "-qq"});
    const Words command = command_line(words);
    options.insert(options.end(), command.begin(), command.end());
    return CommandRun(options, traceable(process), CommandRun::as_it_is);
}

// Why there can be no tracing here; empty when there can.
inline std::string tracing_obstacle() {
    try {
        Subprocess process({"strace", "-qq", "-o", "/dev/null", "true"});
        return process.wait() == 0 ? "" : process.err();
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

}  // namespace wq::test

#define REQUIRE_TRACING()                                                                 \
    if (const std::string obstacle = ::wq::test::tracing_obstacle(); !obstacle.empty()) { \
        if (std::getenv("CI") != nullptr) {                                               \
            FAIL() << "no strace: " << obstacle;                                          \
        }                                                                                 \
        GTEST_SKIP() << "needs strace: " << obstacle;                                     \
    }                                                                                     \
    static_assert(true)
