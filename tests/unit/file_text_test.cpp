/*
 * Reading files whole: a failed read is never the end of a file, for none of the library's readers,
 * and what is read is one state of the file whoever writes to it meanwhile.
 */
#include "EMS/events/internal/file_text.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>
#include <wqevents/names.h>
#include <wqevents/status.h>
#include <wqplatform.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/code_points.h"
#include "support/env_value.h"
#include "support/file_calls.h"
#include "support/lock_holder.h"
#include "support/sandbox.h"
#include "support/signal_storm.h"
#include "support/temp_dir.h"
#include "support/trap_conf.h"
#include "support/writer.h"

namespace wq::test {
namespace {

using Names = std::vector<std::string>;

/* More than two blocks of comments, so that the third read is in the middle. */
std::string padding() {
    std::string text;
    while (text.size() < 200'000) {
        text.append("#").append(1000, '-').append("\n");
    }
    return text;
}

const std::string head = "CATEGORY 3 \"c\"\nagent {1.3}\n";

std::string trap_text(const std::string& name, int specific) {
    return name + " {1.3} 6 " + std::to_string(specific) + " A 1 0 \"c\"\nt\nSDESC\nEDESC\n";
}

class FailedReads : public TrapConf {
  protected:
    ~FailedReads() override { file_calls = {}; }

