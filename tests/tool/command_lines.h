// The command lines that the documentation shows: in code blocks of Markdown, in a manual page and
// in the examples of --help.
#pragma once

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace wq::test {

struct CommandLine {
    std::string text;   // as a shell takes it
    std::string where;  // "README.md:207"
};

// Lines that follow each other, and may build on each other.
using CommandBlock = std::vector<CommandLine>;

namespace command_lines {

struct CodeLine {
    std::string text;
    std::size_t number = 0;
};
using CodeBlock = std::vector<CodeLine>;

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline bool is_command(const std::string& line) {
    static const std::regex command(
        R"((\w+=\S* )*(wqevents|build/\S+|script/\S+|\.ci/\S+|cmake|cc|git|gencat|tcpdump|xxd|snmp\w+)( .*|$))");
    return std::regex_match(line, command);
}

inline CommandBlock commands_of(const CodeBlock& block, const std::string& name) {
    // Blocks that show output, too, have a prompt before what is typed.
    const bool prompts = std::ranges::any_of(
        block, [](const CodeLine& line) { return line.text.starts_with("$ "); });
    CommandBlock commands;
    bool continued = false;
    for (const CodeLine& line : block) {
        const bool is_typed = !prompts || line.text.starts_with("$ ");
        const std::string text = prompts && is_typed ? line.text.substr(2) : line.text;
        if (continued) {
            commands.back().text += "\n" + line.text;
        } else if (is_typed && is_command(text)) {
            commands.push_back({text, name + ":" + std::to_string(line.number)});
        } else {
            continue;
        }
        continued = line.text.ends_with('\\');
    }
    return commands;
}

inline std::vector<CommandBlock> commands_of(const std::vector<CodeBlock>& blocks,
                                             const std::string& name) {
    std::vector<CommandBlock> all;
    for (const CodeBlock& block : blocks) {
        if (const CommandBlock commands = commands_of(block, name); !commands.empty()) {
            all.push_back(commands);
        }
    }
    return all;
}

}  // namespace command_lines

// In blocks that are indented by four blanks or stand in a fence without a language. What a script
// puts between "<!-- NAME output: begin -->" and its end is output.
inline std::vector<CommandBlock> markdown_commands(const std::string& text,
                                                   const std::string& name) {
    using namespace command_lines;
    std::vector<CodeBlock> blocks(1);
    std::string fence;
    bool output = false;
    std::size_t number = 0;
    for (const std::string& line : lines_of(text)) {
        ++number;
        if (line.find("output: begin -->") != std::string::npos ||
            line.find("output: end -->") != std::string::npos) {
            output = line.find("begin") != std::string::npos;
        } else if (line.starts_with("```")) {
            fence = fence.empty() ? line : "";
            blocks.emplace_back();
        } else if (!output && (fence == "```" || fence == "```sh")) {
            blocks.back().push_back({line, number});
        } else if (!output && fence.empty() && line.starts_with("    ")) {
            blocks.back().push_back({line.substr(4), number});
        } else if (!line.empty()) {
            blocks.emplace_back();
        }
    }
    return commands_of(blocks, name);
}

// In blocks between .nf and .fi.
inline std::vector<CommandBlock> manual_commands(const std::string& text, const std::string& name) {
    using namespace command_lines;
    std::vector<CodeBlock> blocks(1);
    bool literal = false;
    std::size_t number = 0;
    for (std::string line : lines_of(text)) {
        ++number;
        if (line == ".nf" || line == ".fi") {
            literal = line == ".nf";
            blocks.emplace_back();
        } else if (literal) {
            line = std::regex_replace(line, std::regex(R"(\\-)"), "-");
            line = std::regex_replace(line, std::regex(R"(\\\(aq)"), "'");
            line = std::regex_replace(line, std::regex(R"(\\e)"), "\\");
            blocks.back().push_back({line, number});
        }
    }
    return commands_of(blocks, name);
}

// After "Example:" or "Examples:", indented by two blanks.
inline std::vector<CommandBlock> help_commands(const std::string& text, const std::string& name) {
    using namespace command_lines;
    std::vector<CodeBlock> blocks(1);
    bool examples = false;
    std::size_t number = 0;
    for (const std::string& line : lines_of(text)) {
        ++number;
        examples =
            line == "Example:" || line == "Examples:" || (examples && line.starts_with("  "));
        if (examples && line.starts_with("  ")) {
            blocks.back().push_back({line.substr(2), number});
        }
    }
    return commands_of(blocks, name);
}

// The names in the list of subcommands.
inline std::vector<std::string> subcommands_in(const std::string& help) {
    std::vector<std::string> names;
    bool listed = false;
    for (const std::string& line : command_lines::lines_of(help)) {
        if (line.ends_with("ubcommands:") || line.ends_with("UBCOMMANDS:")) {
            listed = true;
        } else if (listed && line.size() > 2 && line.starts_with("  ") && line[2] != ' ') {
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
        } else if (!line.starts_with("  ")) {
            listed = false;
        }
    }
    return names;
}

}  // namespace wq::test
