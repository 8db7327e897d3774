#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/capture.h"
#include "support/env_value.h"
#include "support/random.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace {

using namespace wq::test;

/* A model that goes away with the test. */
class WriteConfiguration : public ::testing::Test {
  protected:
    void SetUp() override { setVortdConfFile(file.c_str()); }
    void TearDown() override {
        free_all_info();
        setVortdConfFile(nullptr);
    }

    static trap_record* add(const char* enterprise, const char* name, int generic, int specific,
                            const char* format, std::vector<const char*> nodes = {}) {
        uint32_t numbers[64];
        int count = 0;
        cname_to_oid(enterprise, numbers, &count);
        enterprise_info* found = nullptr;
        find_enterprise(numbers, static_cast<uint32_t>(count), &found);
        char** list = nullptr;
        int used = 0;
        int room = 0;
        for (const char* node : nodes) {
            trpFmtAddSourceToList(&used, &room, &list, node);
        }
        return insertMallocTrapRecord(found, name, generic, specific, used, list, 3, 'A',
                                      doStrdup(format), nullptr, nullptr, nullptr, 2, 1, 0, nullptr,
                                      0, nullptr, nullptr);
    }

    /* Each read fills one standard slot that is empty; a model with all of them stays the same. */
    static void add_standard_categories() {
        const std::pair<int, const char*> standard[] = {
            {0, threshCatString},  {1, nettopCatString},   {2, errorCatString},
            {3, statusCatString},  {4, nodeconfCatString}, {5, applalertCatString},
            {7, logOnlyCatString}, {9, ignoreCatString}};
        for (const auto& [slot, name] : standard) {
            EMScategories[slot] = doStrdup(name);
        }
    }

    /* Writes the model; the text without the line that tells time and user. */
    std::string written() {
        EXPECT_EQ(write_trapspec_file(std::fopen(file.c_str(), "w+")), 0);
        const std::string text = dir.read("vortd.conf");
        const std::regex stamp("^#\n# Created by zeltrap at [^\n]*\n");
        EXPECT_TRUE(std::regex_search(text, stamp)) << text;
        return std::regex_replace(text, stamp, "#\n", std::regex_constants::format_first_only);
    }

    static int read(std::string& message) {
        char* text = nullptr;
        const int result = read_trapspec_file(&text);
        message = text == nullptr ? "" : text;
        return result;
    }

    TempDir dir;
    std::string file = dir.path("vortd.conf");
    EnvValue alerts{"FERLOD_CONF", dir.path("ferlod.conf")};
};

TEST_F(WriteConfiguration, OfNothingIsTheBanners) {
    EXPECT_EQ(written(),
              "#\n#\n###################\n#\n# enterprises:\n#\n"
              "###################\n#\n# display categories:\n#\n"
              "###################\n#\n# enterprises:\n#\n"
              "#\n# User added trap formats:\n#\n");
}

