#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/names.h>

#include <string>
#include <thread>
#include <vector>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/line_reader.h"
#include "EMS/events/internal/oid_lines.h"
#include "support/capture.h"
#include "support/locales.h"
#include "support/oid_names.h"
#include "support/temp_dir.h"
#include "support/vectors.h"

namespace wq::test {
namespace {

struct Expected {
    const char* oid;
    Name name = {};
};

std::string repeated(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        all.append(text);
    }
    return all;
}

class NameFile : public testing::Test {
  protected:
    oidnode* parse(oidnode* tree, const std::string& content) const {
        return TreeParseOidFile(tree, folder_.write("oid_to_label", content).c_str());
    }
    void expect(const std::string& content, const std::vector<Expected>& names) const {
        SCOPED_TRACE(content.substr(0, 200));
        const Tree tree(parse(nullptr, content));
        ASSERT_NE(tree.root, nullptr);
        for (const Expected& row : names) {
            EXPECT_EQ(tree.name(row.oid), row.name) << row.oid;
        }
    }
    /* Nothing is named by the line, nor does it end the file. */
    void expect_skipped(const std::string& line) const {
        SCOPED_TRACE(line);
        const Tree tree(parse(nullptr, std::string(line).append("\n9.9=\"after\"\n")));
        EXPECT_EQ(tree.name("9.9"), "after");
        ASSERT_NE(tree.root->child, nullptr);
        EXPECT_EQ(tree.root->child->val, 9U);
        EXPECT_EQ(tree.root->child->sib, nullptr);
        EXPECT_EQ(captured_stdout(dumpLocalList), "");
    }

