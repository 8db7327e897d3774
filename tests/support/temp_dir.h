/*
 * A new, empty folder that goes away, with all that is in it, when the object does.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_TEMP_DIR_H
#define WQEVENTS_TESTS_SUPPORT_TEMP_DIR_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace wq::test {

class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "wqevents.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        path_ = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path() const { return path_.string(); }
    /* The full path of `name` in the folder. */
    std::string path(std::string_view name) const { return (path_ / name).string(); }

    /* Writes the file `name` and gives its full path. */
    std::string write(std::string_view name, std::string_view content) const {
        const std::string file = path(name);
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }
    /* The whole content of the file `name`; empty if there is none. */
    std::string read(std::string_view name) const {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

  private:
    std::filesystem::path path_;
};

}  // namespace wq::test

#endif
