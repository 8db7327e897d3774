/*
 * Traps in, the texts for every kind of caller out: the files of tests/golden/format/, each with
 * the sections
 *     == conf     the trap configuration
 *     == names    the names of identifiers
 *     == hosts    what the resolver knows, lines of an address and a name
 *     == trap     the trap: community, enterprise, agent, generic, specific, time, bindings
 *     == N R      the text for caller N, for which the formatter gives R
 * of which names and hosts may be missing. The time is 2001-09-09 01:46:40 UTC.
 */
#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "support/formatting.h"

namespace {

using namespace wq::test;

constexpr const char* folder = WQEVENTS_TEST_DATA "/golden/format";

using Sections = std::map<std::string, std::string>;

Sections read_sections(const std::string& path) {
    Sections sections;
    std::ifstream file(path);
    std::string* section = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("== ")) {
            section = &sections[line.substr(3)];
        } else if (section != nullptr) {
            section->append(line).append("\n");
        }
    }
    return sections;
}

Trap read_trap(const std::string& text) {
    Vector row{"trap", {}};
    for (const std::string& column : split(trimmed(text.substr(0, text.find('\n'))), '|')) {
        row.columns.push_back(trimmed(column));
    }
    /* An encoder's addresses and a decoder's differ by the order of their octets alone. */
    return to_send(trap_from_columns(row, 0));
}

class Golden : public Formatting, public testing::WithParamInterface<std::string> {
  protected:
    void know_hosts(const std::string& text) {
        for (const std::string& line : split(text, '\n')) {
            const size_t blank = line.find(' ');
            if (blank != std::string::npos) {
                known_hosts()[htonl(address_from_text(line.substr(0, blank)))] =
                    line.substr(blank + 1);
            }
        }
    }
};

TEST_P(Golden, TextsForEveryCaller) {
    const Sections sections = read_sections(std::string(folder) + "/" + GetParam());
    configure(sections.at("conf"));
    if (sections.contains("names")) {
        name_identifiers(sections.at("names"));
    }
    if (sections.contains("hosts")) {
        know_hosts(sections.at("hosts"));
    }
    int callers = 0;
    for (const auto& [name, text] : sections) {
        if (std::isdigit(static_cast<unsigned char>(name.front())) != 0) {
            SCOPED_TRACE(name);
            ++callers;
            Trap trap = read_trap(sections.at("trap"));
            const Formatted formatted = format(std::stoi(name), trap);
            EXPECT_EQ(formatted.result, std::stoi(name.substr(name.find(' '))));
            EXPECT_EQ(formatted.result == -1 ? "" : formatted.text, text);
        }
    }
    EXPECT_EQ(callers, 5);
}

std::vector<std::string> names_of_files() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string case_name(const testing::TestParamInfo<std::string>& file) {
    return file.param.substr(0, file.param.find('.'));
}

INSTANTIATE_TEST_SUITE_P(Files, Golden, testing::ValuesIn(names_of_files()), case_name);

}  // namespace
