/*
 * Any bytes as an alert configuration, read into a model of three traps. Whatever the reader says,
 * the lists hold what the grammar allows; what is written reads the same and is written the same
 * again; and no file stays open in the end.
 */
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

constexpr uint32_t acme[] = {1, 3, 6, 1, 4, 1, 4242};
constexpr const char* traps[] = {"UP", "DOWN", "BROKEN"};
constexpr size_t longest_line = 1022; /* with its newline */

/* An alert configuration that has no name in the file system but can be opened. */
class AlertConfiguration {
  public:
    explicit AlertConfiguration(std::string_view content)
        : fd_(memfd_create("ferlod.conf", MFD_CLOEXEC)) {
        require(fd_ >= 0 &&
                write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        setenv("FERLOD_CONF", ("/proc/self/fd/" + std::to_string(fd_)).c_str(), 1);
    }
    ~AlertConfiguration() { close(fd_); }
    AlertConfiguration(const AlertConfiguration&) = delete;
    AlertConfiguration& operator=(const AlertConfiguration&) = delete;

    /* All but the heading, which tells the time. */
    std::string alerts() const {
        std::string text(static_cast<size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        require(pread(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
        constexpr std::string_view heading_end = "\n###################\n#\n";
        const size_t end = text.find(heading_end);
        require(end != std::string::npos);
        return text.substr(end + heading_end.size());
    }

  private:
    int fd_;
};

int read_alerts() {
    char* message = nullptr;
    const int result = read_ferlospec_file(&message);
    require((result == 0 || result == -1) && message != nullptr);
    require((result == 0) == (*message == '\0'));
    return result;
}

int items_of(int point) {
    const int nibble = point & 0xF0;
    return nibble == 0xA0 || nibble == 0xB0 ? 1 : nibble == 0xC0 ? 2 : nibble == 0xD0 ? 3 : 0;
}

void check_subvector(const alert_record& rec) {
    constexpr int keys[] = {0x81, 0x92, 0x93, 0x94, 0x95, 0x96, 0x98};
    require(std::find(std::begin(keys), std::end(keys), rec.subvector) != std::end(keys));
    require(rec.subvector != 0x92 || rec.num_codepoints == 1);
    int items = 0;
    for (int i = 0; i < rec.num_codepoints; ++i) {
        items += items_of(rec.codepoints[i]);
    }
    const bool has_items = rec.subvector != 0x92 && rec.subvector != 0x93;
    require(rec.subvector == 0x98 || rec.num_detaileddata == (has_items ? items : 0));
    for (int i = 0; i < rec.num_detaileddata; ++i) {
        const trap_element* const text = rec.detailed_data[i]->dd_args;
        require(text != nullptr && text->format != nullptr && text->rawstring != nullptr);
        require(std::strchr(text->rawstring, '"') == nullptr);
    }
}

void check_model() {
    for (const char* name : traps) {
        const trap_record* const rec = nameToExactTrap(name);
        require(rec != nullptr);
        for (const alert_record* part = rec->alert_element; part != nullptr; part = part->next) {
            check_subvector(*part);
        }
    }
}

bool has_long_line(std::string_view text) {
    while (!text.empty()) {
        const size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
        if (size > longest_line) {
            return true;
        }
        text.remove_prefix(size);
    }
    return false;
}

std::string write_alerts(const AlertConfiguration& file) {
    char* message = nullptr;
    require(write_ferlospec_file(&message) == 0);
    return file.alerts();
}

/* The writer puts a subvector on one line, and the reader takes lines of a certain length. */
void check_round_trip() {
    const AlertConfiguration file("");
    const std::string first = write_alerts(file);
    if (has_long_line(first)) {
        return;
    }
    for (const char* name : traps) {
        delete_ferlo_record(nameToExactTrap(name));
    }
    require(read_alerts() == 0);
    require(write_alerts(file) == first);
}

void make_model() {
    insert_enterprise(acme, std::size(acme), "acme");
    enterprise_info* enterprise = nullptr;
    find_enterprise(acme, std::size(acme), &enterprise);
    for (int i = 0; i < static_cast<int>(std::size(traps)); ++i) {
        insertMallocTrapRecord(enterprise, traps[i], 6, i, 0, nullptr, 3, 'A', doStrdup("text"),
                               nullptr, nullptr, nullptr, 1, 0, 0, nullptr, 0, nullptr, nullptr);
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    make_model();
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
        const AlertConfiguration file({reinterpret_cast<const char*>(data), size});
        const int result = read_alerts();
        check_model();
        require(read_alerts() == result);
        check_model();
    }
    check_round_trip();
    free_all_info();
    return 0;
}
