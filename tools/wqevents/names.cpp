/*
 * wqevents names: what a file of names makes of identifiers, and what it makes of them by name.
 */
#include <wqevents.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "input_file.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "FILE is an oid_to_label file. The actions are\n"
    "  check           count the names; malformed lines are passed over, as by the library\n"
    "  lookup OID...   print the name of exactly each identifier\n"
    "  find NAME...    print the identifier of the first node of each name\n"
    "The status is 1 where the file cannot be read, or something is not in it.\n"
    "\n"
    "Examples:\n"
    "  wqevents names /usr/WQ/conf/oid_to_label check\n"
    "  wqevents names examples/oid_to_label lookup 1.3.6.1.4.1.8072\n"
    "  wqevents names examples/oid_to_label find net-snmp";

struct NamesOptions {
    std::string file;
    std::string action;
    std::vector<std::string> arguments;
};

struct TreeFree {
    void operator()(oidnode* root) const { oidFreeTree(root); }
};
using Tree = std::unique_ptr<oidnode, TreeFree>;

using Oid = std::vector<std::uint32_t>;

/* The library does not say why it cannot read a file. */
Tree read_names(const std::string& file) {
    refuse_special_file(file);
    errno = 0;
    Tree tree(TreeParseOidFile(nullptr, file.c_str()));
    if (tree == nullptr) {
        throw system_failure("cannot read " + file, errno);
    }
    return tree;
}

/* Names without an end of their own are not among those of a file, whose lines end sooner. */
std::size_t count_names(const oidnode* root) {
    std::size_t names = 0;
    std::vector<const oidnode*> left{root->child};
    while (!left.empty()) {
        const oidnode* node = left.back();
        left.pop_back();
        if (node != nullptr) {
            names += node->data != nullptr ? 1 : 0;
            left.push_back(node->sib);
            left.push_back(node->child);
        }
    }
    return names;
}

/* Any dotted numbers: a name may stand for what no trap could carry. */
Oid parse_path(const std::string& text) {
    Oid oid;
    const char* at = text.data();
    const char* end = text.data() + text.size();
    at += text.starts_with('.') ? 1 : 0;
    for (;;) {
        std::uint32_t number = 0;
        const auto [stop, error] = std::from_chars(at, end, number);
        if (error != std::errc{} || (stop != end && *stop != '.')) {
            throw UsageError("identifier " + command::quoted(text) +
                             " must be dotted numbers from 0 to 4294967295, as 1.3.6.1.4.1");
        }
        oid.push_back(number);
        if (stop == end) {
            return oid;
        }
        at = stop + 1;
    }
}

const char* lookup(oidnode* root, const std::string& text) {
    const Oid oid = parse_path(text);
    return TreeLookupOid(root, oid.data(), static_cast<int>(oid.size()));
}

const char* find(oidnode* root, const std::string& name) {
    return findOidInTree(root, name.c_str());
}

using Answer = const char* (*)(oidnode*, const std::string&);

/* A line for each argument, an empty one where there is no answer. */
void answer_all(const NamesOptions& options, Answer answer) {
    if (options.arguments.empty()) {
        throw UsageError(options.action + " needs at least one argument");
    }
    const Tree tree = read_names(options.file);
    Output output;
    std::string missing;
    for (const std::string& argument : options.arguments) {
        const char* found = answer(tree.get(), argument);
        output.text().append(shown(found == nullptr ? "" : found)).append("\n");
        output.written();
        missing += found == nullptr ? " " + command::quoted(argument) : "";
    }
    output.flush();
    if (!missing.empty()) {
        throw Failure("not in " + shown(options.file) + ":" + missing);
    }
}

void check(const NamesOptions& options) {
    if (!options.arguments.empty()) {
        throw UsageError("check takes no further argument");
    }
    const std::size_t names = count_names(read_names(options.file).get());
    Output output;
    output.text() = "ok: " + std::to_string(names) + (names == 1 ? " name\n" : " names\n");
    output.flush();
}

void run_names(const NamesOptions& options) {
    if (options.action == "check") {
        check(options);
    } else {
        answer_all(options, options.action == "lookup" ? lookup : find);
    }
}

}  // namespace

void add_names(CLI::App& app) {
    const auto options = std::make_shared<NamesOptions>();
    CLI::App* command = app.add_subcommand("names", "Ask a file of names for object identifiers");
    command->add_option("FILE", options->file, "The file")->required()->type_name("");
    command->add_option("ACTION", options->action, "check, lookup or find")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({"check", "lookup", "find"}).description(""));
    command->add_option("ARGUMENT", options->arguments, "Identifiers or names")->type_name("");
    command->footer(footer_text);
    command->callback([options] { run_names(*options); });
}

}  // namespace wq::command
