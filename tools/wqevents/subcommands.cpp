// Names of subcommands, looked up in what the parser has left.
#include "subcommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>
#include <string_view>
#include <vector>

#include "command.h"

namespace wq::command {
namespace {

// More letters that differ are another word.
constexpr std::size_t furthest = 2;

// How many letters must be put in, taken out or exchanged to make one word of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t exchanged = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({exchanged, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::vector<const CLI::App*> all_subcommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

// The name that is nearest to `word`; empty if none is near.
std::string nearest(const std::vector<const CLI::App*>& apps, const std::string& word) {
    std::string best;
    std::size_t least = furthest + 1;
    for (const CLI::App* app : apps) {
        const std::size_t far = distance(word, app->get_name());
        if (far < std::min(least, word.size())) {
            least = far;
            best = app->get_name();
        }
    }
    return best;
}

}  // namespace

const CLI::App& asked_for(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : asked_for(*chosen.front());
}

std::string full_name(const CLI::App& asked) {
    const CLI::App* parent = asked.get_parent();
    return (parent == nullptr ? "" : full_name(*parent) + " ") + asked.get_name();
}

std::optional<std::string> unknown_word(const CLI::App& asked) {
    const auto known = all_subcommands(asked);
    const auto left = asked.remaining();
    if (known.empty() || left.empty()) {
        return std::nullopt;
    }
    const std::string& word = left.front();
    if (word.starts_with('-')) {
        return "there is no option " + command::quoted(word);
    }
    const std::string meant = nearest(known, word);
    return "there is no subcommand " + command::quoted(word) +
           (meant.empty() ? "" : "; did you mean " + command::quoted(meant) + "?");
}

}  // namespace wq::command
