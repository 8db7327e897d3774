/*
 * The MIB's intermediate file. Whatever it holds, reading it ends, and says the same twice. Each
 * identifier in it that can be read has a name with as many parts as the identifier has numbers,
 * each either that number or a name that the file's grammar allows.
 */
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz_target.h"
#include "platform/libmib.h"

namespace {

using wq::fuzz::require;
using Name = std::array<char, 2048>;

/* The input as a file with a path. */
class MemoryFile {
  public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("mib.txt", MFD_CLOEXEC)) {
        require(fd_ >= 0);
        require(write(fd_, data, size) == static_cast<ssize_t>(size));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

bool is_in_names(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
           c == '_';
}

void require_part(std::string_view part, uint32_t sub_id) {
    require(!part.empty() && part.size() <= wq::MibTree::name_max);
    require(part == std::to_string(sub_id) || (!(part[0] >= '0' && part[0] <= '9') &&
                                               std::all_of(part.begin(), part.end(), is_in_names)));
}

void require_name(const wq::MibTree& tree, std::span<const uint32_t> oid) {
    Name name;
    name.fill('?');
    const size_t length = tree.render(oid, name);
    require(length < name.size() && name[length] == '\0');
    if (length == name.size() - 1) {
        return; /* cut */
    }
    std::string_view rest(name.data(), length);
    for (const uint32_t sub_id : oid) {
        require(rest.starts_with('.'));
        rest.remove_prefix(1);
        const std::string_view part = rest.substr(0, rest.find('.'));
        require_part(part, sub_id);
        rest.remove_prefix(part.size());
    }
    require(rest.empty());
}

/* Every run of digits and dots in the input is tried as an identifier. */
void require_names(const wq::MibTree& tree, std::string_view text) {
    constexpr std::string_view digits = ".0123456789";
    for (size_t at = text.find_first_of(digits); at < text.size();
         at = text.find_first_of(digits, at)) {
        const size_t end = std::min(text.find_first_not_of(digits, at), text.size());
        std::array<uint32_t, 200> oid;
        if (const auto count = wq::read_dotted_numbers(text.substr(at, end - at), oid)) {
            require_name(tree, std::span(oid).first(*count));
        }
        at = end;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const MemoryFile file(data, size);
    wq::MibDefinitions first = wq::builtin_definitions();
    const auto fault = wq::read_mib_file(file.path().c_str(), first);
    require(!fault || (fault->error == 0 && fault->line > 0 && fault->text != nullptr));
    wq::MibDefinitions second = wq::builtin_definitions();
    const auto again = wq::read_mib_file(file.path().c_str(), second);
    require(fault.has_value() == again.has_value());
    require(!fault || (fault->line == again->line && fault->text == again->text));
    require_names(first.tree, {reinterpret_cast<const char*>(data), size});
    return 0;
}
