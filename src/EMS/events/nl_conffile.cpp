/*
 * Which file the trap configuration is, and opening it.
 */
#include <wqevents/configuration.h>

#include <wqplatform.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "EMS/events/internal/file_text.h"

namespace wq {
namespace {

struct ConfFileState {
    std::optional<std::string> name; /* none: to be computed when it is asked for */
};

ConfFileState state;

std::string default_conf_file() {
    if (const char* named = std::getenv("WQVORTDCONF")) {
        return named;
    }
    const char* locale = "C";
    return std::string(_WQconfDirName(locale)).append("/").append(locale).append("/vortd.conf");
}

bool only_reads(const char* mode) {
    return mode[0] == 'r' && std::strchr(mode, '+') == nullptr;
}

/* fopen(); programs that this one starts do not inherit the stream. */
Stream open_conf_file(const char* path, const char* mode) {
    if (!only_reads(mode)) {
        return Stream(std::fopen(path, std::string(mode).append("e").c_str()));
    }
    Fd fd = open_for_reading(path);
    Stream stream(fd ? ::fdopen(fd.get(), mode) : nullptr);
    if (stream) {
        fd.release();
    }
    return stream;
}

}  // namespace
}  // namespace wq

void setVortdConfFile(const char* name) WQEVENTS_NOEXCEPT {
    std::optional<std::string> chosen;
    if (name != nullptr && *name != '\0') {
        chosen = name;
    }
    wq::state.name.swap(chosen);
}

char* getVortdConfFile(void) WQEVENTS_NOEXCEPT {
    if (!wq::state.name) {
        wq::state.name = wq::default_conf_file();
    }
    return wq::state.name->data();
}

FILE* fopenConfFile(const char* mode, char** name) WQEVENTS_NOEXCEPT {
    if (mode == nullptr || name == nullptr) {
        return nullptr;
    }
    *name = getVortdConfFile();
    return wq::open_conf_file(*name, mode).release();
}
