/*
 * wqevents mib compile: the names of MIB modules, written as the intermediate file of the MIB.
 */
#include <wqplatform.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "command.h"
#include "input_file.h"
#include "libsmi.h"
#include "output.h"
#include "shown_text.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace wq::command {
namespace {

constexpr const char* mib_footer =
    "Example:\n"
    "  wqevents mib compile -o /usr/WQ/conf/mib.txt NET-SNMP-AGENT-MIB UCD-SNMP-MIB";

constexpr const char* footer_text =
    "A MODULE is the name of a module in SMIv1 or SMIv2, which is looked for in the folders and "
    "in\n"
    "libsmi's own, or the path of its file. The modules that it imports from must be there, too.\n"
    "\n"
    "Examples:\n"
    "  wqevents mib compile -o /usr/WQ/conf/mib.txt NET-SNMP-AGENT-MIB UCD-SNMP-MIB\n"
    "  wqevents mib compile -I /usr/share/snmp/mibs -I ./mibs ./ACME-MIB.txt";

struct MibOptions {
    std::vector<std::string> modules;
    std::vector<std::string> folders;
    std::string output = "-";
};

using Oid = std::vector<std::uint32_t>;

/* Names by identifier, so that parents come before their children. */
using Names = std::map<Oid, std::string>;

/* What makes the outcome of no use: a file or a name that is missing, an error of syntax. */
constexpr int worst_harmless_severity = 2;

/* The file reader takes no longer identifiers and names (docs/mib.md). */
constexpr std::size_t oid_max = 128;
constexpr std::size_t name_max = 255;

/* libsmi hands its messages to a function without an argument of ours. */
std::string& complaints() {
    static std::string text;
    return text;
}

/* libsmi's message, the way compilers write theirs. */
void complain(char* path, int line, int severity, char* message, char*) {
    if (severity >= worst_harmless_severity) {
        return;
    }
    if (path != nullptr) {
        complaints().append(shown(path)).append(":").append(std::to_string(line)).append(": ");
    }
    complaints().append(shown(message)).append("\n");
}

void set_search_path(const std::vector<std::string>& folders) {
    std::string path;
    for (const std::string& folder : folders) {
        path.append(folder).append(":");
    }
    if (char* standard = smiGetPath()) {
        path.append(standard);
        smiFree(standard);
    }
    smiSetPath(path.c_str());
}

Oid oid_of(const SmiNode& node) {
    return {node.oid, node.oid + node.oidlen};
}

void add_node(const SmiNode& node, Names& names) {
    if (node.name == nullptr || node.oidlen == 0) {
        return; /* a number between two names has a node, too */
    }
    if (node.oidlen > oid_max || std::string_view(node.name).size() > name_max) {
        report("wqevents mib compile: " + quoted(node.name) + " is too long and left out\n");
        return;
    }
    names[oid_of(node)] = node.name;
}

/* Later modules have the last word on an identifier. */
void add_module(const std::string& module, Names& names) {
    if (module.find_first_of("/.") != std::string::npos) {
        refuse_special_file(module); /* libsmi takes it for a path */
    }
    const char* name = smiLoadModule(module.c_str());
    SmiModule* loaded = name != nullptr ? smiGetModule(name) : nullptr;
    if (loaded == nullptr) {
        return; /* libsmi has complained */
    }
    for (const SmiNode* node = smiGetFirstNode(loaded, SMI_NODEKIND_ANY); node != nullptr;
         node = smiGetNextNode(const_cast<SmiNode*>(node), SMI_NODEKIND_ANY)) {
        add_node(*node, names);
    }
}

/* The name that some module has for the identifier; empty: none. */
std::string imported_name(std::span<const std::uint32_t> oid) {
    Oid copy(oid.begin(), oid.end());
    const SmiNode* node = smiGetNodeByOID(static_cast<unsigned>(copy.size()), copy.data());
    const bool found = node != nullptr && node->oidlen == copy.size() && node->name != nullptr;
    return found ? node->name : "";
}

/* What lies above the names may come from modules that these import from. */
void add_ancestors(Names& names) {
    Names above;
    for (const auto& [oid, name] : names) {
        for (std::size_t length = oid.size() - 1; length > 0; --length) {
            const std::span<const std::uint32_t> prefix(oid.data(), length);
            Oid ancestor(prefix.begin(), prefix.end());
            if (names.count(ancestor) != 0 || above.count(ancestor) != 0) {
                break; /* and with it what is above that */
            }
            above.emplace(std::move(ancestor), imported_name(prefix));
        }
    }
    std::erase_if(above, [](const auto& entry) { return entry.second.empty(); });
    names.merge(above);
}

/* The name that the library knows without a file. */
std::string builtin_name(const Oid& oid) {
    std::array<char, 2048> text{};
    sprint__objid(text.data(), oid.data(), static_cast<int>(oid.size()));
    const std::string_view whole(text.data());
    return std::string(whole.substr(whole.rfind('.') + 1));
}

std::string dotted(const Oid& oid) {
    std::string text;
    for (const std::uint32_t sub_id : oid) {
        text.append(text.empty() ? "" : ".").append(std::to_string(sub_id));
    }
    return text;
}

/* The text of the file. A parent is called by its name where that means it at that line. */
class MibText {
  public:
    explicit MibText(const std::vector<std::string>& modules) {
        text_.append("version 1\n#\n# Written by wqevents mib compile from\n");
        for (const std::string& module : modules) {
            text_.append("#   ").append(shown(module)).append("\n");
        }
        text_.append("#\n");
    }

