#include "unified_diff.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace wq::command {
namespace {

std::string numbered(int first, int last) {
    std::string text;
    for (int i = first; i <= last; ++i) {
        text.append(std::to_string(i)).append("\n");
    }
    return text;
}

std::string diff(const std::string& before, const std::string& after) {
    return unified_diff({"old", before}, {"new", after});
}

/* What patch(1) makes of `before`. */
std::string patched(const std::string& before, const std::string& difference) {
    const test::TempDir dir;
    const std::string file = dir.write("file", before);
    const std::string patch = dir.write("patch", difference);
    test::Subprocess process({"patch", "--force", "--fuzz=0", "--quiet", "--input=" + patch, file});
    const int status = process.wait();
    EXPECT_EQ(status, 0) << process.out() << process.err();
    EXPECT_EQ(process.out(), "");
    return dir.read("file");
}

std::size_t changed_lines(const std::string& difference) {
    std::size_t count = 0;
    for (std::size_t at = difference.find("\n@@"); at != std::string::npos;
         at = difference.find('\n', at + 1)) {
        const char mark = at + 1 < difference.size() ? difference[at + 1] : ' ';
        count += mark == '+' || mark == '-' ? 1 : 0;
    }
    return count;
}

struct Row {
    const char* what;
    std::string before;
    std::string after;
    std::string hunks;  // what follows the two names
};

const std::vector<Row>& rows() {
    static const std::vector<Row> all = {
        {"one line of one", "a\n", "b\n", "@@ -1 +1 @@\n-a\n+b\n"},
        {"a text that was empty", "", "a\nb\n", "@@ -0,0 +1,2 @@\n+a\n+b\n"},
        {"a text that gets empty", "a\nb\n", "", "@@ -1,2 +0,0 @@\n-a\n-b\n"},
        {"three lines around a change", numbered(1, 9), numbered(1, 4) + "x\n" + numbered(6, 9),
         "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+x\n 6\n 7\n 8\n"},
        {"an insertion", numbered(1, 8), numbered(1, 4) + "x\ny\n" + numbered(5, 8),
         "@@ -2,6 +2,8 @@\n 2\n 3\n 4\n+x\n+y\n 5\n 6\n 7\n"},
        {"a deletion", numbered(1, 8), numbered(1, 4) + numbered(6, 8),
         "@@ -2,7 +2,6 @@\n 2\n 3\n 4\n-5\n 6\n 7\n 8\n"},
        {"the first line", numbered(1, 5), numbered(2, 5), "@@ -1,4 +1,3 @@\n-1\n 2\n 3\n 4\n"},
        {"the last line", numbered(1, 5), numbered(1, 4), "@@ -2,4 +2,3 @@\n 2\n 3\n 4\n-5\n"},
        {"two changes with six lines between share a hunk", "a\n" + numbered(1, 6) + "b\n",
         "c\n" + numbered(1, 6) + "d\n",
         "@@ -1,8 +1,8 @@\n-a\n+c\n 1\n 2\n 3\n 4\n 5\n 6\n-b\n+d\n"},
        {"two with seven lines do not", "a\n" + numbered(1, 7) + "b\n",
         "c\n" + numbered(1, 7) + "d\n",
         "@@ -1,4 +1,4 @@\n-a\n+c\n 1\n 2\n 3\n@@ -6,4 +6,4 @@\n 5\n 6\n 7\n-b\n+d\n"},
        {"a last line that gets its newline", "a\nb", "a\nb\n",
         "@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n"},
        {"one that loses it", "a\nb\n", "a\nb",
         "@@ -1,2 +1,2 @@\n a\n-b\n+b\n\\ No newline at end of file\n"},
        {"one that never had it", "a\nb", "c\nb",
         "@@ -1,2 +1,2 @@\n-a\n+c\n b\n\\ No newline at end of file\n"},
        {"a block of lines that occur often", "x\nS\nE\ny\nS\nE\nz\nS\nE\n", "x\nS\nE\nz\nS\nE\n",
         "@@ -1,9 +1,6 @@\n x\n S\n E\n-y\n-S\n-E\n z\n S\n E\n"},
        {"repeated lines alone", "a\na\nb\na\n", "a\nb\nb\na\n",
         "@@ -1,4 +1,4 @@\n a\n-a\n+b\n b\n a\n"},
    };
    return all;
}

TEST(UnifiedDiff, IsEmptyForEqualTexts) {
    EXPECT_EQ(diff("", ""), "");
    EXPECT_EQ(diff("a\nb", "a\nb"), "");
}

TEST(UnifiedDiff, NamesTheLinesThatDiffer) {
    for (const Row& row : rows()) {
        EXPECT_EQ(diff(row.before, row.after), std::string("--- old\n+++ new\n").append(row.hunks))
            << row.what;
    }
}

TEST(UnifiedDiff, IsWhatPatchTakes) {
    for (const Row& row : rows()) {
        EXPECT_EQ(patched(row.before, diff(row.before, row.after)), row.after) << row.what;
        EXPECT_EQ(patched(row.after, diff(row.after, row.before)), row.before) << row.what;
    }
}

/* Few different lines and many different ones, so that each way of comparing has its turn. */
TEST(UnifiedDiff, OfAnyTextsIsWhatPatchTakes) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 random(seed);
        const unsigned long letters = 2 + random() % 40;
        const auto make = [&](std::size_t most) {
            std::string text;
            for (std::size_t lines = random() % most; lines > 0; --lines) {
                text.append(1, static_cast<char>('!' + random() % letters)).append("\n");
            }
            return text;
        };
        const std::string before = make(200);
        const std::string after = seed % 3 == 0 ? before + make(5) + before : make(200);
        if (before != after) {
            EXPECT_EQ(patched(before, diff(before, after)), after) << "seed " << seed;
        }
    }
}

