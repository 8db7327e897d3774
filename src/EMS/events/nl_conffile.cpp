/*
 * Which file the trap configuration is, and opening it.
 */
#include <wqevents/configuration.h>

#include <wqplatform.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/guarded.h"
#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"

namespace wq {
namespace {

struct ConfFileState {
    KeptText names;
    char* name = nullptr; /* none: to be computed when it is asked for */
};

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

Stream open_conf_file(const char* path, const char* mode) {
    if (!only_reads(mode)) {
        return open_stream(path, mode);
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

void setVortdConfFile(const char* name) {
    auto& state = wq::lasting<wq::ConfFileState>();
    if (name == nullptr || *name == '\0') {
        state.name = nullptr;
        return;
    }
    /* The name may be the one that is kept, or a part of it. */
    wq::guarded([&] { state.name = state.names.keep(std::string(name)); });
}

char* getVortdConfFile(void) {
    auto& state = wq::lasting<wq::ConfFileState>();
    if (state.name == nullptr) {
        wq::guarded([&] { state.name = state.names.keep(wq::default_conf_file()); });
    }
    return state.name;
}

FILE* fopenConfFile(const char* mode, char** name) {
    if (mode == nullptr || name == nullptr) {
        return nullptr;
    }
    *name = getVortdConfFile();
    if (*name == nullptr) {
        return nullptr;
    }
    return wq::guarded<FILE*>(nullptr, [&] { return wq::open_conf_file(*name, mode).release(); });
}