    void add(const Oid& oid, const std::string& name) {
        names_[oid] = name;
        if (name == builtin_name(oid)) {
            return;
        }
        text_.append(name).append(" ").append(place(oid)).append("\n");
        meanings_[name] = oid;
    }

    const std::string& text() const { return text_; }

  private:
    std::string place(const Oid& oid) const {
        const Oid parent(oid.begin(), oid.end() - 1);
        const auto known = names_.find(parent);
        const std::string name = known != names_.end() ? known->second : "";
        return !name.empty() && means(name, parent) ? name + " " + std::to_string(oid.back())
                                                    : dotted(oid);
    }

    bool means(const std::string& name, const Oid& oid) const {
        const auto meaning = meanings_.find(name);
        return meaning != meanings_.end() ? meaning->second == oid : name == builtin_name(oid);
    }

    std::string text_;
    Names names_;                          // of the modules, up to this line
    std::map<std::string, Oid> meanings_;  // of the names, as far as lines gave them one
};

Names read_modules(const MibOptions& options) {
#if defined(__SANITIZE_ADDRESS__)
    // libsmi keeps what it has allocated for as long as the process lives.
    const __lsan::ScopedDisabler not_our_leaks;
#endif
    smiInit("wqevents");  // its section of libsmi's configuration, behind what all programs share
    smiSetErrorHandler(complain);
    smiSetErrorLevel(worst_harmless_severity - 1);
    smiSetFlags(smiGetFlags() | SMI_FLAG_ERRORS);
    set_search_path(options.folders);
    Names names;
    for (const std::string& module : options.modules) {
        add_module(module, names);
    }
    add_ancestors(names);
    return names;
}

void write_file(const std::string& name, const std::string& text) {
    std::FILE* file = std::fopen(name.c_str(), "we");
    if (file == nullptr) {
        throw system_failure("cannot write " + name, errno);
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    int error = errno;
    if (std::fclose(file) != 0 && written) {
        throw system_failure("cannot write " + name, errno);
    }
    if (!written) {
        throw system_failure("cannot write " + name, error);
    }
}

void run_compile(const MibOptions& options) {
    const Names names = read_modules(options);
    if (!complaints().empty()) {
        report(complaints());
        throw Failure("nothing is written: the modules have errors");
    }
    MibText file(options.modules);
    for (const auto& [oid, name] : names) {
        file.add(oid, name);
    }
    if (options.output != "-") {
        write_file(options.output, file.text());
        return;
    }
    Output output;
    output.text() = file.text();
    output.flush();
}

}  // namespace

void add_mib(CLI::App& app) {
    CLI::App* mib = app.add_subcommand("mib", "Prepare the names of object identifiers");
    mib->require_subcommand(1);
    mib->footer(mib_footer);
    const auto options = std::make_shared<MibOptions>();
    CLI::App* command =
        mib->add_subcommand("compile", "Write the MIB's intermediate file from MIB modules");
    command->add_option("MODULE", options->modules, "The modules")->required()->type_name("");
    command->add_option("-I,--include", options->folders, "A folder to look for modules in first")
        ->type_name("DIR")
        ->allow_extra_args(false);
    command
        ->add_option("-o,--output", options->output, "The file to write (-: the standard output)")
        ->type_name("FILE")
        ->capture_default_str();
    command->footer(footer_text);
    command->callback([options] { run_compile(*options); });
}

}  // namespace wq::command
