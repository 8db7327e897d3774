#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <wqevents/alerts.h>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/lasting.h"

namespace wq {
namespace {

constexpr std::string_view magic = "codepoint.cat456";
constexpr std::string_view catalogue_name = "codepoint.cat";
// Whatever the locale of the messages: catalogues are shipped for this one alone.
constexpr std::string_view locale_name = "En_US";
constexpr const char* install_path = "/usr/lpp/bos/inst_root/var/adm/ras/codepoint.cat";
constexpr const char* default_path = "/var/adm/ras/codepoint.cat";

constexpr std::size_t header_octets = 24;
constexpr std::size_t entry_octets = 8;
constexpr int sets = 7;
constexpr int no_code_point = 0xFFFF;

enum Loaded { loaded = 0, not_opened = -1, not_a_catalogue = -2, not_read = -3 };

// The entries of one set.
struct Run {
    std::size_t first = 0;
    std::size_t count = 0;
};

struct Catalogue {
    std::string path;
    FileText file;
    std::vector<FileText> former;  // whose texts have been handed out
    bool is_loaded = false;
    std::vector<cp_entry> entries;  // ordered by cecmp()
    std::array<Run, sets + 1> runs{};
    std::array<char, 16> digits{};
};

Catalogue& catalogue() {
    return lasting<Catalogue>();
}

// ---- finding the file

bool exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

// Where an entry of NLSPATH leads: up to the locale's place, which it takes, or without the
// catalogue's place at its end.
std::string path_of_entry(std::string_view entry) {
    constexpr std::size_t name_place = 3;  // of "/%N"
    if (entry.size() < name_place) {
        return std::string(catalogue_name);  // POSIX: an empty entry is "%N", the current folder
    }
    const std::size_t locale_place = entry.find("%L");
    std::string path(entry.substr(0, locale_place == std::string_view::npos
                                         ? entry.size() - std::min(entry.size(), name_place)
                                         : locale_place));
    if (locale_place != std::string_view::npos) {
        path.append(locale_name);
    }
    return path.append(1, '/').append(catalogue_name);
}

// The first catalogue along NLSPATH, or an empty text.
std::string find_along_nlspath() {
    const char* const value = std::getenv("NLSPATH");
    if (value == nullptr) {
        std::perror("getenv(NLSPATH)");
        return {};
    }
    std::string_view rest(value);
    while (!rest.empty()) {
        const std::string_view entry = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        if (std::string path = path_of_entry(entry); exists(path)) {
            return path;
        }
    }
    return {};
}

std::string find_catalogue() {
    std::string path = find_along_nlspath();
    if (path.empty()) {
        path = exists(install_path) ? install_path : default_path;
    }
    return path;
}

// ---- loading it

uint32_t little_endian(const char* octets, std::size_t count) {
    uint32_t value = 0;
    for (std::size_t i = count; i-- > 0;) {
        value = value << 8U | static_cast<unsigned char>(octets[i]);
    }
    return value;
}

// The number of entries that the header tells, or 0 where it is none.
std::size_t read_header(std::string_view file) {
    if (file.size() < header_octets || !file.starts_with(magic)) {
        return 0;
    }
    const auto count = static_cast<int32_t>(little_endian(file.data() + magic.size(), 4));
    return static_cast<std::size_t>(std::max(count, 0));
}

// Turns the entries of the file into those of memory; one whose text does not lie in the text area,
// or does not end there, is left out, so that its code point shows as digits.
void take_entries(Catalogue& into, std::size_t count) {
    const std::string_view file = into.file.view();
    const std::size_t texts = header_octets + count * entry_octets;
    const std::size_t last_end = file.rfind('\0');
    for (std::size_t at = header_octets; at < texts; at += entry_octets) {
        cp_entry entry{};
        entry.ce_alertid = static_cast<uint16_t>(little_endian(&file[at], 2));
        entry.ce_set = static_cast<uint16_t>(little_endian(&file[at + 2], 2));
        const std::size_t offset = little_endian(&file[at + 4], 4);
        if (offset >= texts && last_end != std::string_view::npos && offset <= last_end) {
            // Whoever shows a text does not write to it.
            entry.ce_u._ce_text = const_cast<char*>(file.data()) + offset;
            into.entries.push_back(entry);
        }
    }
}

void find_runs(Catalogue& of) {
    for (std::size_t i = 0; i < of.entries.size(); ++i) {
        const std::size_t set = of.entries[i].ce_set;
        if (set < of.runs.size()) {
            Run& run = of.runs[set];
            run.first = run.count == 0 ? i : run.first;
            ++run.count;
        }
    }
}

// The texts stay: programs may still show them.
void unload(Catalogue& gone) {
    gone.is_loaded = false;
    gone.entries.clear();
    gone.runs = {};
    if (!gone.file.view().empty()) {
        gone.former.push_back(std::move(gone.file));
        gone.file = FileText();
    }
}

// What cannot be read leaves the catalogue as it is.
Loaded read_catalogue(const char* path, FileText& file) {
    const Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0) {
        return not_opened;
    }
    if (!S_ISREG(status.st_mode)) {
        return not_a_catalogue;
    }
    return file.read(fd.get()) ? loaded : not_read;
}

Loaded take_catalogue(Catalogue& into, FileText file) {
    into.file = std::move(file);
    const std::size_t size = into.file.view().size();
    const std::size_t count = read_header(into.file.view());
    if (count == 0 || (size - header_octets) / entry_octets < count) {
        return not_a_catalogue;
    }
    take_entries(into, count);
    std::stable_sort(into.entries.begin(), into.entries.end(),
                     [](const cp_entry& a, const cp_entry& b) { return cecmp(&a, &b) < 0; });
    find_runs(into);
    into.is_loaded = true;
    return loaded;
}

Loaded load(Catalogue& into) {
    FileText file;
    const Loaded result = read_catalogue(into.path.c_str(), file);
    if (result == not_read ||
        (result == loaded && into.is_loaded && file.view() == into.file.view())) {
        return result;
    }
    unload(into);
    return result == loaded ? take_catalogue(into, std::move(file)) : result;
}

// ---- looking up

const char* digits_of(Catalogue& of, int id) {
    std::snprintf(of.digits.data(), of.digits.size(), "%04X", static_cast<unsigned>(id));
    return of.digits.data();
}

const char* find_text(const Catalogue& in, int set, int id) {
    const Run& run = in.runs[static_cast<std::size_t>(set)];
    const cp_entry* const first = in.entries.data() + run.first;
    const cp_entry* const last = first + run.count;
    const cp_entry* const found = std::lower_bound(
        first, last, id,
        [](const cp_entry& entry, int wanted) { return entry.ce_alertid < wanted; });
    return found != last && found->ce_alertid == id ? found->ce_u._ce_text : nullptr;
}

}  // namespace
}  // namespace wq

