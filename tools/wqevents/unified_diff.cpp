#include "unified_diff.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace wq::command {
namespace {

constexpr std::size_t context = 3;
/* Where lines common to two stretches, and in each of them only once, split them no further. */
constexpr int max_depth = 64;
constexpr int max_edits = 256;

using Ids = std::vector<std::size_t>;

/* The lines of both texts; equal lines have the same id. */
struct Side {
    std::vector<std::string_view> lines;  // with their newlines
    Ids ids;
    std::vector<bool> changed;  // the line is only on this side
};

struct Range {
    std::size_t begin;
    std::size_t end;

    std::size_t size() const { return end - begin; }
    bool empty() const { return begin == end; }
};

std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        const std::size_t length = newline == std::string_view::npos ? text.size() : newline + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

class Comparison {
  public:
    Comparison(std::string_view before, std::string_view after)
        : a_(make_side(before)), b_(make_side(after)), seen_(ids_.size()) {
        compare({0, a_.ids.size()}, {0, b_.ids.size()}, 0);
    }

    const Side& before() const { return a_; }
    const Side& after() const { return b_; }

  private:
    /* How often a line stands in each of two stretches, and where last. */
    struct Seen {
        std::size_t in_a = 0, in_b = 0;
        std::size_t at_b = 0;
    };
    using Match = std::pair<std::size_t, std::size_t>;

    Side make_side(std::string_view text) {
        Side side;
        side.lines = lines_of(text);
        side.ids.reserve(side.lines.size());
        for (const std::string_view line : side.lines) {
            side.ids.push_back(ids_.try_emplace(line, ids_.size()).first->second);
        }
        side.changed.resize(side.lines.size());
        return side;
    }

    void trim(Range& a, Range& b) const {
        while (!a.empty() && !b.empty() && a_.ids[a.begin] == b_.ids[b.begin]) {
            ++a.begin;
            ++b.begin;
        }
        while (!a.empty() && !b.empty() && a_.ids[a.end - 1] == b_.ids[b.end - 1]) {
            --a.end;
            --b.end;
        }
    }

    static void mark(Side& side, Range range) {
        std::fill_n(side.changed.begin() + static_cast<std::ptrdiff_t>(range.begin), range.size(),
                    true);
    }

    void replace(Range a, Range b) {
        mark(a_, a);
        mark(b_, b);
    }

    void compare(Range a, Range b, int depth) {
        trim(a, b);
        if (a.empty() || b.empty() || depth == max_depth) {
            replace(a, b);
            return;
        }
        const std::vector<Match> anchors = in_order(common_lines(a, b));
        if (anchors.empty()) {
            compare_small(a, b);
            return;
        }
        for (const auto& [at_a, at_b] : anchors) {
            compare({a.begin, at_a}, {b.begin, at_b}, depth + 1);
            a.begin = at_a + 1;
            b.begin = at_b + 1;
        }
        compare(a, b, depth + 1);
    }

    /* The lines that stand once in each stretch, in the order of the first. */
    std::vector<Match> common_lines(Range a, Range b) {
        for (std::size_t i = a.begin; i < a.end; ++i) {
            ++seen_[a_.ids[i]].in_a;
        }
        for (std::size_t i = b.begin; i < b.end; ++i) {
            Seen& seen = seen_[b_.ids[i]];
            ++seen.in_b;
            seen.at_b = i;
        }
        std::vector<Match> matches;
        for (std::size_t i = a.begin; i < a.end; ++i) {
            const Seen& seen = seen_[a_.ids[i]];
            if (seen.in_a == 1 && seen.in_b == 1) {
                matches.emplace_back(i, seen.at_b);
            }
        }
        forget(a_, a);
        forget(b_, b);
        return matches;
    }

    void forget(const Side& side, Range range) {
        for (std::size_t i = range.begin; i < range.end; ++i) {
            seen_[side.ids[i]] = {};
        }
    }

    /* The longest part of the matches that ascends on the second side, too. */
    static std::vector<Match> in_order(const std::vector<Match>& matches) {
        constexpr std::size_t none = static_cast<std::size_t>(-1);
        std::vector<std::size_t> tops;  // of each pile the match on it
        std::vector<std::size_t> below(matches.size(), none);
        for (std::size_t i = 0; i < matches.size(); ++i) {
            const auto pile = std::lower_bound(
                tops.begin(), tops.end(), matches[i].second,
                [&](std::size_t top, std::size_t at) { return matches[top].second < at; });
            if (pile != tops.begin()) {
                below[i] = *(pile - 1);
            }
            if (pile == tops.end()) {
                tops.push_back(i);
            } else {
                *pile = i;
            }
        }
        std::vector<Match> kept;
        for (std::size_t i = tops.empty() ? none : tops.back(); i != none; i = below[i]) {
            kept.push_back(matches[i]);
        }
        std::reverse(kept.begin(), kept.end());
        return kept;
    }

    /*
     * E. W. Myers, "An O(ND) Difference Algorithm and Its Variations": after d edits reach[d] holds
     * how far into `a` each diagonal k = x - y comes, at index (k + d) / 2. Given up where too many
     * edits are needed.
     */
    void compare_small(Range a, Range b) {
        std::vector<std::vector<std::ptrdiff_t>> reach;
        for (int edits = 0; edits <= max_edits; ++edits) {
            if (advance(a, b, edits, reach)) {
                trace_back(a, b, reach);
                return;
            }
        }
        replace(a, b);
    }

    using Reach = std::vector<std::vector<std::ptrdiff_t>>;

    /* Whether diagonal k is reached from k + 1, by inserting a line, and not by deleting one. */
    static bool comes_down(const std::vector<std::ptrdiff_t>& last, int edits, int k) {
        const auto at = static_cast<std::size_t>((k + edits) / 2);
        return k == -edits || (k != edits && last[at - 1] < last[at]);
    }

