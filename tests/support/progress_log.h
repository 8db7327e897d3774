/*
 * What the library tells the platform's log. Including this header replaces the log in the whole
 * program, so one source file of a program does.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_PROGRESS_LOG_H
#define WQEVENTS_TESTS_SUPPORT_PROGRESS_LOG_H

#include <wqplatform.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace wq::test {

struct Progress {
    int component;
    int level;
    std::string catalog;
    int set;
    int msg;
    std::string format;
    std::string text;
};

inline std::vector<Progress> progress;

/* The texts logged since the last call. */
inline std::vector<std::string> take_progress() {
    std::vector<std::string> texts;
    for (const Progress& line : std::exchange(progress, {})) {
        texts.push_back(line.text);
    }
    return texts;
}

}  // namespace wq::test

void WQuLogS(int component, int level, const char* catalog, int set, int msg, const char* fmt,
             ...) {
    std::array<char, 16384> text;
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text.data(), text.size(), fmt, args);
    va_end(args);
    wq::test::progress.push_back({component, level, catalog, set, msg, fmt, text.data()});
}

#endif