TEST(UnifiedDiff, IsSmallWhereLittleDiffers) {
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        std::vector<std::string> lines;
        for (int i = 0; i < 300; ++i) {
            lines.push_back(i % 3 == 0 ? "n" + std::to_string(i) + "\n" : "SDESC\n");
        }
        std::string before;
        std::string after;
        const std::size_t gone = random() % lines.size();
        const std::size_t added = random() % lines.size();
        for (std::size_t i = 0; i < lines.size(); ++i) {
            before += lines[i];
            after += i == gone ? "" : lines[i];
            after += i == added ? "new\n" : "";
        }
        EXPECT_LE(changed_lines(diff(before, after)), 2U) << gone << " " << added;
    }
}

/* Without a line of its own on either side, and with more edits than are looked for. */
TEST(UnifiedDiff, OfRepeatedLinesThatDifferMuch) {
    std::string before;
    std::string after;
    for (int i = 0; i < 1200; ++i) {
        before += i % 2 == 0 ? "a\n" : "b\n";
        after += i % 3 == 0 ? "c\n" : "a\n";
    }
    EXPECT_EQ(patched(before, diff(before, after)), after);
}

TEST(UnifiedDiff, OfLargeTextsTakesNoTime) {
    std::string before;
    for (int i = 0; i < 400000; ++i) {
        before.append("trap").append(std::to_string(i)).append(" of a large file\n");
        before.append("SDESC\nEDESC\n");
    }
    const std::string line = "trap200000 of a large file\n";
    std::string after = before;
    after.replace(after.find(line), line.size(), "other\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(changed_lines(diff(before, after)), 2U);
    std::string reversed;
    for (int i = 400000; i-- > 0;) {
        reversed.append("trap")
            .append(std::to_string(i))
            .append(" of a large file\nSDESC\nEDESC\n");
    }
    EXPECT_GT(changed_lines(diff(before, reversed)), 0U) << "all in another order";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(40));
}

}  // namespace
}  // namespace wq::command
