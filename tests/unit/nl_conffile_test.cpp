#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "EMS/events/internal/fd.h"
#include "support/env_value.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

class ConfFile : public testing::Test {
  protected:
    ConfFile() { setVortdConfFile(nullptr); }
    ~ConfFile() override { setVortdConfFile(nullptr); }

    /* The content of the file that is opened, or why there is none. */
    static std::string content() {
        char* name = nullptr;
        const Stream stream(fopenConfFile("r", &name));
        if (!stream) {
            return std::strerror(errno);
        }
        std::array<char, 100> text{};
        return {text.data(), std::fread(text.data(), 1, text.size(), stream.get())};
    }

    EnvValue conf_{"WQVORTDCONF", nullptr};
    EnvValue folder_{"WQCONFDIR", nullptr};
    TempDir dir_;
};

TEST_F(ConfFile, IsBelowTheConfigurationFolder) {
    EXPECT_STREQ(getVortdConfFile(), "/usr/WQ/conf/C/vortd.conf");
    setVortdConfFile(nullptr);
    folder_.set("/elsewhere");
    EXPECT_STREQ(getVortdConfFile(), "/elsewhere/C/vortd.conf");
}

TEST_F(ConfFile, TheEnvironmentNamesAnother) {
    folder_.set("/elsewhere");
    conf_.set("/tmp/other.conf");
    EXPECT_STREQ(getVortdConfFile(), "/tmp/other.conf");
    setVortdConfFile("");
    conf_.set("");
    EXPECT_STREQ(getVortdConfFile(), "");
}

TEST_F(ConfFile, TheNameIsComputedOnceAndKept) {
    conf_.set("/tmp/first.conf");
    char* first = getVortdConfFile();
    conf_.set("/tmp/second.conf");
    EXPECT_EQ(getVortdConfFile(), first);
    EXPECT_STREQ(first, "/tmp/first.conf");
}

TEST_F(ConfFile, ANameThatIsSetIsCopiedAndGoesFirst) {
    conf_.set("/tmp/environment.conf");
    std::string name = "/tmp/set.conf";
    setVortdConfFile(name.c_str());
    name = "changed later";
    EXPECT_STREQ(getVortdConfFile(), "/tmp/set.conf");
}

TEST_F(ConfFile, NullAndEmptyReturnToTheEnvironment) {
    conf_.set("/tmp/environment.conf");
    for (const char* none : {"", static_cast<const char*>(nullptr)}) {
        setVortdConfFile("/tmp/set.conf");
        setVortdConfFile(none);
        EXPECT_STREQ(getVortdConfFile(), "/tmp/environment.conf");
    }
}

TEST_F(ConfFile, SettingItsOwnNameKeepsIt) {
    for (const std::string& name : {std::string("/a"), "/" + std::string(3000, 'n')}) {
        setVortdConfFile(name.c_str());
        setVortdConfFile(getVortdConfFile());
        EXPECT_EQ(getVortdConfFile(), name);
    }
}

TEST_F(ConfFile, IsOpenedWithTheGivenMode) {
    conf_.set(dir_.path("conf").c_str());
    char* name = nullptr;
    EXPECT_EQ(fopenConfFile("r", &name), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(name, getVortdConfFile());
    for (const char* mode : {"w", "a", "r+"}) {
        name = nullptr;
        const Stream stream(fopenConfFile(mode, &name));
        ASSERT_TRUE(stream) << mode;
        EXPECT_GE(std::fputs(mode, stream.get()), 0) << mode;
        EXPECT_EQ(name, dir_.path("conf"));
        EXPECT_EQ(fcntl(fileno(stream.get()), F_GETFD), FD_CLOEXEC) << mode;
    }
    EXPECT_EQ(content(), "r+");
    const Stream read_only(fopenConfFile("r", &name));
    ASSERT_TRUE(read_only);
    EXPECT_EQ(std::fputc('x', read_only.get()), EOF);
    EXPECT_EQ(fcntl(fileno(read_only.get()), F_GETFD), FD_CLOEXEC);
}

TEST_F(ConfFile, NullsOpenNothing) {
    conf_.set(dir_.write("conf", "x").c_str());
    char* name = nullptr;
    EXPECT_EQ(fopenConfFile(nullptr, &name), nullptr);
    EXPECT_EQ(fopenConfFile("r", nullptr), nullptr);
    EXPECT_EQ(fopenConfFile("", &name), nullptr);
}

TEST_F(ConfFile, ADirectoryCannotBeOpened) {
    conf_.set(dir_.path().c_str());
    EXPECT_EQ(content(), "Is a directory");
}

TEST_F(ConfFile, AFifoWithoutAWriterIsEmpty) {
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    conf_.set(fifo.c_str());
    EXPECT_EQ(content(), "");
}

}  // namespace
}  // namespace wq::test
