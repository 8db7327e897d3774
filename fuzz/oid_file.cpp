/*
 * Any bytes as a file of names. Whatever the tree is, siblings ascend, every name is found by its
 * identifier and some identifier by every name, and the same file gives the same tree again.
 */
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/names.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

using Path = std::vector<uint32_t>;

/* A file in memory that can be opened by name. */
class MemoryFile {
  public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("oid_to_label", MFD_CLOEXEC)) {
        require(fd_ >= 0 && write(fd_, data, size) == static_cast<ssize_t>(size));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

/* A range of a million numbers is right, but a dozen of them fill the memory. */
bool has_large_range(std::string_view text) {
    for (size_t close = text.find(')'); close != std::string_view::npos;
         close = text.find(')', close + 1)) {
        size_t at = close;
        size_t digits = 0;
        for (; at > 0 && std::strchr("0123456789\\\r\n ", text[at - 1]) != nullptr; --at) {
            digits += std::isdigit(static_cast<unsigned char>(text[at - 1])) != 0 ? 1 : 0;
        }
        if (digits > 3 || (at > 0 && text[at - 1] == '}')) {
            return true;
        }
    }
    return false;
}

void check_name(oidnode* root, const Path& path, const oiddata* data) {
    require(std::memchr(data->mapping_str, '\0', sizeof data->mapping_str) != nullptr);
    const int length = static_cast<int>(path.size());
    require(TreeGetOidData(root, path.data(), length) == data);
    require(TreeLookupOid(root, path.data(), length) == data->mapping_str);
}

/* No path is longer than what fits a line, so recursion ends. */
size_t check_below(oidnode* root, const oidnode* parent, Path& path) {
    size_t names = 0;
    for (const oidnode* node = parent->child; node != nullptr; node = node->sib) {
        require(node->sib == nullptr || node->val < node->sib->val);
        path.push_back(node->val);
        if (node->data != nullptr) {
            check_name(root, path, node->data);
            ++names;
        }
        names += check_below(root, node, path);
        path.pop_back();
    }
    return names;
}

void check_reverse(oidnode* root) {
    for (const oidnode* node = root; node != nullptr; node = node->child) {
        if (node->data != nullptr) {
            const char* found = findOidInTree(root, node->data->mapping_str);
            require(found != nullptr);
            Path path(128);
            path.resize(static_cast<size_t>(buildEntOid(path.data(), found)));
            const char* name = TreeLookupOid(root, path.data(), static_cast<int>(path.size()));
            require(name != nullptr && std::strcmp(name, node->data->mapping_str) == 0);
        }
    }
}

size_t check_tree(oidnode* root) {
    require(root != nullptr && root->val == 0 && root->sib == nullptr && root->data == nullptr);
    Path path;
    const size_t names = check_below(root, root, path);
    require(path.empty());
    check_reverse(root);
    return names;
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
    if (has_large_range({reinterpret_cast<const char*>(data), size})) {
        return 0;
    }
    const MemoryFile file(data, size);
    const size_t names = check_tree(parseOidFile(file.path().c_str()));
    require(check_tree(parseOidFile(file.path().c_str())) == names);
    dumpLocalList();
    dumpOidTree(oidTree, nullptr);
    insertOid("1.3.6.1.4.1", buildOidData("enterprises"));
    check_tree(oidTree);
    oidFreeTree(oidTree);
    require(oidTree == nullptr);
    return 0;
}
