/*
 * The lines of the file: comments, blanks, length, NUL bytes, and files that are none.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "EMS/events/nl_readformat.h"
#include "support/trap_conf.h"
#include "support/writer.h"

namespace wq::test {
namespace {

using Names = std::vector<std::string>;

const ConfRead done{0, ""};

const std::string head = "CATEGORY 3 \"c\"\nagent {1.3}\n";
const std::string event = "x {1.3} 6 2 A 1 0 \"c\"\n";
const std::string tail = "SDESC\nEDESC\n";

class ConfText : public TrapConf {
  protected:
    /* The format text as it is read from `line`. */
    std::string format_of(const std::string& line) {
        EXPECT_EQ(read(head + event + line + "\n" + tail), done);
        return trap("x") != nullptr ? trap("x")->description.rawstring : "(none)";
    }
};

TEST_F(ConfText, LeadingBlanksAndTabsAreSkipped) {
    EXPECT_EQ(format_of(" \t a \t"), "a \t");
    EXPECT_EQ(format_of("\v a"), "\v a");
    EXPECT_EQ(format_of("   "), "");
    EXPECT_EQ(read(" \t CATEGORY 3 \"c\"\n\t agent {1.3}\n  x {1.3} 6 2 A 1 0 \"c\"\n  t\n"
                   "\tEXEC e\n  SDESC\n  one\n\tEDESC\n"),
              done);
    EXPECT_STREQ(trap("x")->execargs_ptr->rawstring, "e");
    EXPECT_STREQ(trap("x")->trapDescription, "one");
}

TEST_F(ConfText, CommentsAreSkippedEverywhere) {
    EXPECT_EQ(read("#\n # one\n\t#CATEGORY 4 \"d\"\nCATEGORY 3 \"c\"\n#\nACTION 1 \"a\" c\n#\n"
                   "SDESC\n#told\nEDESC\n#\nagent {1.3}\n#\nx {1.3} 6 2 A 1 0 \"c\"\n# t\nt # x\n"
                   "#EXEC e\nDISPLAY d\n#\nBEGIN_SLOT_MAPPING\n#\na b\n#\nEND_SLOT_MAPPING\n"
                   "#\nSDESC\none\n # two\nthree # four\nEDESC\n#"),
              done);
    EXPECT_EQ(categories(), (Names{"3=c", "9=IGNORE"}));
    EXPECT_STREQ(actionCommands[0].description, "");
    EXPECT_STREQ(trap("x")->description.rawstring, "t # x");
    EXPECT_EQ(trap("x")->execargs_ptr, nullptr);
    EXPECT_EQ(trap("x")->slotMap->slotCnt, 1);
    EXPECT_STREQ(trap("x")->trapDescription, "one\nthree # four");
}

TEST_F(ConfText, CommentsAreCounted) {
    EXPECT_EQ(read("#\n#\n#\nbad\n"),
              failure("Bad name line (matched 1, not 8 tokens)\n", 4, "bad"));
}

TEST_F(ConfText, ALastLineNeedsNoNewline) {
    EXPECT_EQ(read(head + event + "t\nSDESC\nEDESC"), done);
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(read("CATEGORY 3 \"c\""), done);
    EXPECT_EQ(categories(), Names{"3=c"});
    EXPECT_EQ(read("CATEGORY 3 \"c\"\nbad"),
              failure("Bad name line (matched 1, not 8 tokens)\n", 2, "bad"));
    EXPECT_EQ(read("  "), failure("Bad name line (matched -1, not 8 tokens)\n", 1, ""));
}

TEST_F(ConfText, CarriageReturnsAreText) {
    EXPECT_EQ(format_of("t\r"), "t\r");
    EXPECT_EQ(read("CATEGORY 3 \"c\"\r\nagent {1.3}\r\nx {1.3} 6 2 A 1 0 \"c\"\r\nt\r\n"
                   "EXEC e\r\nSDESC\r\nEDESC\r\n"),
              failure("Did not find a SDESC keyword", 6, "SDESC\r"));
    EXPECT_EQ(read(head + event + "t\nEXEC e\r\nSDESC\nEDESC\n"), done);
    EXPECT_STREQ(trap("x")->execargs_ptr->rawstring, "e");
    EXPECT_EQ(read(head + event + "t\nSDESC\nEDESC\r\n"),
              (ConfRead{-1, "End of file in \"" + dir_.path("conf") +
                                "\" prematurely reached after SDESC keyword"}));
    EXPECT_EQ(read("#\n\r\n"), failure("Bad name line (matched -1, not 8 tokens)\n", 2, "\r"));
}