    static std::ptrdiff_t start_of(const Reach& reach, int edits, int k) {
        if (edits == 0) {
            return 0;
        }
        const auto& last = reach[static_cast<std::size_t>(edits - 1)];
        const auto at = static_cast<std::size_t>((k + edits) / 2);
        return comes_down(last, edits, k) ? last[at] : last[at - 1] + 1;
    }

    bool advance(Range a, Range b, int edits, Reach& reach) const {
        const auto rows = static_cast<std::ptrdiff_t>(a.size());
        const auto columns = static_cast<std::ptrdiff_t>(b.size());
        std::vector<std::ptrdiff_t> now;
        bool arrived = false;
        for (int k = -edits; k <= edits; k += 2) {
            std::ptrdiff_t x = start_of(reach, edits, k);
            while (x < rows && x - k < columns && equal_at(a, b, x, x - k)) {
                ++x;
            }
            now.push_back(x);
            arrived = arrived || (x >= rows && x - k >= columns && k == rows - columns);
        }
        reach.push_back(std::move(now));
        return arrived;
    }

    bool equal_at(Range a, Range b, std::ptrdiff_t x, std::ptrdiff_t y) const {
        return a_.ids[a.begin + static_cast<std::size_t>(x)] ==
               b_.ids[b.begin + static_cast<std::size_t>(y)];
    }

    void trace_back(Range a, Range b, const Reach& reach) {
        auto k = static_cast<int>(static_cast<std::ptrdiff_t>(a.size()) -
                                  static_cast<std::ptrdiff_t>(b.size()));
        for (int edits = static_cast<int>(reach.size()) - 1; edits > 0; --edits) {
            const std::ptrdiff_t x = start_of(reach, edits, k);
            const bool down = comes_down(reach[static_cast<std::size_t>(edits - 1)], edits, k);
            if (down) {
                b_.changed[b.begin + static_cast<std::size_t>(x - k - 1)] = true;
                ++k;
            } else {
                a_.changed[a.begin + static_cast<std::size_t>(x - 1)] = true;
                --k;
            }
        }
    }

    std::unordered_map<std::string_view, std::size_t> ids_;
    Side a_;
    Side b_;
    std::vector<Seen> seen_;
};

/* --- as text --- */

/* A change: the lines `a` of the first text become the lines `b` of the second. */
struct Change {
    Range a;
    Range b;
};

std::optional<Change> next_change(const Side& a, const Side& b, std::size_t& i, std::size_t& j) {
    while (i < a.changed.size() && j < b.changed.size() && !a.changed[i] && !b.changed[j]) {
        ++i;
        ++j;
    }
    Change change{{i, i}, {j, j}};
    while (i < a.changed.size() && a.changed[i]) {
        change.a.end = ++i;
    }
    while (j < b.changed.size() && b.changed[j]) {
        change.b.end = ++j;
    }
    if (change.a.empty() && change.b.empty()) {
        return std::nullopt;
    }
    return change;
}

/* The changes, those together that share their context. */
std::vector<std::vector<Change>> hunks_of(const Side& a, const Side& b) {
    std::vector<std::vector<Change>> hunks;
    std::size_t i = 0;
    std::size_t j = 0;
    while (const std::optional<Change> change = next_change(a, b, i, j)) {
        if (hunks.empty() || change->a.begin - hunks.back().back().a.end > 2 * context) {
            hunks.emplace_back();
        }
        hunks.back().push_back(*change);
    }
    return hunks;
}

void append_line(std::string& out, char mark, std::string_view line) {
    out.append(1, mark).append(line);
    if (!line.ends_with('\n')) {
        out.append("\n\\ No newline at end of file\n");
    }
}

void append_lines(std::string& out, char mark, const Side& side, Range range) {
    for (std::size_t i = range.begin; i < range.end; ++i) {
        append_line(out, mark, side.lines[i]);
    }
}

/* "12,3": an empty range is named by the line before it, one line by its number alone. */
void append_range(std::string& out, char mark, Range range) {
    const std::size_t first = range.empty() ? range.begin : range.begin + 1;
    out.append(1, mark).append(std::to_string(first));
    if (range.size() != 1) {
        out.append(",").append(std::to_string(range.size()));
    }
}

void append_hunk(std::string& out, const Side& a, const Side& b, const std::vector<Change>& hunk) {
    const std::size_t lead = std::min(context, hunk.front().a.begin);
    const std::size_t tail = std::min(context, a.lines.size() - hunk.back().a.end);
    const Range in_a{hunk.front().a.begin - lead, hunk.back().a.end + tail};
    const Range in_b{hunk.front().b.begin - lead, hunk.back().b.end + tail};
    out.append("@@ ");
    append_range(out, '-', in_a);
    append_range(out.append(" "), '+', in_b);
    out.append(" @@\n");
    std::size_t at = in_a.begin;
    for (const Change& change : hunk) {
        append_lines(out, ' ', a, {at, change.a.begin});
        append_lines(out, '-', a, change.a);
        append_lines(out, '+', b, change.b);
        at = change.a.end;
    }
    append_lines(out, ' ', a, {at, in_a.end});
}

}  // namespace

std::string unified_diff(const NamedText& before, const NamedText& after) {
    std::string out;
    if (before.text == after.text) {
        return out;
    }
    const Comparison comparison(before.text, after.text);
    out.append("--- ").append(before.name).append("\n+++ ").append(after.name).append("\n");
    for (const auto& hunk : hunks_of(comparison.before(), comparison.after())) {
        append_hunk(out, comparison.before(), comparison.after(), hunk);
    }
    return out;
}

}  // namespace wq::command
