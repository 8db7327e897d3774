/*
 * Any bytes as a trap configuration, by itself and read into a model that is there. Whatever the
 * reader says, the model keeps its orders, look-ups find what is in it, and nothing is left behind.
 */
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <cstring>
#include <string>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

/* The bytes as a file that has no name in the file system but can be opened. */
class MemoryFile {
  public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("vortd.conf", MFD_CLOEXEC)) {
        require(fd_ >= 0 && write(fd_, data, size) == static_cast<ssize_t>(size));
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const char* path() const { return path_.c_str(); }

  private:
    int fd_;
    std::string path_;
};

bool in_order(const trap_record& a, const trap_record& b) {
    return a.generic_trap < b.generic_trap ||
           (a.generic_trap == b.generic_trap && a.specific_trap <= b.specific_trap);
}

void check_traps(enterprise_info* enterprise) {
    const trap_record* last = nullptr;
    for (trap_record* r = enterprise->trap_rec_list_head.next; r != nullptr; r = r->next) {
        require(std::memchr(r->name, '\0', sizeof r->name) != nullptr);
        require(last == nullptr || in_order(*last, *r));
        const trap_record* named = nameToExactTrap(r->name);
        require(named != nullptr && std::strcmp(named->name, r->name) == 0);
        trap_record* first = nullptr;
        require(find_exact_trap_record(enterprise, r->generic_trap, r->specific_trap, &first) == 0);
        require(first->generic_trap == r->generic_trap);
        last = r;
    }
}

void check_model() {
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        require(e->next == nullptr || oidcmp(e->enterprise_oid, e->next->enterprise_oid, e->oid_len,
                                             e->next->oid_len) < 0);
        enterprise_info* found = nullptr;
        require(find_enterprise(e->enterprise_oid, e->oid_len, &found) == 0 && found == e);
        check_traps(e);
    }
}

int read_main(const MemoryFile& file) {
    setVortdConfFile(file.path());
    char* message = nullptr;
    const int result = read_trapspec_file(&message);
    require(result == 0 || result == -1);
    require(message != nullptr);
    check_model();
    return result;
}

void read_more(const MemoryFile& file, int flags) {
    trpFormatDontMallocDesc = flags & 1;
    trpFormatDontMallocRaw = flags >> 1;
    char* message = nullptr;
    const int result = augmentTrapspecFile(&message, file.path());
    require(result == 0 || result == -1);
    check_model();
    trpFormatDontMallocDesc = 0;
    trpFormatDontMallocRaw = 0;
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    trace_vortdconf = 1;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const MemoryFile file(data, size);
    const int result = read_main(file);
    read_more(file, static_cast<int>(size % 4));
    free_all_info();
    require(enterprise_list_head.next == nullptr && numActionCommands == 0);
    require(read_main(file) == result);
    free_all_info();
    return 0;
}