TEST_F(ConfText, ANulEndsALine) {
    EXPECT_EQ(format_of(std::string("te\0xt", 5)), "te");
    EXPECT_EQ(format_of(std::string("\0xt", 3)), "");
    EXPECT_EQ(read(std::string("CATEGORY 3 \"c\"\0 x\n", 18)), done);
    EXPECT_EQ(read(std::string("#\nbad\0 {1.3}\n", 13)),
              failure("Bad name line (matched 1, not 8 tokens)\n", 2, "bad"));
    EXPECT_EQ(read(std::string("\0#\n", 3)),
              failure("Bad name line (matched -1, not 8 tokens)\n", 1, ""));
}

/* --- length --- */

TEST_F(ConfText, A51198thByteMustBeTheNewline) {
    EXPECT_EQ(read("#" + std::string(51196, '-') + "\nbad\n"),
              failure("Bad name line (matched 1, not 8 tokens)\n", 2, "bad"));
    EXPECT_EQ(read("#" + std::string(51197, '-') + "\nbad\n"), (ConfRead{0, "Line too long"}));
    EXPECT_EQ(read("#" + std::string(51197, '-')), done);
    EXPECT_EQ(read("#" + std::string(51198, '-')), (ConfRead{0, "Line too long"}));
}

TEST_F(ConfText, LeadingBlanksCount) {
    EXPECT_EQ(format_of(std::string(51197, ' ')), "");
    EXPECT_EQ(read(head + event + std::string(51198, ' ') + "\n" + tail),
              (ConfRead{-1, "Line too long"}));
}

/* As if the file had ended there. */
TEST_F(ConfText, ALineTooLongBetweenBlocksEndsTheFile) {
    EXPECT_EQ(read(head + event + "t\n" + tail + std::string(60000, 'x') + "\n" + "bad\n"),
              (ConfRead{0, "Line too long"}));
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(have_read_vortdconf, 1);
    EXPECT_EQ(read(head), done);
}

TEST_F(ConfText, ALineTooLongInABlockFailsIt) {
    const std::string line = std::string(51198, 'x') + "\n";
    for (const std::string& before :
         {std::string(), std::string("t\n"), std::string("t\nEXEC e\n"),
          std::string("t\nDISPLAY d\n"), std::string("t\nFORWARD\n"), std::string("t\nNODES n\n"),
          std::string("t\nEVENT_CLASS k\n"), std::string("t\nBEGIN_SLOT_MAPPING\n"),
          std::string("t\nBEGIN_SLOT_MAPPING\nEND_SLOT_MAPPING\n"), std::string("t\nSDESC\n")}) {
        EXPECT_EQ(read(head + event + before + line + tail), (ConfRead{-1, "Line too long"}))
            << before;
    }
    EXPECT_EQ(read("ACTION 1 \"a\" c\n" + line), (ConfRead{-1, "Line too long"}));
    EXPECT_EQ(traps(), Names{});
}

TEST_F(ConfText, TenMegabytesOnOneLineAreTooLong) {
    EXPECT_EQ(read(std::string(10U << 20U, 'x')), (ConfRead{0, "Line too long"}));
    EXPECT_EQ(read(head + event + std::string(10U << 20U, ' ') + "\n"),
              (ConfRead{-1, "Line too long"}));
}

TEST_F(ConfText, LinesCrossTheBlocksInWhichTheFileIsRead) {
    const auto name = [](size_t i) { return std::string("x").append(std::to_string(i)); };
    std::string file = "CATEGORY 3 \"c\"\nagent {1.3}\n";
    for (size_t i = 0; i < 500; ++i) {
        file.append(name(i)).append(" {1.3} 6 ").append(std::to_string(i)).append(" A 1 0 \"c\"\n");
        file.append(i * 8, 'f').append("\nSDESC\nEDESC\n");
    }
    EXPECT_EQ(read(file), done);
    ASSERT_EQ(traps().size(), 500U);
    for (size_t i = 0; i < 500; ++i) {
        EXPECT_EQ(std::string(trap(name(i).c_str())->description.rawstring),
                  std::string(i * 8, 'f'));
    }
}

TEST_F(ConfText, AMillionBlankLinesAreRead) {
    const std::string blanks(1000000, '\n');
    EXPECT_EQ(read(blanks), failure("Bad name line (matched -1, not 8 tokens)\n", 1, ""));
    std::string comments;
    for (int i = 0; i < 1000000; ++i) {
        comments += "#\n";
    }
    EXPECT_EQ(read(comments + "bad\n"),
              failure("Bad name line (matched 1, not 8 tokens)\n", 1000001, "bad"));
    EXPECT_EQ(read(head + event + "t\nSDESC\n" + blanks + "EDESC\n"),
              failure("Trap description too long", 5 + 5021, ""));
}