    /* From the read of that number on, reading the file fails. */
    static void fail_from(const std::string& path, int number, int error = EIO) {
        file_calls.watch(path);
        file_calls.fail("read", number, error, -1);
    }
    static std::string could_not_read(const std::string& what, const std::string& path) {
        return "Could not read " + what + " \"" + path + "\": Input/output error\n";
    }
};

TEST_F(FailedReads, OfTheTrapConfigurationLeaveTheModel) {
    ASSERT_EQ(read(head + trap_text("old", 1)), (ConfRead{0, ""}));
    const std::string path = dir_.write("new", head + trap_text("new", 2) + padding());
    for (int number = 0; number < 5; ++number) {
        fail_from(path, number);
        EXPECT_EQ(read_path(path), (ConfRead{-1, could_not_read("trap format file", path)}))
            << number;
        EXPECT_EQ(traps(), Names{"old"});
    }
    file_calls = {};
    EXPECT_EQ(read_path(path), (ConfRead{0, ""}));
    EXPECT_EQ(traps(), Names{"new"});
}

TEST_F(FailedReads, OfAFurtherFileAddNothing) {
    ASSERT_EQ(read(head + trap_text("old", 1)), (ConfRead{0, ""}));
    const std::string path = dir_.write("more", trap_text("new", 2) + padding());
    for (const int number : {0, 2}) {
        fail_from(path, number);
        char* message = nullptr;
        EXPECT_EQ(augmentTrapspecFile(&message, path.c_str()), -1);
        EXPECT_EQ(message, could_not_read("new trap format file", path));
        EXPECT_EQ(traps(), Names{"old"});
    }
}

TEST_F(FailedReads, OfTheAlertsAttachNone) {
    ASSERT_EQ(read(head + trap_text("x", 1)), (ConfRead{0, ""}));
    const std::string path = dir_.write("alerts", "x {1.3} 6 1\n92 1 A000 ;\n" + padding());
    for (const int number : {0, 2}) {
        fail_from(path, number);
        char* message = nullptr;
        EXPECT_EQ(read_ferlospec_file(&message), -1);
        EXPECT_EQ(message, could_not_read("ferlo format file", path));
        EXPECT_EQ(trap("x")->alert_element, nullptr);
        /* The model is read all the same, and the message is that of the alerts. */
        EXPECT_EQ(read_path(dir_.path("conf")),
                  (ConfRead{0, could_not_read("ferlo format file", path)}));
        const LockHolder other(path, F_WRLCK); /* the file is not left locked */
    }
    file_calls = {};
    char* message = nullptr;
    EXPECT_EQ(read_ferlospec_file(&message), 0) << message;
    EXPECT_NE(trap("x")->alert_element, nullptr);
}

TEST_F(FailedReads, OfAListOfNodesMatchNoNode) {
    const std::string list = dir_.write("list", padding() + "far\n");
    ASSERT_EQ(read(head + "x {1.3} 6 1 A 1 0 \"c\"\nt\nNODES " + list + "\nSDESC\nEDESC\n"),
              (ConfRead{0, ""}));
    EXPECT_EQ(trapRecNodesMatch(trap("x"), "far"), 1);
    fail_from(list, 2);
    EXPECT_EQ(trapRecNodesMatch(trap("x"), "far"), 0);
}

TEST_F(FailedReads, OfAListThatIsReadInPlaceLeaveTheModel) {
    const std::string list = dir_.write("list", "near\n" + padding() + "far\n");
    const std::string block = "x {1.3} 6 1 A 1 0 \"c\"\nt\nNODES a " + list + "\nSDESC\nEDESC\n";
    const ConfRead failed{-1,
                          "Could not read source list file \"" + list + "\": Input/output error"};
    ASSERT_EQ(read(head + trap_text("old", 1)), (ConfRead{0, ""}));
    trpFormatExpandSourceFiles = 1;
    for (const int number : {0, 2}) {
        fail_from(list, number);
        EXPECT_EQ(read(head + block), failed);
        EXPECT_EQ(traps(), Names{"old"});
        fail_from(list, number);
        EXPECT_EQ(augment(block), failed);
        EXPECT_EQ(traps(), Names{"old"});
    }
    file_calls = {};
    EXPECT_EQ(read(head + block), (ConfRead{0, ""}));
    ASSERT_NE(trap("x"), nullptr);
    ASSERT_EQ(trap("x")->nodeCnt, 3);
    EXPECT_STREQ(trap("x")->nodeList[2], "far");
}

/* A list that is named by many traps is read once. */
TEST_F(FailedReads, AListIsReadOnce) {
    const std::string list = dir_.write("list", "near\nfar\n");
    std::string text = head;
    for (int i = 0; i < 10; ++i) {
        text.append("x" + std::to_string(i) + " {1.3} 6 " + std::to_string(i) +
                    " A 1 0 \"c\"\nt\nNODES " + list + "\nSDESC\nEDESC\n");
    }
    trpFormatExpandSourceFiles = 1;
    file_calls.watch(list);
    EXPECT_EQ(read(text), (ConfRead{0, ""}));
    EXPECT_EQ(file_calls.log.size(), 2U) << "the text and its end";
    EXPECT_EQ(trap("x9")->nodeCnt, 2);
}

TEST_F(FailedReads, OfNamesLeaveTheTree) {
    const std::string path = dir_.write("labels", "1.3=\"org\"\n\"a\"=1.3\n");
    ASSERT_NE(parseOidFile(path.c_str()), nullptr);
    oidnode* const tree = oidTree;
    dir_.write("labels", "1.4=\"member\"\n" + padding());
    const EnvValue log("WQULOG", dir_.path("log"));
    for (const int number : {0, 2}) {
        fail_from(path, number);
        EXPECT_EQ(parseOidFile(path.c_str()), nullptr);
        EXPECT_EQ(oidTree, tree);
        EXPECT_STREQ(findEntOidstring("a"), "1.3");
        EXPECT_EQ(TreeParseOidFile(nullptr, path.c_str()), nullptr);
    }
    EXPECT_NE(dir_.read("log").find("Could not read " + path + ": Input/output error"),
              std::string::npos)
        << dir_.read("log");
    file_calls = {};
    ASSERT_NE(parseOidFile(path.c_str()), nullptr);
    EXPECT_EQ(findEntOidstring("a"), nullptr);
    oidFreeTree(oidTree);
    oidTree = nullptr;
}

TEST_F(FailedReads, OfTheMibLeaveItsNames) {
    const std::string path = dir_.write("mib", "version 1\nacme enterprises 77\n" + padding());
    const EnvValue name("WQMIBFILE", path);
    const EnvValue log("WQULOG", dir_.path("log"));
    ASSERT_EQ(WQmib_load_mib(), 0);
    dir_.write("mib", "version 1\nother enterprises 77\n" + padding());
    const uint32_t oid[] = {1, 3, 6, 1, 4, 1, 77};
    char text[2048];
    for (const int number : {0, 2}) {
        fail_from(path, number);
        EXPECT_EQ(WQmib_load_mib(), -1);
        sprint__objid(text, oid, 7);
        EXPECT_NE(std::string(text).find(".acme"), std::string::npos) << text;
    }
    EXPECT_NE(dir_.read("log").find("Could not read " + path + ": Input/output error"),
              std::string::npos)
        << dir_.read("log");
}

TEST_F(FailedReads, OfCodePointsLeaveTheCatalogue) {
    const std::string path = dir_.write("cat", catalogue({{1, 1, "before"}}));
    codeptpath(path.c_str());
    ASSERT_EQ(codeptcatinit(), 0);
    const char* const shown = codeptstr(1, 1);
    dir_.write("cat", catalogue({{1, 1, "after"}, {1, 2, std::string(200'000, 'x')}}));
    for (const int number : {0, 2}) {
        fail_from(path, number);
        EXPECT_EQ(codeptcatinit(), -1);
        EXPECT_STREQ(codeptstr(1, 1), "before");
    }
    file_calls = {};
    ASSERT_EQ(codeptcatinit(), 0);
    EXPECT_STREQ(codeptstr(1, 1), "after");
    EXPECT_STREQ(shown, "before") << "a text that was handed out stays";
    codeptpath("");
}

TEST(FailedReadsOfTheRegistration, EnableNothing) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        std::filesystem::create_directories("/usr/WQ/conf");
        const std::string path = "/usr/WQ/conf/wqsuf";
        std::ofstream(path) << "0:kmpollerd:x\n" << padding();
        EXPECT_EQ(isKmPollerdEnabled(), 1);
        file_calls.watch(path);
        file_calls.fail("read", 2, EIO, -1);
        EXPECT_EQ(isKmPollerdEnabled(), 0);
        file_calls = {};
    });
}

/* --- one state of a file --- */

class Whole : public testing::Test {
  protected:
    ~Whole() override { file_calls = {}; }

    std::string path_of(const std::string& text) const { return dir_.write("f", text); }

    const TempDir dir_;
};

TEST_F(Whole, IsWhateverIsInTheFile) {
    for (const std::size_t size : {0, 1, 65535, 65536, 65537, 131072, 1'000'000}) {
        const std::string text(size, 'x');
        FileText file;
        ASSERT_TRUE(file.read(path_of(text).c_str()));
        EXPECT_TRUE(file.view() == text) << size;
        EXPECT_FALSE(file.holds_nul());
    }
    FileText file;
    ASSERT_TRUE(file.read(path_of(std::string(70'000, 'x').append(1, '\0')).c_str()));
    EXPECT_TRUE(file.holds_nul());
    ASSERT_TRUE(file.read(path_of("short").c_str())) << "a text may be read into again";
    EXPECT_EQ(file.view(), "short");
    EXPECT_FALSE(file.holds_nul());
}

TEST_F(Whole, OrNothing) {
    FileText file;
    ASSERT_TRUE(file.read(path_of("text").c_str()));
    EXPECT_FALSE(file.read(dir_.path("missing").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(file.view(), "");
    EXPECT_FALSE(file.read(static_cast<const char*>(nullptr)));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(file.read(dir_.path().c_str()));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_FALSE(file.read(-1));
    EXPECT_EQ(errno, EBADF);
    for (const int error : {EIO, ESTALE, EOVERFLOW}) {
        file_calls.watch(dir_.path("f"));
        file_calls.fail("read", 1, error);
        EXPECT_FALSE(file.read(dir_.path("f").c_str()));
        EXPECT_EQ(errno, error);
        EXPECT_EQ(file.view(), "");
    }
}

TEST_F(Whole, AnInterruptedReadGoesOn) {
    const std::string path = path_of(std::string(200'000, 'x'));
    for (int number = 0; number < 4; ++number) {
        file_calls.watch(path);
        file_calls.fail("read", number, EINTR, 3);
        FileText file;
        EXPECT_TRUE(file.read(path.c_str()));
        EXPECT_EQ(file.view().size(), 200'000U);
    }
}

TEST_F(Whole, ShortReadsGoOn) {
    const std::string path = path_of(std::string(5'000, 'x'));
    file_calls.watch(path);
    file_calls.fail("read", 0, 0, -1);
    file_calls.at_most = 7;
    FileText file;
    EXPECT_TRUE(file.read(path.c_str()));
    EXPECT_EQ(file.view(), std::string(5'000, 'x'));
}

TEST_F(Whole, IsReadFromTheBeginning) {
    const Fd fd(open(path_of("text").c_str(), O_RDONLY | O_CLOEXEC));
    lseek(fd.get(), 2, SEEK_SET);
    FileText file;
    ASSERT_TRUE(file.read(fd.get()));
    EXPECT_EQ(file.view(), "text");
}

TEST_F(Whole, FilesOfTheKernelAreRead) {
    FileText file;
    ASSERT_TRUE(file.read("/proc/self/status"));
    EXPECT_EQ(file.view().substr(0, 5), "Name:");
    EXPECT_EQ(file.view().back(), '\n');
}

TEST_F(Whole, HasABound) {
    FileText file;
    EXPECT_FALSE(file.read("/dev/zero"));
    EXPECT_EQ(errno, EFBIG);
    ASSERT_TRUE(file.read("/dev/zero", {.longest_line = 1000}));
    EXPECT_LE(file.view().size(), 65536U);
    EXPECT_GT(file.view().size(), 1000U);
    const std::string path = path_of("");
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(FileText::largest_file) + 1), 0);
    EXPECT_FALSE(file.read(path.c_str()));
    EXPECT_EQ(errno, EFBIG);
}

/* A write of the same size in the middle of each read. */
TEST_F(Whole, AFileThatNeverRestsIsGivenUp) {
    const std::string path = path_of(std::string(200'000, 'x'));
    file_calls.watch(path);
    int reads = 0;
    file_calls.before = [&] {
        if (reads++ % 4 == 2) {
            const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
            ASSERT_EQ(::write(fd.get(), "y", 1), 1);
        }
    };
    FileText file;
    EXPECT_FALSE(file.read(path.c_str()));
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(file.view(), "");
    EXPECT_GE(reads, 6 * 4) << "read once and repeated five times";
}

TEST_F(Whole, AChangeMeansAnotherRead) {
    struct Row {
        const char* what;
        std::function<void(const std::string&)> change;
        std::string result;
    };
    const std::string text(200'000, 'x');
    const Row rows[] = {
        {"another text of the same length",
         [](const std::string& path) {
             const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
             const std::string other(200'000, 'y');
             ASSERT_EQ(::write(fd.get(), other.data(), other.size()), 200'000);
         },
         std::string(200'000, 'y')},
        {"a longer one",
         [](const std::string& path) {
             const Fd fd(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
             ASSERT_EQ(::write(fd.get(), "y", 1), 1);
         },
         text + "y"},
        {"a shorter one",
         [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), 100'000), 0); },
         std::string(100'000, 'x')},
        {"one whose modification time is set back",
         [](const std::string& path) {
             struct stat status {};
             ASSERT_EQ(stat(path.c_str(), &status), 0);
             const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
             ASSERT_EQ(::write(fd.get(), "y", 1), 1);
             const timespec times[] = {status.st_atim, status.st_mtim};
             ASSERT_EQ(futimens(fd.get(), times), 0);
         },
         "y" + text.substr(1)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string path = path_of(text);
        file_calls.watch(path);
        bool done = false;
        file_calls.before = [&] {
            if (file_calls.log.size() == 3 && !done) {
                done = true;
                row.change(path);
            }
        };
        FileText file;
        ASSERT_TRUE(file.read(path.c_str()));
        EXPECT_TRUE(file.view() == row.result) << file.view().substr(0, 10) << file.view().size();
    }
}

TEST_F(Whole, ARenamedFileStaysTheOneThatWasOpened) {
    const std::string path = path_of(std::string(200'000, 'x'));
    dir_.write("other", std::string(200'000, 'y'));
    file_calls.watch(path);
    file_calls.before = [&] {
        if (file_calls.log.size() == 3) {
            ASSERT_EQ(rename(dir_.path("other").c_str(), path.c_str()), 0);
        }
    };
    FileText file;
    ASSERT_TRUE(file.read(path.c_str()));
    EXPECT_TRUE(file.view() == std::string(200'000, 'x'));
}

/* --- a file that is being written --- */

TEST_F(Whole, AMarkedFileIsGivenAsItStands) {
    FileText file;
    ASSERT_TRUE(file.read(path_of("!\nrest\n").c_str()));
    EXPECT_EQ(file.view(), "!\nrest\n");
    EXPECT_TRUE(file.is_unfinished());
}

TEST_F(Whole, AWriterThatIsAtWorkIsWaitedFor) {
    const std::string path = path_of("!\nrest\n");
    const LockHolder writer(path, F_WRLCK);
    file_calls.watch(path);
    file_calls.before = [&] {
        if (file_calls.log.size() == 5) {
            const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
            ASSERT_EQ(::write(fd.get(), "#\n", 2), 2);
        }
    };
    FileText file;
    ASSERT_TRUE(file.read(path.c_str()));
    EXPECT_EQ(file.view(), "#\nrest\n");
}

TEST_F(Whole, AWriterThatTakesItsTimeLeavesTheMark) {
    const std::string path = path_of("!\nrest\n");
    const LockHolder writer(path, F_WRLCK);
    FileText file;
    ASSERT_TRUE(file.read(path.c_str()));
    EXPECT_TRUE(file.is_unfinished());
}

/* --- pipes --- */

TEST_F(Whole, ASilentFifoIsReadWholeThroughSignals) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Fd reader = open_for_reading(fifo.c_str());
    const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    FileText file;
    {
        const SignalStorm storm(false);
        const Writer thread([&] {
            for (const std::string_view part : {"first\n", "second\n", "third"}) {
                usleep(30'000);
                EXPECT_EQ(write(writer, part.data(), part.size()),
                          static_cast<ssize_t>(part.size()));
            }
            close(writer);
        });
        EXPECT_TRUE(file.read(reader.get(), {.patience_ms = 20'000}));
    }
    EXPECT_EQ(file.view(), "first\nsecond\nthird");
}

TEST_F(Whole, SignalsDoNotProlongTheWaitForASilentFifo) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Fd both(open(fifo.c_str(), O_RDWR | O_CLOEXEC));
    const Fd reader = open_for_reading(fifo.c_str());
    ASSERT_EQ(write(both.get(), "text", 4), 4);
    FileText file;
    const SignalStorm storm(false);
    EXPECT_TRUE(file.read(reader.get(), {.patience_ms = 100}));
    EXPECT_EQ(file.view(), "text");
}

/* --- beside a writer that never stops --- */

/* A child that writes the texts in turn, each in one go, until it is killed. */
class RestlessWriter {
  public:
    RestlessWriter(const std::string& path, std::size_t size, useconds_t rest) {
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
            for (unsigned turn = 0; getppid() == parent; ++turn) {
                const std::string text(size, static_cast<char>('a' + turn % 26));
                if (pwrite(fd, text.data(), text.size(), 0) < 0) {
                    break;
                }
                usleep(rest);
            }
            _exit(0);
        }
    }
    ~RestlessWriter() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    RestlessWriter(const RestlessWriter&) = delete;
    RestlessWriter& operator=(const RestlessWriter&) = delete;

  private:
    pid_t pid_;
};

/* The shares of reads that fail differ with the machine; a mixture never comes. */
void read_beside(const std::string& path, std::size_t size, useconds_t rest) {
    const RestlessWriter writer(path, size, rest);
    int whole = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
    while (std::chrono::steady_clock::now() < end) {
        FileText file;
        if (!file.read(path.c_str())) {
            ASSERT_EQ(errno, EBUSY);
            continue;
        }
        ++whole;
        ASSERT_EQ(file.view().size(), size);
        ASSERT_EQ(file.view().find_first_not_of(file.view()[0]), std::string_view::npos)
            << "a mixture of two texts";
    }
    testing::Test::RecordProperty("whole", whole);
}

TEST_F(Whole, NoMixtureOfShortTextsIsRead) {
    read_beside(path_of(std::string(5'000, 'a')), 5'000, 0);
    read_beside(path_of(std::string(5'000, 'a')), 5'000, 5'000);
}

TEST_F(Whole, NoMixtureOfLongTextsIsRead) {
    read_beside(path_of(std::string(3'000'000, 'a')), 3'000'000, 0);
    read_beside(path_of(std::string(3'000'000, 'a')), 3'000'000, 10'000);
}

TEST_F(Whole, NoMixtureIsReadInMemory) {
    if (std::filesystem::exists("/dev/shm")) {
        const std::string path = "/dev/shm/wqevents." + std::to_string(getpid());
        std::ofstream(path) << std::string(500'000, 'a');
        read_beside(path, 500'000, 3'000);
        unlink(path.c_str());
    }
}

}  // namespace
}  // namespace wq::test