TEST_F(WriteConfiguration, TellsTimeAndUser) {
    ASSERT_EQ(write_trapspec_file(std::fopen(file.c_str(), "w+")), 0);
    const std::string text = dir.read("vortd.conf");
    const std::regex stamp(
        "^#\n# Created by zeltrap at ([A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} "
        "[0-9:]{8} [0-9]{4}) by ([^\n]+)\n#\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text, match, stamp)) << text;
    tm parsed{};
    ASSERT_NE(strptime(match[1].str().c_str(), "%a %b %d %H:%M:%S %Y", &parsed), nullptr);
    parsed.tm_isdst = -1;
    EXPECT_NEAR(static_cast<double>(mktime(&parsed)), static_cast<double>(time(nullptr)), 5);
    const passwd* const user = getpwuid(geteuid());
    EXPECT_EQ(match[2].str(), user == nullptr ? std::to_string(geteuid()) : user->pw_name);
}

TEST_F(WriteConfiguration, HasEverySectionAsTheReaderWantsIt) {
    const uint32_t oid[] = {1, 3, 6, 1, 4, 1, 4242};
    EMScategories[0] = doStrdup("Threshold Events");
    EMScategories[3] = doStrdup("Status Events");
    actionCommands = static_cast<actionCmd*>(doMalloc(2 * sizeof(actionCmd)));
    numActionCommands = 2;
    actionCommands[0] = {doStrdup("page"), doStrdup("Pages\nsomebody"), 30, doStrdup("page now")};
    actionCommands[1] = {doStrdup("nothing"), nullptr, 0, doStrdup("")};
    insert_enterprise(oid, 7, "acme");
    trap_record* const rec = add("1.3.6.1.4.1.4242", "fanFailed", 6, 17, "Fan $1 failed");
    rec->execargs_ptr = static_cast<trap_element*>(doMalloc(sizeof(trap_element)));
    makeFormatString(doStrdup("/bin/page $A"), rec->execargs_ptr);
    rec->exec_display_args_ptr = static_cast<trap_element*>(doMalloc(sizeof(trap_element)));
    makeFormatString(doStrdup("show $1"), rec->exec_display_args_ptr);
    rec->forward = 1;
    rec->prxClassName = doStrdup("FAN");
    rec->trapDescription = doStrdup("A fan\nstands still.");
    rec->slotMap = static_cast<prxSlotMapping*>(doMalloc(sizeof(prxSlotMapping)));
    rec->slotMap->slotCnt = 1;
    rec->slotMap->slotName = static_cast<char**>(doMalloc(sizeof(char*)));
    rec->slotMap->slotVal = static_cast<char**>(doMalloc(sizeof(char*)));
    rec->slotMap->slotName[0] = doStrdup("number");
    rec->slotMap->slotVal[0] = doStrdup("$1 of 4");
    add("1.3.6.1.4.1.4242", "fanFailedHere", 6, 17, "Here", {"alpha", "beta"});
    EXPECT_EQ(written(),
              "#\n#\n###################\n#\n# enterprises:\n#\n"
              "###################\n#\n# display categories:\n#\n"
              "CATEGORY 0 \"Threshold Events\"\nCATEGORY 3 \"Status Events\"\n"
              "###################\n#\n# Operator Actions:\n#\n"
              "ACTION 30 \"page\" page now\nSDESC\nPages\nsomebody\nEDESC\n"
              "ACTION 0 \"nothing\" \nSDESC\n\nEDESC\n"
              "###################\n#\n# enterprises:\n#\n"
              "acme {1.3.6.1.4.1.4242}\n"
              "#\n# User added trap formats:\n#\n"
              "fanFailedHere {1.3.6.1.4.1.4242} 6 17 A 2 1 \"Status Events\"\nHere\n"
              "NODES alpha beta\nSDESC\nEDESC\n"
              "fanFailed {1.3.6.1.4.1.4242} 6 17 A 2 1 \"Status Events\"\nFan $1 failed\n"
              "EXEC /bin/page $A\nDISPLAY show $1\nFORWARD\nEVENT_CLASS FAN\n"
              "BEGIN_SLOT_MAPPING\n number $1 of 4\nEND_SLOT_MAPPING\n"
              "SDESC\nA fan\nstands still.\nEDESC\n");
}

TEST_F(WriteConfiguration, WritesKeywordsAsTheyAreSpelt) {
    const uint32_t oid[] = {1, 3, 6};
    EMScategories[3] = doStrdup("x");
    insert_enterprise(oid, 3, "acme");
    add("1.3.6", "trap", 1, 0, "f", {"n"});
    const char* const before = std::exchange(nodesKeyword, "SOURCES");
    const char* const category = std::exchange(categoryKeyword, "KIND");
    const std::string text = written();
    nodesKeyword = before;
    categoryKeyword = category;
    EXPECT_NE(text.find("\nSOURCES n\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nKIND 3 \"x\"\n"), std::string::npos) << text;
}

TEST_F(WriteConfiguration, WritesAnEmptyNameForAnEmptySlot) {
    const uint32_t oid[] = {1, 3, 6};
    insert_enterprise(oid, 3, "acme");
    add("1.3.6", "trap", 1, 0, "f")->category_number = 64;
    add("1.3.6", "other", 2, 0, "f");
    const std::string text = written();
    EXPECT_NE(text.find("trap {1.3.6} 1 0 A 2 1 \"\"\nf\n"), std::string::npos) << text;
    EXPECT_NE(text.find("other {1.3.6} 2 0 A 2 1 \"\"\nf\n"), std::string::npos) << text;
}

TEST_F(WriteConfiguration, LeavesOutTextsThatWereNotKept) {
    const uint32_t oid[] = {1, 3, 6};
    insert_enterprise(oid, 3, "acme");
    trpFormatDontMallocRaw = 1;
    trap_record* const rec = add("1.3.6", "trap", 1, 0, "f");
    rec->execargs_ptr = static_cast<trap_element*>(doMalloc(sizeof(trap_element)));
    makeFormatString(doStrdup("e"), rec->execargs_ptr);
    trpFormatDontMallocRaw = 0;
    const std::string text = written();
    EXPECT_NE(text.find("trap {1.3.6} 1 0 A 2 1 \"\"\n\nSDESC\nEDESC\n"), std::string::npos)
        << text;
}

TEST_F(WriteConfiguration, CutsIdentifiersAtAHundredNumbers) {
    std::vector<uint32_t> oid(101, 1);
    oid[99] = 77;
    oid[100] = 88;
    insert_enterprise(oid.data(), 101, "deep");
    const std::string text = written();
    EXPECT_NE(text.find(".77}\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("88"), std::string::npos) << text;
}

/* Random models: what is written reads back as the same, and is written again byte for byte. */
TEST_F(WriteConfiguration, ReadsBackAsWritten) {
    Random random;
    SCOPED_TRACE(random.name());
    const auto word = [&random] {
        std::string text;
        for (uint32_t i = random.between(1, 12); i > 0; --i) {
            text.push_back(static_cast<char>('a' + random.between(0, 25)));
        }
        return text;
    };
    int unique = 100;
    for (int round = 0; round < 20; ++round) {
        free_all_info();
        add_standard_categories();
        for (uint32_t e = random.between(1, 5); e > 0; --e) {
            const uint32_t oid[] = {1, 3, 6, 1, 4, 1, random.between(1, 9), random.between(1, 9)};
            const uint32_t length = random.between(6, 8);
            insert_enterprise(oid, length, word().c_str());
            const std::string dotted = oid_to_string(oid, length);
            for (uint32_t t = random.between(0, 20); t > 0; --t) {
                /* Unique, since an update takes a name that another record may have. */
                const std::string name = word().append(std::to_string(++unique));
                const std::string format = word().append(" $1 ").append(word());
                const std::string node = word();
                /* Of the same numbers, at most one with nodes: each read turns such ones round. */
                const bool with_node = random.one_in(3);
                const int specific = with_node ? ++unique : static_cast<int>(random.between(0, 5));
                trap_record* const rec =
                    add(dotted.c_str(), name.c_str(), static_cast<int>(random.between(0, 6)),
                        specific, format.c_str(),
                        with_node ? std::vector{node.c_str()} : std::vector<const char*>());
                ASSERT_NE(rec, nullptr);
                if (rec->prxClassName == nullptr && random.one_in(4)) {
                    rec->prxClassName = doStrdup(word().c_str());
                }
                rec->forward = random.one_in(5) ? 1 : 0;
                if (rec->trapDescription == nullptr && random.one_in(2)) {
                    rec->trapDescription = doStrdup(word().append("\n").append(word()).c_str());
                }
            }
        }
        const std::string first = written();
        std::string message;
        ASSERT_EQ(read(message), 0) << message;
        ASSERT_TRUE(written() == first);
    }
}

TEST_F(WriteConfiguration, ClosesTheStreamOnSuccessOnly) {
    std::FILE* const readable = std::fopen(dir.write("r", "old").c_str(), "r");
    const std::string said = captured_stderr([&] { EXPECT_EQ(write_trapspec_file(readable), -1); });
    EXPECT_EQ(said, "Bad return code from truncate of vortdconf file\n");
    EXPECT_EQ(std::fgetc(readable), 'o');
    std::fclose(readable);
    EXPECT_EQ(dir.read("r"), "old");
    EXPECT_EQ(write_trapspec_file(nullptr), -1);
}

TEST_F(WriteConfiguration, SaysWhichEnterpriseHasNoIdentifier) {
    const uint32_t oid[] = {1, 3, 6};
    dir.write("vortd.conf", "# old\n");
    insert_enterprise(oid, 3, "acme");
    enterprise_info* const acme = enterprise_list_head.next;
    uint32_t* const numbers = acme->enterprise_oid;
    std::FILE* const stream = std::fopen(file.c_str(), "r+");
    for (const bool is_null : {true, false}) {
        acme->enterprise_oid = is_null ? nullptr : numbers;
        acme->oid_len = is_null ? 3 : 0;
        errno = 0;
        int error = 0;
        const std::string said = captured_stderr([&] {
            EXPECT_EQ(write_trapspec_file(stream), -1);
            error = errno;
        });
        EXPECT_EQ(said,
                  "Enterprise \"acme\" has no object identifier: vortdconf file not written\n");
        EXPECT_EQ(error, EINVAL);
    }
    acme->enterprise_oid = numbers;
    acme->oid_len = 3;
    std::fclose(stream);
    EXPECT_EQ(dir.read("vortd.conf"), "# old\n");
}

TEST_F(WriteConfiguration, FailsOnWhatIsNoFile) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::FILE* const stream = fdopen(ends[1], "w");
    const std::string said = captured_stderr([&] { EXPECT_EQ(write_trapspec_file(stream), -1); });
    EXPECT_EQ(said, "Bad return code from truncate of vortdconf file\n");
    std::fclose(stream);
    close(ends[0]);
}

TEST_F(WriteConfiguration, WritesToAnAppendingStream) {
    dir.write("vortd.conf", std::string(5000, 'x'));
    std::FILE* const stream = std::fopen(file.c_str(), "a+");
    ASSERT_EQ(write_trapspec_file(stream), 0);
    EXPECT_EQ(dir.read("vortd.conf").find('x'), std::string::npos);
    EXPECT_EQ(dir.read("vortd.conf").find("#\n# Created by zeltrap at "), 0U);
}

TEST_F(WriteConfiguration, ALimitOnFileSizesLeavesTheOldText) {
    dir.write("vortd.conf", "# old\n");
    const pid_t child = fork();
    if (child == 0) {
        const rlimit small{100, 100};
        setrlimit(RLIMIT_FSIZE, &small);
        const int null = dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        const int result = write_trapspec_file(std::fopen(file.c_str(), "r+"));
        _exit(null >= 0 && result == -1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(dir.read("vortd.conf"), "# old\n");
}

TEST_F(WriteConfiguration, AFullDiskLeavesTheOldText) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] {
        ASSERT_EQ(mount("tmpfs", "/usr/WQ", "tmpfs", 0, "size=16k"), 0);
        const uint32_t oid[] = {1, 3, 6};
        insert_enterprise(oid, 3, "acme");
        add("1.3.6", "trap", 1, 0, std::string(4000, 'f').c_str());
        for (int i = 0; i < 10; ++i) {
            add("1.3.6", "trap", 2, i, std::string(4000, 'f').c_str());
        }
        std::FILE* const old = std::fopen("/usr/WQ/vortd.conf", "w");
        std::fputs("# old\n", old);
        std::fclose(old);
        std::FILE* const stream = std::fopen("/usr/WQ/vortd.conf", "r+");
        const std::string said =
            captured_stderr([&] { EXPECT_EQ(write_trapspec_file(stream), -1); });
        EXPECT_EQ(said, "Bad return code from truncate of vortdconf file\n");
        char text[64] = "";
        std::rewind(stream);
        const size_t got = std::fread(text, 1, sizeof text, stream);
        EXPECT_EQ(std::string(text, got), "# old\n");
        std::fclose(stream);
        free_all_info();
    });
}

/* Killed at random moments, an editor leaves the old text, the new one, or one that no read takes.
 */
TEST_F(WriteConfiguration, AKilledEditorLeavesNothingUnnoticed) {
    Random random;
    SCOPED_TRACE(random.name());
    const uint32_t oid[] = {1, 3, 6};
    add_standard_categories();
    insert_enterprise(oid, 3, "acme");
    for (int i = 0; i < 2000; ++i) {
        const std::string name = std::string("trap").append(std::to_string(i));
        add("1.3.6", name.c_str(), 6, i, "a text that is not too short");
    }
    const std::string complete = written();
    for (int round = 0; round < 40; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            for (;;) {
                write_trapspec_file(std::fopen(file.c_str(), "r+"));
            }
        }
        usleep(random.between(0, 5000));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::string message;
        if (read(message) != 0) {
            EXPECT_TRUE(dir.read("vortd.conf").starts_with("!\n"));
            EXPECT_NE(message.find("Bad name line (matched 1, not 8 tokens)"), std::string::npos)
                << message;
            dir.write("vortd.conf", "#\n# Created by zeltrap at\n" + complete.substr(2));
            ASSERT_EQ(read(message), 0) << message;
        }
        ASSERT_TRUE(written() == complete);
    }
}

TEST_F(WriteConfiguration, OneRecordAlone) {
    const uint32_t oid[] = {1, 3, 6};
    insert_enterprise(oid, 3, "acme");
    trap_record* const rec = add("1.3.6", "trap", -1, 0, "100%");
    char* text = nullptr;
    size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    print_trap_rec(stream, rec, oid, 3);
    print_trap_rec(nullptr, rec, oid, 3);
    print_trap_rec(stream, nullptr, oid, 3);
    print_trap_rec(stream, rec, nullptr, 3);
    std::fclose(stream);
    EXPECT_EQ(std::string(text, size), "trap {1.3.6} -1 0 A 2 1 \"\"\n100%\nSDESC\nEDESC\n");
    free(text);
}

}  // namespace
