#include "output.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "support/temp_dir.h"

namespace wq::command {
namespace {

// No file grows beyond so many bytes while it lasts.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    void (*handler_)(int);
    rlimit before_{};
};

void write_trap(Output& output, const char* line) {
    output.text() += line;
    output.written();
}

TEST(OutputLog, CountsWhatTheFileDidNotTakeWhole) {
    struct Row {
        rlim_t room;
        std::uint64_t lost;
        const char* taken;
    };
    for (const Row& row : {Row{20, 0, "one trap.\ntwo traps\n"}, Row{19, 1, "one trap.\ntwo traps"},
                           Row{11, 1, "one trap.\nt"}, Row{10, 1, "one trap.\n"},
                           Row{9, 2, "one trap."}, Row{0, 2, ""}}) {
        SCOPED_TRACE(row.room);
        const test::TempDir folder;
        const FileSizeLimit limit(row.room);
        Output output(folder.path("log"));
        write_trap(output, "one trap.\n");
        write_trap(output, "two traps\n");
        output.flush();
        EXPECT_EQ(output.lost(), row.lost);
        EXPECT_EQ(folder.read("log"), row.taken);
        EXPECT_EQ(output.take_complaint(),
                  row.lost == 0
                      ? ""
                      : "cannot write to the log '" + folder.path("log") + "': File too large");
    }
}

TEST(OutputLog, EndsATornLineBeforeTheNext) {
    const test::TempDir folder;
    Output output(folder.path("log"));
    {
        const FileSizeLimit limit(4);
        write_trap(output, "one trap.\n");
        output.flush();
        write_trap(output, "two traps\n");
        output.flush();
    }
    write_trap(output, "three\n");
    output.flush();
    EXPECT_EQ(folder.read("log"), "one \nthree\n");
    EXPECT_EQ(output.lost(), 2U);
}

}  // namespace
}  // namespace wq::command
