#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "platform/libmib.h"
#include "support/temp_dir.h"

namespace {

using wq::test::TempDir;
using Oid = std::vector<uint32_t>;

/* What a file of this content defines, and what is wrong with it. */
struct Loaded {
    explicit Loaded(const std::string& content) {
        const TempDir dir;
        fault = wq::read_mib_file(dir.write("mib.txt", content).c_str(), definitions);
    }

    std::string name_of(const Oid& oid) const {
        std::array<char, 2048> text;
        definitions.tree.render(oid, text);
        return text.data();
    }

    wq::MibDefinitions definitions = wq::builtin_definitions();
    std::optional<wq::MibFileFault> fault;
};

const std::string enterprises = ".iso.org.dod.internet.private.enterprises";

TEST(MibFile, DefinitionsGiveNames) {
    const struct {
        const char* what;
        std::string lines;
        Oid oid;
        std::string name;
    } rows[] = {
        {"parent and number", "a enterprises 7\n", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
        {"dotted numbers", "a .1.3.6.1.4.1.7\n", {1, 3, 6, 1, 4, 1, 7, 0}, enterprises + ".a.0"},
        {"no leading dot", "a 1.3.6.1.4.1.7\n", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
        {"below a name without a place in the tree",
         "a 1.3.6.1.4.1.7.1.2\n",
         {1, 3, 6, 1, 4, 1, 7, 1, 2, 3},
         enterprises + ".7.1.a.3"},
        {"a parent of the file",
         "a enterprises 7\nb a 4294967295\n",
         {1, 3, 6, 1, 4, 1, 7, 4294967295U},
         enterprises + ".a.b"},
        {"several of one parent, and back to it",
         "a enterprises 7\nb enterprises 8\nc a 1\nd enterprises 9\ne a 2\n",
         {1, 3, 6, 1, 4, 1, 7, 2},
         enterprises + ".a.e"},
        {"the last line about an identifier counts",
         "a enterprises 7\nb enterprises 7\n",
         {1, 3, 6, 1, 4, 1, 7},
         enterprises + ".b"},
        {"an earlier name of it still means it",
         "a enterprises 7\nb enterprises 7\nc a 1\n",
         {1, 3, 6, 1, 4, 1, 7, 1},
         enterprises + ".b.c"},
        {"a name given twice means the last",
         "a enterprises 7\nc a 1\na enterprises 8\nb a 2\n",
         {1, 3, 6, 1, 4, 1, 8, 2},
         enterprises + ".a.b"},
        {"also between lines of one parent",
         "a enterprises 7\nc a 1\na 1.3.6.1.4.1.8\nb a 2\n",
         {1, 3, 6, 1, 4, 1, 8, 2},
         enterprises + ".a.b"},
        {"and where it was given first it stays",
         "a enterprises 7\nc a 1\na enterprises 8\nb a 2\n",
         {1, 3, 6, 1, 4, 1, 7, 1},
         enterprises + ".a.c"},
        {"a built-in name gives way",
         "net internet 4\n",
         {1, 3, 6, 1, 4, 1},
         ".iso.org.dod.internet.net.enterprises"},
        {"outside of iso", "joint 2\nds joint 5\n", {2, 5, 4}, ".joint.ds.4"},
        {"all characters of names",
         "aZ-_09 enterprises 7\n",
         {1, 3, 6, 1, 4, 1, 7},
         enterprises + ".aZ-_09"},
        {"a name like the version line's",
         "version enterprises 1\n",
         {1, 3, 6, 1, 4, 1, 1},
         enterprises + ".version"},
        {"blanks", " \t a\t\tenterprises  7 \t\n", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
        {"carriage returns", "\r\na enterprises 7\r\n", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
        {"a comment behind it", "a enterprises 7# x\n", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
        {"comments around it",
         "#\n  # a b c d e\n#\xff\n\na enterprises 7 # a\n",
         {1, 3, 6, 1, 4, 1, 7},
         enterprises + ".a"},
        {"no newline at the end", "a enterprises 7", {1, 3, 6, 1, 4, 1, 7}, enterprises + ".a"},
    };
    for (const auto& row : rows) {
        const Loaded file("version 1\n" + row.lines);
        EXPECT_FALSE(file.fault) << row.what << ": " << file.fault->text;
        EXPECT_EQ(row.name, file.name_of(row.oid)) << row.what;
    }
}

TEST(MibFile, VersionMayFollowCommentsAndBlankLines) {
    for (const char* content : {"version 1", "version 1\n", "# x\n\n \t\nversion 1\n",
                                "\tversion \t1 # the first\n", "version 1\r\n"}) {
        EXPECT_FALSE(Loaded(content).fault) << content;
    }
}

TEST(MibFile, WhatIsMalformedIsNamedWithItsLine) {
    const char* const version = "the first line is not \"version 1\"";
    const char* const name = "what is defined is not a name";
    const char* const fields = "neither \"NAME OID\" nor \"NAME PARENT NUMBER\"";
    const char* const oid = "not an object identifier of at most 128 numbers";
    const char* const number = "not a number of 32 bits";
    const char* const parent = "the parent is not defined above";
    const std::string start = "version 1\n";
    const struct {
        std::string content;
        size_t line;
        const char* text;
    } rows[] = {
        {"", 1, version},
        {"# nothing\n", 2, version},
        {"\n\na enterprises 7\n", 3, version},
        {"version 2\n", 1, version},
        {"version\n", 1, version},
        {"version 1 1\n", 1, version},
        {"Version 1\n", 1, version},
        {"version 01\n", 1, version},
        {std::string("\0version 1\n", 11), 1, version},
        {start + "a enterprises\n", 2, oid},
        {start + "a\n", 2, fields},
        {start + "a enterprises 7 8\n", 2, fields},
        {start + "a enterprises 7 8 9 10 11\n", 2, fields},
        {start + "a 1.3.6 7\n", 2, parent},
        {start + "\n# x\n7 enterprises 7\n", 4, name},
        {start + "-a enterprises 7\n", 2, name},
        {start + "_a enterprises 7\n", 2, name},
        {start + "a.b enterprises 7\n", 2, name},
        {start + "a,b enterprises 7\n", 2, name},
        {start + "\xc3\xa4 enterprises 7\n", 2, name},
        {start + std::string("a\0b enterprises 7\n", 18), 2, name},
        {start + std::string(256, 'a') + " enterprises 7\n", 2, name},
        {start + "a nowhere 7\n", 2, parent},
        {start + "a Enterprises 7\n", 2, parent},
        {start + "a b 7\nb enterprises 7\n", 2, parent},
        {start + "a a 7\n", 2, parent},
        {start + "a enterprises x\n", 2, number},
        {start + "a enterprises 7x\n", 2, number},
        {start + "a enterprises -7\n", 2, number},
        {start + "a enterprises +7\n", 2, number},
        {start + "a enterprises 7.8\n", 2, number},
        {start + "a enterprises 4294967296\n", 2, number},
        {start + "a 1.\n", 2, oid},
        {start + "a .\n", 2, oid},
        {start + "a 1..3\n", 2, oid},
        {start + "a 1.x\n", 2, oid},
        {start + "a 1.4294967296\n", 2, oid},
        {start + "a enterprises 7\nb enterprises 8\nc", 4, fields},
    };
    for (const auto& row : rows) {
        const Loaded file(row.content);
        ASSERT_TRUE(file.fault) << row.content;
        EXPECT_EQ(0, file.fault->error) << row.content;
        EXPECT_EQ(row.line, file.fault->line) << row.content;
        EXPECT_STREQ(row.text, file.fault->text) << row.content;
    }
}

TEST(MibFile, LongestNamesAreWhole) {
    const std::string name(255, 'n');
    const Loaded file("version 1\n" + name + " enterprises 7\nx " + name + " 1\n");
    EXPECT_FALSE(file.fault);
    EXPECT_EQ(enterprises + "." + name + ".x", file.name_of({1, 3, 6, 1, 4, 1, 7, 1}));
}

TEST(MibFile, IdentifiersHaveAtMost128Numbers) {
    std::string oid = "1";
    Oid numbers = {1};
    for (int i = 1; i < 128; ++i) {
        oid += ".9";
        numbers.push_back(9);
    }
    const std::string deepest = "version 1\na " + oid + "\n";
    const Loaded file(deepest);
    EXPECT_FALSE(file.fault);
    EXPECT_TRUE(file.name_of(numbers).ends_with(".9.a"));
    const Loaded below(deepest + "b a 1\n");
    ASSERT_TRUE(below.fault);
    EXPECT_STREQ("deeper than 128 numbers", below.fault->text);
    const Loaded longer("version 1\na " + oid + ".9\n");
    ASSERT_TRUE(longer.fault);
    EXPECT_STREQ("not an object identifier of at most 128 numbers", longer.fault->text);
}

TEST(MibFile, LinesHaveAtMost8191Bytes) {
    const std::string start = "version 1\n";
    const std::string longest = std::string("#").append(8190, 'x');
    const char* const ends[] = {"", "\n", "\na enterprises 7\n"};
    for (const char* end : ends) {
        EXPECT_FALSE(Loaded(start + longest + end).fault);
        EXPECT_FALSE(Loaded(longest + "\n" + start + longest + end).fault);
        const Loaded file(start + longest + "x" + end);
        ASSERT_TRUE(file.fault);
        EXPECT_EQ(2U, file.fault->line);
        EXPECT_STREQ("a line is longer than 8191 bytes", file.fault->text);
    }
    const Loaded huge(start + std::string(10 << 20, 'a'));
    ASSERT_TRUE(huge.fault);
    EXPECT_EQ(2U, huge.fault->line);
}

/* Lines lie across the ends of the blocks that are read, wherever these fall. */
TEST(MibFile, LinesAcrossBlocksAreWhole) {
    std::string content = "version 1\n";
    for (uint32_t i = 0; i < 20000; ++i) {
        const std::string number = std::to_string(i);
        content.append("n").append(number).append(" enterprises ").append(number).append("\n");
        if (i % 97 == 0) {
            content.append(i % 5000 + 1, '#').append("\n");
        }
    }
    const Loaded file(content);
    ASSERT_FALSE(file.fault) << file.fault->line;
    for (uint32_t i = 0; i < 20000; ++i) {
        ASSERT_EQ(enterprises + ".n" + std::to_string(i), file.name_of({1, 3, 6, 1, 4, 1, i}));
    }
}

TEST(MibFile, FifoWithoutWriterIsNotWaitedFor) {
    const TempDir dir;
    wq::MibDefinitions definitions;
    const std::string fifo = dir.path("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& path : {fifo, std::string("/dev/null")}) {
        const auto fault = wq::read_mib_file(path.c_str(), definitions);
        ASSERT_TRUE(fault) << path;
        EXPECT_STREQ("the first line is not \"version 1\"", fault->text) << path;
    }
}

TEST(MibFile, EndlessDevicesAreGivenUp) {
    wq::MibDefinitions definitions;
    const auto fault = wq::read_mib_file("/dev/zero", definitions);
    ASSERT_TRUE(fault);
    EXPECT_EQ(1U, fault->line);
    EXPECT_STREQ("a line is longer than 8191 bytes", fault->text);
}

TEST(MibFile, WhatCannotBeOpenedTellsWhy) {
    const TempDir dir;
    wq::MibDefinitions definitions;
    const auto missing = wq::read_mib_file(dir.path("none").c_str(), definitions);
    ASSERT_TRUE(missing);
    EXPECT_EQ(ENOENT, missing->error);
    const auto folder = wq::read_mib_file(dir.path().c_str(), definitions);
    ASSERT_TRUE(folder);
    EXPECT_EQ(EISDIR, folder->error);
    const std::string secret = dir.write("secret", "version 1\n");
    chmod(secret.c_str(), 0);
    const auto refused = wq::read_mib_file(secret.c_str(), definitions);
    if (geteuid() != 0) {
        ASSERT_TRUE(refused);
        EXPECT_EQ(EACCES, refused->error);
    } else {
        EXPECT_FALSE(refused);
    }
}

/*
 * Siblings without number and lines without number: what a walk over either costs would be seen
 * at once, so the limit may be far beyond what a slow machine needs.
 */
TEST(MibFile, ManyLinesTakeLittleTime) {
    std::string content = "version 1\nacme enterprises 99999\n";
    for (uint32_t i = 0; i < 300000; ++i) {
        const std::string number = std::to_string(i);
        content.append("row").append(number).append(" acme ").append(number).append("\n");
    }
    const auto start = std::chrono::steady_clock::now();
    const Loaded file(content);
    EXPECT_FALSE(file.fault);
    for (uint32_t i = 0; i < 300000; i += 7) {
        ASSERT_EQ(enterprises + ".acme.row" + std::to_string(i) + ".0",
                  file.name_of({1, 3, 6, 1, 4, 1, 99999, i, 0}));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
