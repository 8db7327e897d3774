#include <sys/stat.h>
#include <wqevents/alerts.h>

#include "listening_process.h"
#include "support/code_points.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

class CodePoints : public testing::Test {
  protected:
    CommandRun build(const std::string& source) const {
        return CommandRun({"codepoints", "build", folder_.write("source", source), "-o", target_});
    }
    CommandRun dump() const { return CommandRun({"codepoints", "dump", target_}); }
    CommandRun dump_of(std::string_view content) const {
        folder_.write("catalogue", content);
        return dump();
    }
    static void expect_failure(const CommandRun& run, int status, const std::string& part) {
        EXPECT_EQ(run.status, status);
        EXPECT_NE(run.err.find(part), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
    }

    const TempDir folder_;
    const std::string target_ = folder_.path("catalogue");
};

TEST_F(CodePoints, BuildMakesACatalogue) {
    const CommandRun run = build("# types\n\n  2\tFE00 later\n1 a001  two  blanks \r\n7 9\n");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, target_ + ": 3 code points\n");
    std::string expected =
        catalogue({{1, 0xA001, " two  blanks "}, {2, 0xFE00, "later"}, {7, 9, ""}});
    expected.replace(20, 4, 4, '\0');
    EXPECT_EQ(folder_.read("catalogue"), expected);
    EXPECT_EQ(build("1 1 x").out, target_ + ": 1 code point\n");
    EXPECT_EQ(folder_.read("catalogue.new"), "");
}

TEST_F(CodePoints, TheLibraryLoadsIt) {
    ASSERT_EQ(build("1 A001 type\n6 2000 one\\ntwo \\\\ three\n").status, 0);
    codeptpath(target_.c_str());
    ASSERT_EQ(codeptcatinit(), 0);
    EXPECT_STREQ(codeptstr(1, 0xA001), "type");
    EXPECT_STREQ(codeptstr(6, 0x2000), "one\ntwo \\ three");
}

TEST_F(CodePoints, DumpGivesTheSourceBack) {
    const std::string source = "1 a001  type \n2 0000 \n6 2000 one\\ntwo \\\\ three\n7 fffe last\n";
    ASSERT_EQ(build(source).status, 0);
    const CommandRun run = dump();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, source);
}

TEST_F(CodePoints, DumpSortsWhatOthersMade) {
    EXPECT_EQ(dump_of(catalogue({{9, 0xFFFF, "b"}, {1, 2, "c"}, {1, 1, "d"}})).out,
              "1 0001 d\n1 0002 c\n9 ffff b\n");
}

TEST_F(CodePoints, RefusesBadSources) {
    const struct {
        const char* source;
        const char* problem;
    } rows[] = {
        {"0 1 x\n", ":1: the line does not begin with a set from 1 to 7"},
        {"# ok\n\n8 1 x\n", ":3: the line does not begin with a set from 1 to 7"},
        {"one 1 x\n", ":1: the line does not begin with a set from 1 to 7"},
        {"1x 1 x\n", ":1: the line does not begin with a set from 1 to 7"},
        {"99999999999 1 x\n", ":1: the line does not begin with a set from 1 to 7"},
        {"1\n", ":1: the line has no hexadecimal code point up to fffe behind the set"},
        {"1 xyz x\n", ":1: the line has no hexadecimal code point up to fffe behind the set"},
        {"1 ffff x\n", ":1: the line has no hexadecimal code point up to fffe behind the set"},
        {"1 -1 x\n", ":1: the line has no hexadecimal code point up to fffe behind the set"},
        {"1 1 a\\t\n", ":1: the line has a text with an unknown escape or a NUL"},
        {"1 1 a\\", ":1: the line has a text with an unknown escape or a NUL"},
        {"1 A x\n2 A x\n1 a y\n", ": code point 000a of set 1 is there twice"},
        {"", ": there is no code point in it"},
        {"# nothing\n", ": there is no code point in it"},
    };
    for (const auto& row : rows) {
        expect_failure(build(row.source), 1, folder_.path("source") + row.problem + "\n");
        EXPECT_EQ(folder_.read("catalogue"), "") << row.source;
    }
    expect_failure(build(std::string("1 1 a\0b\n", 8)), 1, "an unknown escape or a NUL");
}

TEST_F(CodePoints, ARefusedSourceLeavesTheCatalogueAlone) {
    ASSERT_EQ(build("1 1 x\n").status, 0);
    EXPECT_EQ(build("bad").status, 1);
    EXPECT_EQ(dump().out, "1 0001 x\n");
}

TEST_F(CodePoints, RefusesBadCatalogues) {
    const std::string good = catalogue({{1, 1, "one"}, {1, 2, "two"}});
    expect_failure(dump_of(""), 1, target_ + ": not a code point catalogue\n");
    expect_failure(dump_of(good.substr(0, 23)), 1, "not a code point catalogue");
    expect_failure(dump_of("C" + good.substr(1)), 1, "not a code point catalogue");
    expect_failure(dump_of(catalogue_header(0)), 1, "does not hold the entries");
    expect_failure(dump_of(catalogue_header(0xFFFFFFFF)), 1, "does not hold the entries");
    expect_failure(dump_of(good.substr(0, 39)), 1, "does not hold the entries");
    expect_failure(dump_of(good.substr(0, good.size() - 1)), 1, ": entry 2 has no text\n");
    expect_failure(dump_of(catalogue_header(1) + catalogue_entry(1, 1, 23)), 1, "entry 1 has no");
    expect_failure(dump_of(catalogue_header(1) + catalogue_entry(1, 1, 0xFFFFFFFF)), 1,
                   "entry 1 has no text");
}

TEST_F(CodePoints, SaysWhatCannotBeReadOrWritten) {
    expect_failure(CommandRun({"codepoints", "dump", folder_.path("none")}), 1,
                   "No such file or directory");
    const std::string source = folder_.write("source", "1 1 x\n");
    expect_failure(CommandRun({"codepoints", "build", source, "-o", "/nowhere/catalogue"}), 1,
                   "cannot write /nowhere/catalogue.new: No such file or directory");
    expect_failure(CommandRun({"codepoints", "build", source, "-o", folder_.path()}), 1,
                   "cannot write " + folder_.path() + ": ");
    expect_failure(CommandRun({"codepoints"}), 2, "");
    expect_failure(CommandRun({"codepoints", "build", source}), 2, "--output");
}

TEST_F(CodePoints, TheExampleBuilds) {
    const CommandRun run(
        {"codepoints", "build", WQEVENTS_EXAMPLES "/codepoint.src", "-o", target_});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(dump().out.find("\n2 0401 Fan failure\n"), std::string::npos);
}

TEST(CodePointsHelp, HasExamples) {
    for (const Words& words : {Words{"codepoints", "--help"}, {"codepoints", "build", "--help"}}) {
        const CommandRun run(words);
        EXPECT_EQ(run.status, 0);
        for (const char* part : {"recommended actions", "  wqevents codepoints build examples/"}) {
            EXPECT_NE(run.out.find(part), std::string::npos) << run.out;
        }
    }
}

}  // namespace
}  // namespace wq::test