    const TempDir folder_;
};

TEST_F(NameFile, NamesIdentifiers) {
    expect("1.3.6=\"dod\"\n", {{"1.3.6", "dod"}, {"1.3"}, {"1"}, {"1.3.6.1"}});
    expect("1.3.6=\"dod\"", {{"1.3.6", "dod"}});
    expect("1=\"iso\"\n1.3=\"org\"\n", {{"1", "iso"}, {"1.3", "org"}});
    expect("1.3=\"first\"\n1.3=\"later\"\n", {{"1.3", "later"}});
    expect("0x2b.6=\"hexadecimal\"\n", {{"43.6", "hexadecimal"}, {"2.6"}});
    expect("1.3 =\"blank\"\n", {{"1.3", "blank"}});
    expect("1.3=\"a name, = (1..2) ${x} $$ and more\" what follows\n",
           {{"1.3", "a name, = (1..2) ${x} $$ and more"}});
    expect("1.3=\"\"\n", {{"1.3", ""}});
    expect(std::string("1.3=\"").append(63, 'a').append("\"\n"), {{"1.3", std::string(63, 'a')}});
    expect("1.3=\"carriage\"\r\n1.4=\"return\"\r\n", {{"1.3", "carriage"}, {"1.4", "return"}});
}

TEST_F(NameFile, BlanksAndCommentsAreNothing) {
    expect("\n\n  \t\r\n# a comment\n   # another\n \t 1.3=\"org\"\n", {{"1.3", "org"}});
    expect("1.3=\"org\"# comment\n1.4=\"member\" # \"quoted\" = (1..2)\n#1.5=\"no\"\n",
           {{"1.3", "org"}, {"1.4", "member"}, {"1.5"}});
    const Tree tree(parse(nullptr, "# nothing\n"));
    ASSERT_NE(tree.root, nullptr);
    EXPECT_EQ(tree.root->child, nullptr);
    const Tree empty(parse(nullptr, ""));
    EXPECT_NE(empty.root, nullptr);
}

TEST_F(NameFile, ABackslashContinuesTheLine) {
    expect("1.3.\\\n6=\"dod\"\n", {{"1.3.6", "dod"}});
    expect("1.\\\n3\\\n.6=\\\n\"dod\"\n1.4=\"next\"\n", {{"1.3.6", "dod"}, {"1.4", "next"}});
    expect("1.3=\"a\\\n  b\"\n", {{"1.3", "a  b"}});
    expect("1.3=\"a\\\n#b\"\n", {{"1.3", "a#b"}});
    expect("1.3=\"a\\ # comment\nb\"\n", {{"1.3", "ab"}});
    expect("1.3=\"a\\b\"\n", {{"1.3", "a\\b"}});
    expect("1.3=\"a\\\\\n\nb\"\n", {{"1.3", "ab"}});
    expect("\\\n1.3=\"org\"\n", {{"1.3", "org"}});
    expect("1.3=\"org\"\\\n", {{"1.3", "org"}});
    expect("1.3=\"org\"\\", {{"1.3", "org"}});
    expect("1.3=\"org\\\"", {{"1.3", "org\\"}});
    expect("1.3=\"org\"\\\r\n1.4=\"member\"\n", {{"1.3", "org"}, {"1.4", "member"}});
    expect("\\\n", {});
}

/* What does not fit into 1024 bytes with the terminator is another line. */
TEST_F(NameFile, ALineHolds1023Bytes) {
    const std::string name("1.3=\"org\"");
    const auto padded = [&](size_t size) {
        return std::string(size - name.size(), ' ').append(name).append("\n");
    };
    expect(padded(1022) + "1.4=\"x\"\n", {{"1.3", "org"}, {"1.4", "x"}});
    expect(padded(1023) + "1.4=\"x\"\n", {{"1.3", "org"}, {"1.4", "x"}});
    expect(padded(1024) + "1.4=\"x\"\n", {{"1.3"}, {"1.4", "x"}});
    const std::string comment = std::string("#").append(1022, 'c');
    expect(comment + "1.3=\"org\"\n", {{"1.3", "org"}});
    expect(std::string(1000, ' ').append("1.\\\n3=\"org\"\n"), {{"1.3", "org"}});
    expect(std::string(1019, ' ').append("1.\\\n3=\"org\"\n"), {{"1.3"}});
}

TEST_F(NameFile, ANameThatCannotBeIsSkipped) {
    expect_skipped("1.3=" + std::string("\"").append(64, 'a').append("\""));
    for (const char* line : {"1.3", "1.3=", "1.3=name", "1.3= \"name\"", "1.3=\"name",
                             "1.3\"name\"", "=", "$", "${", "${x}", "${x=\"name\"",
                             "${x}.1=\"name\"", "$x=\"name\"", "x", "\\", "(", "(=\"", "1.x(="}) {
        expect_skipped(line);
    }
}

TEST_F(NameFile, AnIdentifierThatCannotBeEndsTheFile) {
    for (const char* line : {"1.x=\"name\"", "=\"name\"", "iso=\"name\"", "1..3=\"name\"",
                             "1.4294967296=\"name\"", "1.-3=\"name\""}) {
        expect(std::string("1.3=\"before\"\n").append(line).append("\n1.4=\"after\"\n"),
               {{"1.3", "before"}, {"1.4"}});
    }
}

TEST_F(NameFile, RangesNameOneIdentifierANumber) {
    expect("1.3.x(1..4)=\"port ${x}\"\n", {{"1.3"},
                                           {"1.3.0"},
                                           {"1.3.1", "port 1"},
                                           {"1.3.2", "port 2"},
                                           {"1.3.3", "port 3"},
                                           {"1.3.4", "port 4"},
                                           {"1.3.5"}});
    expect("1.3.i(7..7)=\"<${i+1} ${i-8} ${i*2} ${i/2} ${i%4} $$ ${i}>\"\n",
           {{"1.3.7", "<8 -1 14 3 3 $$ 7>"}});
    expect("0x2b.x(0..1)=\"${x}\"\n", {{"43.0", "0"}, {"43.1", "1"}});
    expect("1.3.X(010..011)=\"${X}\"\n", {{"1.3.10", "10"}, {"1.3.11", "11"}, {"1.3.8"}});
    expect("1.3.x(4294967294..4294967295)=\"${x+1}\"\n",
           {{"1.3.4294967294", "4294967295"}, {"1.3.4294967295", "4294967296"}});
    expect("1.3.x(1..2) =\"same\"\n1.3.2=\"other\"\n", {{"1.3.1", "same"}, {"1.3.2", "other"}});
    expect("1.3.x(4..3)=\"${x}\"\n1.4=\"next\"\n", {{"1.3.4"}, {"1.3.3"}, {"1.4", "next"}});
}

TEST_F(NameFile, ARangeThatCannotBeIsSkipped) {
    for (const char* range : {"x(1..2",
                              "x(1.2)",
                              "x(1..)",
                              "x(..2)",
                              "x(..)",
                              "x()",
                              "x(",
                              "x(a..b)",
                              "x(-1..2)",
                              "x(1..2)3",
                              "x(1...2)",
                              "x(1..2).3",
                              "x(1 ..2)",
                              "x(0x1..2)",
                              "x(1..4294967296)",
                              "x(1..1000001)0",
                              "x(0..1000000)",
                              "x(0..4294967295)",
                              "xy(1..2)",
                              "1(1..2)",
                              "(1..2)"}) {
        expect_skipped(std::string("1.3.").append(range).append("=\"name\""));
    }
    expect_skipped("x(1..2)=\"name\"");
    expect_skipped("(1..2)=\"name\"");
    expect_skipped("1x(1..2)=\"name\"");
}

TEST_F(NameFile, AFailureEndsTheRangeAndNotTheFile) {
    expect("1.3.x(0..2)=\"${x/0}\"\n1.4=\"next\"\n", {{"1.3.0"}, {"1.4", "next"}});
    expect("1.3.x(1..2)=\"${y}\"\n1.4=\"next\"\n", {{"1.3.1"}, {"1.4", "next"}});
    expect("1.3.x(1..2)=\"${x&1}\"\n1.4=\"next\"\n", {{"1.3.1"}, {"1.4", "next"}});
    expect("1.y.x(1..2)=\"${x}\"\n1.4=\"next\"\n", {{"1.1"}, {"1.4", "next"}});
}

TEST_F(NameFile, AComputedNameIsCutAt63Characters) {
    const std::string front(56, 'a');
    expect(std::string("1.x(9..9)=\"").append(front).append("${x}bcd").append("\"\n"),
           {{"1.9", std::string(front).append("9bcd")}});
    expect(std::string("1.x(9..9)=\"").append(front).append("${x*1}").append("\"\n"),
           {{"1.9", std::string(front).append("9")}});
    expect(
        std::string("1.x(4000000000..4000000000)=\"").append(front).append("${x}").append("\"\n"),
        {{"1.4000000000", std::string(front).append("4000000")}});
}

TEST_F(NameFile, RangesOfAMillion) {
    const Tree tree(parse(nullptr, "1.3.x(1..1000000)=\"line ${x}\"\n"));
    for (const char* number : {"1", "2", "33", "1000", "999999", "1000000"}) {
        EXPECT_EQ(tree.name(std::string("1.3.").append(number)),
                  std::string("line ").append(number));
    }
    EXPECT_EQ(tree.name("1.3.1000001"), Name());
}

TEST_F(NameFile, ReferencesStandForMappings) {
    expect("\"ent\"=1.3.6.1.4.1\n${ent}.8072=\"net\"\n", {{"1.3.6.1.4.1.8072", "net"}});
    expect("\"ent\"=1.3.6.1.4.1\n${ent}=\"itself\"\n", {{"1.3.6.1.4.1", "itself"}});
    expect("\"a\"=1.3\n\"b\"=${a}.6\n\"c\"=${b}.1\n${c}.x(2..3)=\"${x}\"\n",
           {{"1.3.6.1.2", "2"}, {"1.3.6.1.3", "3"}});
    expect("\"a\"=1.3\n${a}.6=\"old\"\n\"a\"=1.4\n${a}.6=\"new\"\n",
           {{"1.3.6", "old"}, {"1.4.6", "new"}});
    expect("\"a\"=1.3\n\"a\"=${a}.6\n${a}.1=\"twice\"\n", {{"1.3.6.1", "twice"}, {"1.3.1"}});
    expect("\"if table\" = 1.3.6   # comment\n${if table}.1=\"blanks\"\n", {{"1.3.6.1", "blanks"}});
    expect("\"a\"=1.3\r\n${a}.6=\"cr\"\r\n", {{"1.3.6", "cr"}});
    expect("\"a\"=1.3.\\\n6\n${a}.1=\"continued\"\n", {{"1.3.6.1", "continued"}});
    expect("\"r\"=1.3.x(1..2)\n${r}=\"${x}\"\n", {{"1.3.1", "1"}, {"1.3.2", "2"}});
    expect("\"\"=1.3\n${}.6=\"no name\"\n", {{"1.3.6", "no name"}});
}

TEST_F(NameFile, AMappingThatCannotBeIsSkipped) {
    for (const char* line :
         {"\"a", "\"a\"", "\"a\" 1.3", "\"a=1.3", "\"b\"=${a}", "\"b\"=${a}.1", "\"a\"=${a}.1",
          "\"b\"=$a.1", "\"b\"=${a.1", "\"b\"=$", "\"", "\"\"", "\"${a}\"=${a}"}) {
        expect_skipped(line);
    }
    expect_skipped(std::string("\"").append(64, 'a').append("\"=1.3"));
    expect_skipped(std::string("\"a\"=1.").append(126, '3'));
}

TEST_F(NameFile, AReferenceMustBeFollowedByMore) {
    const Tree tree(parse(nullptr, "\"a\"=1.3\n\"b\"=${a}\n\"c\"=${a} \n${b}.1=\"x\"\n"));
    EXPECT_EQ(tree.root->child, nullptr);
    EXPECT_STREQ(findEntOidstring("a"), "1.3");
    EXPECT_EQ(findEntOidstring("b"), nullptr);
    EXPECT_EQ(findEntOidstring("c"), nullptr);
}

TEST_F(NameFile, MappingsAreLimited) {
    const std::string name(63, 'n');
    const std::string oid = std::string("1.").append(125, '3');
    const Tree tree(
        parse(nullptr, std::string("\"").append(name).append("\"=1.3\n\"oid\"=").append(oid)));
    EXPECT_STREQ(findEntOidstring(name.c_str()), "1.3");
    EXPECT_EQ(findEntOidstring("oid"), oid);
}

/* Each doubles the one before, until the text would not fit. */
TEST_F(NameFile, MappingsThatGrowStayBounded) {
    std::string content("\"m0\"=1\n");
    for (int i = 1; i < 100; ++i) {
        const std::string before = std::to_string(i - 1);
        content.append("\"m").append(std::to_string(i)).append("\"=${m").append(before);
        content.append("}.1\n");
    }
    const Tree tree(parse(nullptr, content));
    EXPECT_EQ(findEntOidstring("m63"), repeated("1.", 63) + "1");
    EXPECT_EQ(findEntOidstring("m64"), nullptr);
}

TEST_F(NameFile, LocalListIsPrintedNewestFirst) {
    EXPECT_EQ(captured_stdout(dumpLocalList), "");
    const Tree tree(parse(nullptr,
                          "\"ent\"=1.3.6.1.4.1\n"
                          "\"net\"=${ent}.0x1f88\n"
                          "\"high\"=4294967295.2147483647\n"
                          "\"ent\"=1.3\n"
                          "\"none\"=\n"));
    EXPECT_EQ(captured_stdout(dumpLocalList),
              "\nLocal mappings:\n"
              "\t'none' -> \n"
              "\t'ent' -> .1.3\n"
              "\t'high' -> .-1.2147483647\n"
              "\t'net' -> .1.3.6.1.4.1.8072\n"
              "\t'ent' -> .1.3.6.1.4.1\n");
    EXPECT_STREQ(findEntOidstring("ent"), "1.3") << "the newest";
    EXPECT_STREQ(findEntOidstring("net"), "1.3.6.1.4.1.0x1f88") << "as written";
    EXPECT_EQ(findEntOidstring("other"), nullptr);
    EXPECT_EQ(findEntOidstring(nullptr), nullptr);
    oidFreeTree(nullptr);
    EXPECT_EQ(captured_stdout(dumpLocalList), "");
    EXPECT_EQ(findEntOidstring("ent"), nullptr);
}

TEST_F(NameFile, ReadingAgainFreesWhatWasRead) {
    Tree tree(parse(nullptr, "\"a\"=1.3\n${a}.6=\"old\"\n"));
    tree.root = parse(tree.root, "${a}.7=\"unknown\"\n1.4=\"new\"\n");
    EXPECT_EQ(tree.name("1.4"), "new");
    EXPECT_EQ(tree.name("1.3.6"), Name());
    EXPECT_EQ(tree.name("1.3.7"), Name());
    EXPECT_EQ(captured_stdout(dumpLocalList), "");
}

TEST_F(NameFile, AnotherTreeSeesTheMappings) {
    const Tree first(parse(nullptr, "\"a\"=1.3\n${a}.6=\"one\"\n"));
    const Tree second(parse(nullptr, "${a}.7=\"two\"\n"));
    EXPECT_EQ(first.name("1.3.6"), "one");
    EXPECT_EQ(second.name("1.3.7"), "two");
    EXPECT_EQ(second.name("1.3.6"), Name());
}

TEST_F(NameFile, ParseOidFileKeepsItsTree) {
    ASSERT_EQ(oidTree, nullptr);
    const Oid path{1, 3};
    const std::string file = folder_.write("f", "1.3=\"org\"\n\"a\"=1.3\n");
    oidnode* root = parseOidFile(file.c_str());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(oidTree, root);
    EXPECT_STREQ(lookupOid(path.data(), 2), "org");
    ASSERT_NE(insertOid("1.3.6", buildOidData("dod")), nullptr);
    EXPECT_STREQ(findOidInTree(oidTree, "dod"), "1.3.6");
    folder_.write("f2", "1.3=\"other\"\n");
    EXPECT_EQ(parseOidFile(folder_.path("f2").c_str()), oidTree);
    EXPECT_STREQ(lookupOid(path.data(), 2), "other");
    EXPECT_EQ(findOidInTree(oidTree, "dod"), nullptr);
    EXPECT_EQ(findEntOidstring("a"), nullptr);
    EXPECT_EQ(parseOidFile(folder_.path("missing").c_str()), nullptr);
    EXPECT_EQ(oidTree, nullptr);
    EXPECT_EQ(lookupOid(path.data(), 2), nullptr);
}

TEST_F(NameFile, WhatCannotBeReadGivesNoTree) {
    EXPECT_EQ(TreeParseOidFile(nullptr, nullptr), nullptr);
    EXPECT_EQ(TreeParseOidFile(nullptr, ""), nullptr);
    EXPECT_EQ(TreeParseOidFile(nullptr, folder_.path("missing").c_str()), nullptr);
    EXPECT_EQ(TreeParseOidFile(nullptr, folder_.path().c_str()), nullptr);
    const std::string file = folder_.write("f", "1.3=\"org\"\n");
    EXPECT_EQ(TreeParseOidFile(nullptr, (file + "/f").c_str()), nullptr);
    chmod(file.c_str(), 0);
    if (geteuid() != 0) {
        EXPECT_EQ(TreeParseOidFile(nullptr, file.c_str()), nullptr);
    }
    oidnode* tree = parse(nullptr, "1.3=\"org\"\n");
    EXPECT_EQ(TreeParseOidFile(tree, folder_.path("missing").c_str()), nullptr) << "and is freed";
}

TEST_F(NameFile, AFifoIsNotWaitedForUnlessSomebodyWrites) {
    const std::string fifo = folder_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Tree empty(TreeParseOidFile(nullptr, fifo.c_str()));
    ASSERT_NE(empty.root, nullptr);
    EXPECT_EQ(empty.root->child, nullptr);

    const Fd reader = open_for_reading(fifo.c_str());
    const int writing_end = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    std::thread writer([&] {
        for (const std::string_view part : {"1.3=\"o", "rg\"\n1.", "4=\"member\"\n"}) {
            usleep(20'000);
            EXPECT_EQ(write(writing_end, part.data(), part.size()),
                      static_cast<ssize_t>(part.size()));
        }
        close(writing_end);
    });
    const Tree tree(TreeParseOidFile(nullptr, fifo.c_str()));
    writer.join();
    EXPECT_EQ(tree.name("1.3"), "org");
    EXPECT_EQ(tree.name("1.4"), "member");
}

TEST_F(NameFile, NulBytesEndTheirLine) {
    using namespace std::string_literals;
    expect("1.3=\"org\"\0 and what follows\n1.4=\"next\"\n"s, {{"1.3", "org"}, {"1.4", "next"}});
    expect("1.3=\"o\0rg\"\n\0\0\n\0001.5=\"no\"\n1.4=\"next\"\n"s,
           {{"1.3"}, {"1.5"}, {"1.4", "next"}});
    expect(std::string(100'000, '\0').append("\n1.4=\"next\"\n"), {{"1.4", "next"}});
}

TEST_F(NameFile, LinesOfTenMegabytes) {
    const size_t size = 10'000'000;
    const auto after = [](const std::string& line) {
        return std::string(line).append("\n1.4=\"next\"\n");
    };
    expect(after("#" + std::string(size, 'c')), {{"1.4", "next"}});
    expect(after("1.3=\"" + std::string(size, 'n') + "\""), {{"1.3"}, {"1.4", "next"}});
    expect(after(std::string(size, '"')), {{"1.4", "next"}});
    expect(after(std::string(size, '\\')), {});
    expect(after(std::string("\"a\"=").append(size, '1')), {{"1.4", "next"}});
    expect(after(repeated("${a}", size / 4)), {{"1.4", "next"}});
    expect(repeated("\\\n", size / 2), {{"1.4"}});
}

TEST_F(NameFile, AMillionLines) {
    std::string content;
    for (int i = 0; i < 1'000'000; ++i) {
        /* Neither ascending nor descending. */
        const std::string number = std::to_string(i * 7919LL % 1'000'003);
        content.append("1.3.6.1.").append(number).append("=\"").append(number).append("\"\n");
    }
    const uint64_t before = oid_lines_read();
    const Tree tree(parse(nullptr, content));
    EXPECT_EQ(oid_lines_read() - before, 1'000'000U);
    EXPECT_EQ(tree.name("1.3.6.1.0"), "0");
    EXPECT_EQ(tree.name("1.3.6.1.7919"), "7919");
    EXPECT_EQ(tree.name("1.3.6.1.1000003"), Name());
}

TEST_F(NameFile, ManyMappingsAreFoundAtOnce) {
    std::string content;
    for (int i = 0; i < 100'000; ++i) {
        const std::string number = std::to_string(i);
        content.append("\"m").append(number).append("\"=1.").append(number).append("\n");
    }
    for (int i = 0; i < 100'000; ++i) {
        content.append("${m").append(std::to_string(i)).append("}.5=\"x\"\n");
    }
    const Tree tree(parse(nullptr, content));
    EXPECT_EQ(tree.name("1.0.5"), "x");
    EXPECT_EQ(tree.name("1.99999.5"), "x");
}

TEST_F(NameFile, TwoByteCharactersAreWhole) {
    for (const TwoByteEncoding& encoding : two_byte_encodings) {
        const TwoByteLocale locale(encoding);
        if (!locale.is_set()) {
            continue;
        }
        SCOPED_TRACE(encoding.name);
        const std::string backslash(encoding.backslash);
        const std::string brace{encoding.backslash[0], '\x7d'};
        expect("1.3=\"org\"" + backslash + "\n1.4=\"next\"\n", {{"1.3", "org"}, {"1.4", "next"}});
        expect("1.3=\"" + backslash + "\\\nx\"\n", {{"1.3", backslash + "x"}});
        expect("1.3=\"a\\\n" + backslash + "\\\n\"\n", {{"1.3", "a" + backslash}});
        expect("\"a" + brace + "b\"=1.3\n${a" + brace + "b}.6=\"in braces\"\n",
               {{"1.3.6", "in braces"}});
        expect("1.x(1..1)=\"" + backslash + "${x}\"\n", {{"1.1", backslash + "1"}});
        expect("1.x(1..1)=\"${x" + brace + "}" + "\"\n", {{"1.1"}});
        const std::string cut = std::string(62, 'a').append(backslash);
        oiddata* data = buildOidData(cut.c_str());
        EXPECT_EQ(std::string(data->mapping_str), std::string(62, 'a'));
        std::free(data);
    }
}

TEST(Strsub, ReplacesReferences) {
    for (const Vector& row : read_vectors("oid_strsub.txt", 5)) {
        SCOPED_TRACE(row.where);
        std::string result("before");
        const int code = strsub(row[0], row[1].at(0), row[2], result);
        EXPECT_EQ(code, std::stoi(row[3]));
        if (code == 0) {
            EXPECT_EQ(result, row[4]);
        }
    }
}

TEST(GetOidLine, CountsWhatItReads) {
    LineReader file("# 1\n\n  a=b # 3\nc\\\n  d\n\\\ne");
    OidLine line;
    const uint64_t before = oid_lines_read();
    EXPECT_STREQ(getOidLine(line, file), "a=b ");
    EXPECT_EQ(oid_lines_read() - before, 3U);
    EXPECT_STREQ(getOidLine(line, file), "c  d\n");
    EXPECT_EQ(oid_lines_read() - before, 5U);
    EXPECT_STREQ(getOidLine(line, file), "e");
    EXPECT_EQ(oid_lines_read() - before, 7U);
    EXPECT_EQ(getOidLine(line, file), nullptr);
    EXPECT_EQ(oid_lines_read() - before, 7U);
}

TEST(LineReader, GivesPiecesUpToTheirLimit) {
    const std::vector<std::pair<size_t, std::vector<std::string>>> rows = {
        {100, {"abcdef\n", "\n", "xyz"}},
        {7, {"abcdef\n", "\n", "xyz"}},
        {6, {"abcdef", "\n", "\n", "xyz"}},
        {3, {"abc", "def", "\n", "\n", "xyz"}},
        {2, {"ab", "cd", "ef", "\n", "\n", "xy", "z"}},
    };
    for (const auto& [limit, pieces] : rows) {
        LineReader reader("abcdef\n\nxyz");
        for (const std::string& piece : pieces) {
            EXPECT_EQ(reader.piece(limit), piece);
        }
        EXPECT_EQ(reader.piece(limit), "");
        EXPECT_EQ(reader.piece(limit), "");
    }
}

}  // namespace
}  // namespace wq::test