/* --- what is no file --- */

class ConfPlaces : public TrapConf {
  protected:
    static double seconds_of(const std::function<void()>& block) {
        const auto start = std::chrono::steady_clock::now();
        block();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
};

TEST_F(ConfPlaces, ADirectoryCannotBeOpened) {
    EXPECT_EQ(read_path(dir_.path()), (ConfRead{-1, "Could not open trap format file \"" +
                                                        dir_.path() + "\": Is a directory\n"}));
    char* message = nullptr;
    EXPECT_EQ(augmentTrapspecFile(&message, dir_.path().c_str()), -1);
    EXPECT_EQ(std::string(message),
              "Could not open new trap format file \"" + dir_.path() + "\": Is a directory\n");
}

TEST_F(ConfPlaces, AnUnreadableFileCannotBeOpened) {
    const std::string path = dir_.write("conf", head);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0); /* nobody may refuse root a file */
    }
    const ConfRead result = read_path(path);
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(result, (ConfRead{-1, "Could not open trap format file \"" + path +
                                        "\": Permission denied\n"}));
}

TEST_F(ConfPlaces, APathThroughAFileCannotBeOpened) {
    const std::string path = dir_.write("conf", head) + "/below";
    EXPECT_EQ(read_path(path), (ConfRead{-1, "Could not open trap format file \"" + path +
                                                 "\": Not a directory\n"}));
}

TEST_F(ConfPlaces, AFifoWithoutAWriterIsAnEmptyFile) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(read_path(fifo), done); }), 0.5);
}

TEST_F(ConfPlaces, AFifoIsReadUntilItsWriterEnds) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    std::string file = head + event + "t\n" + tail;
    file += "#" + std::string(50000, '-') + "\n#" + std::string(50000, '-') + "\nbad\n";
    {
        const Writer thread([&] {
            for (size_t at = 0; at < file.size();) {
                usleep(at == 0 ? 20000 : 0);
                const ssize_t n = write(writer, file.data() + at, file.size() - at);
                at += n > 0 ? static_cast<size_t>(n) : 0;
            }
            close(writer);
        });
        EXPECT_EQ(read_path(fifo).message,
                  "Bad name line (matched 1, not 8 tokens)\n in line #9 "
                  "of \"" +
                      fifo + "\":\nbad.\n");
    }
    close(reader);
    EXPECT_EQ(traps(), Names{"x"});
}

TEST_F(ConfPlaces, AFifoWhoseWriterFallsSilentEnds) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int writer = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(write(writer, head.data(), head.size()), static_cast<ssize_t>(head.size()));
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(read_path(fifo), done); }), 10);
    close(writer);
    EXPECT_EQ(enterprises(), Names{"agent"});
}

TEST_F(ConfPlaces, AnEndlessDeviceEndsAtItsFirstLine) {
    EXPECT_EQ(read_path("/dev/zero"), (ConfRead{0, "Line too long"}));
    EXPECT_EQ(read_path("/dev/null"), done);
}

/* --- lists of nodes --- */

TEST_F(ConfText, ListsAreVisitedUntilTheVisitorHasEnough) {
    const std::string path = dir_.write("list", "a\n#b\n\nc more\nd\n");
    Names seen;
    const auto visit = [&seen](std::string_view word) {
        seen.emplace_back(word);
        return word != "c";
    };
    FileText list;
    ASSERT_TRUE(list.read(path.c_str(), conf_limits));
    EXPECT_FALSE(for_each_listed_node(list, visit));
    EXPECT_EQ(seen, (Names{"a", "c"}));
    dir_.write("list", "d\n" + std::string(60000, 'e') + "\nf\n");
    ASSERT_TRUE(list.read(path.c_str(), conf_limits));
    EXPECT_TRUE(for_each_listed_node(list, visit)) << "a line is too long";
    EXPECT_EQ(seen, (Names{"a", "c", "d"}));
}

/* --- stripping --- */

TEST(Stripped, TakesWhiteSpaceFromBothEnds) {
    const struct {
        std::string_view text;
        std::string_view expected;
    } rows[] = {
        {"", ""},
        {" \t\n\v\f\r ", ""},
        {"a", "a"},
        {"  a b \t", "a b"},
        {"\ra\n", "a"},
        {"\xe4  ", "\xe4"},
        {"  \xe4\xe5", "\xe4\xe5"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(stripped(row.text), row.expected) << row.text;
    }
}

}  // namespace
}  // namespace wq::test