int codeptcatinit(void) {
    codeptpath(nullptr);
    wq::Loaded result = wq::not_a_catalogue;
    try {
        result = wq::load(wq::catalogue());
        if (result == wq::not_a_catalogue) {
            wq::unload(wq::catalogue());
        }
    } catch (const std::exception&) {  // no memory for what the file claims to hold
        wq::catalogue().is_loaded = false;
        result = wq::not_a_catalogue;
    }
    return result == wq::not_read ? wq::not_opened : result;
}

void codeptpath(const char* path) {
    try {
        if (path != nullptr) {
            wq::catalogue().path = path;
        } else if (wq::catalogue().path.empty()) {
            wq::catalogue().path = wq::find_catalogue();
        }
    } catch (const std::exception&) {  // no memory for the path
        return;
    }
}

const char* codeptstr(int set, int id) {
    if (id == wq::no_code_point) {
        return "";
    }
    if (!wq::catalogue().is_loaded) {
        return wq::digits_of(wq::catalogue(), id);
    }
    if (set < 1 || set > wq::sets) {
        return "-";
    }
    const char* const text = wq::find_text(wq::catalogue(), set, id);
    return text == nullptr ? wq::digits_of(wq::catalogue(), id) : text;
}

int cecmp(const void* a, const void* b) {
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    const auto& left = *static_cast<const cp_entry*>(a);
    const auto& right = *static_cast<const cp_entry*>(b);
    const int by_set = left.ce_set - right.ce_set;
    return by_set != 0 ? by_set : left.ce_alertid - right.ce_alertid;
}

// The catalogue is open while codeptcatinit() loads it and at no other time.
int cread(void* /*buf*/, int /*n*/) {
    return 0;
}
