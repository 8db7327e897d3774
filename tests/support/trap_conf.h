/*
 * A trap configuration of the test's own: a folder for its files, and the model that they are read
 * into, empty before and after, with the library's settings as they were.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_TRAP_CONF_H
#define WQEVENTS_TESTS_SUPPORT_TRAP_CONF_H

#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/env_value.h"
#include "support/temp_dir.h"

namespace wq::test {

/* What a read says. */
struct ConfRead {
    int result = 0;
    std::string message;

    bool operator==(const ConfRead&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const ConfRead& read) {
    return out << read.result << " \"" << read.message << '"';
}

class TrapConf : public testing::Test {
  protected:
    TrapConf() { clear(); }
    ~TrapConf() override { clear(); }

    /* Reads `content` as the configuration file. */
    ConfRead read(std::string_view content) { return read_path(dir_.write("conf", content)); }
    ConfRead read_path(const std::string& path) {
        setVortdConfFile(path.c_str());
        char* message = nullptr;
        const int result = read_trapspec_file(&message);
        return {result, message};
    }
    /* Reads `content` as a further file. */
    ConfRead augment(std::string_view content) {
        char* message = nullptr;
        const int result = augmentTrapspecFile(&message, dir_.write("more", content).c_str());
        return {result, message};
    }

    /* The message `text` about line `number` of the configuration file, as the reader puts it. */
    ConfRead failure(const std::string& text, int number, const std::string& line) const {
        return {-1, text + " in line #" + std::to_string(number) + " of \"" + dir_.path("conf") +
                        "\":\n" + line + ".\n"};
    }

    static trap_record* trap(const char* name) { return nameToExactTrap(name); }
    /* The names of all traps, in the order of the model. */
    static std::vector<std::string> traps() {
        std::vector<std::string> names;
        for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
                names.emplace_back(r->name);
            }
        }
        return names;
    }
    static std::vector<std::string> enterprises() {
        std::vector<std::string> names;
        for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            names.emplace_back(e->enterprise_name);
        }
        return names;
    }
    /* The category table as "slot=name" texts. */
    static std::vector<std::string> categories() {
        std::vector<std::string> used;
        for (int i = 0; i < EMS_CATEGORIES_MAX; ++i) {
            if (EMScategories[i] != nullptr) {
                used.push_back(std::to_string(i) + "=" + EMScategories[i]);
            }
        }
        return used;
    }

    TempDir dir_;
    EnvValue alerts_{"FERLOD_CONF", dir_.write("alerts", "")};

  private:
    static void clear() {
        free_all_info();
        setVortdConfFile(nullptr);
        trpFormatDontMallocDesc = 0;
        trpFormatDontMallocRaw = 0;
        trpFormatExpandSourceFiles = 0;
        have_read_vortdconf = 0;
        trace_vortdconf = 0;
    }
};

}  // namespace wq::test

#endif
