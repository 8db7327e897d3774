#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "EMS/events/nl_conflock.h"
#include "support/lock_holder.h"
#include "support/random.h"
#include "support/trap_conf.h"

namespace {

using namespace wq::test;

constexpr const char* configuration =
    "CATEGORY 3 \"Status Events\"\n"
    "#\n"
    "acme {1.3.6.1.4.1.4242}\n"
    "other {1.3.6.1.4.1.5000}\n"
    "#\n"
    "ACME_UP {1.3.6.1.4.1.4242} 6 1 A 1 0 \"Status Events\"\n"
    "up\n"
    "SDESC\n"
    "EDESC\n"
    "ACME_DOWN {1.3.6.1.4.1.4242} 6 2 A 1 0 \"Status Events\"\n"
    "down\n"
    "SDESC\n"
    "EDESC\n"
    "OTHER_UP {1.3.6.1.4.1.5000} 6 4000000000 A 1 0 \"Status Events\"\n"
    "up\n"
    "SDESC\n"
    "EDESC\n";

const std::string name_line = "ACME_UP {1.3.6.1.4.1.4242} 6 1\n";

/* A list as text: each subvector as "key type [code points] [identifier:text]". */
std::string told(const alert_record* list) {
    std::string text;
    char number[16];
    const auto hex = [&number](int value) {
        std::snprintf(number, sizeof number, "%x", static_cast<unsigned>(value));
        return number;
    };
    for (; list != nullptr; list = list->next) {
        text.append(hex(list->subvector)).append(" ").append(std::to_string(list->type));
        for (int i = 0; i < list->num_codepoints; ++i) {
            text.append(" ").append(hex(list->codepoints[i]));
        }
        for (int i = 0; i < list->num_detaileddata; ++i) {
            const detailed_data_record& item = *list->detailed_data[i];
            text.append(" ").append(hex(item.dataid)).append(":").append(item.dd_args->rawstring);
        }
        text.append(" | ");
    }
    return text;
}

/* Whether another process would get the lock. */
bool is_free(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock wanted {};
    wanted.l_type = F_WRLCK;
    wanted.l_whence = SEEK_SET;
    const bool asked = fd >= 0 && fcntl(fd, F_GETLK, &wanted) == 0;
    close(fd);
    return asked && wanted.l_type == F_UNLCK;
}

/* Descriptors of this process that are open on the file. */
int descriptors_of(const std::string& path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone) == path ? 1 : 0;
    }
    return count;
}

/* The pauses that the lock asks for, which then take no time. */
class FakePauses {
  public:
    FakePauses() {
        asked().clear();
        wq::pause_between_attempts = [](unsigned seconds) { asked().push_back(seconds); };
    }
    ~FakePauses() { wq::pause_between_attempts = before_; }
    FakePauses(const FakePauses&) = delete;
    FakePauses& operator=(const FakePauses&) = delete;

    static std::vector<unsigned>& asked() {
        static std::vector<unsigned> pauses;
        return pauses;
    }

  private:
    void (*before_)(unsigned) = wq::pause_between_attempts;
};

class Alerts : public TrapConf {
  protected:
    void SetUp() override { ASSERT_EQ(read(configuration), (ConfRead{0, ""})); }
    /* Lets go of what an error in a body left open. */
    void TearDown() override { read_alerts(""); }

    ConfRead read_alerts(std::string_view content) {
        path_ = dir_.write("alerts", content);
        return read_again();
    }
    static ConfRead read_again() {
        char* message = nullptr;
        const int result = read_ferlospec_file(&message);
        return {result, message};
    }
    static ConfRead write() {
        char* message = nullptr;
        const int result = write_ferlospec_file(&message);
        return {result, message};
    }
    /* The file without the line that tells the time. */
    std::string written() const {
        std::string text = dir_.read("alerts");
        constexpr std::string_view heading = "#\n# Created by zeltrap at ";
        EXPECT_TRUE(text.starts_with(heading)) << text;
        const size_t end = text.find('\n', heading.size());
        /* Sat Nov 21 10:15:00 2026 */
        EXPECT_EQ(end - heading.size(), 24U) << text;
        return end == std::string::npos ? text : text.substr(end + 1);
    }
    /* The message `text`, in which @ stands for the path, and a failure. */
    ConfRead failure(std::string text) const {
        return {-1, text.replace(text.find('@'), 1, dir_.path("alerts"))};
    }

    std::string path_;
};

/* ---- the grammar */

TEST_F(Alerts, AttachesEachKindOfSubvector) {
    EXPECT_EQ(read_alerts(name_line + "92 12 A001\n"
                                      "93 2 fe00 2132\n"
                                      "94 2 3301 33a2 1 10 \"one $1\"\n"
                                      "81 1 20d0 3 11 \"a\" 12 \"b c\" 13 \"\"\n"
                                      "95 1 01B0 1 14 \"two\"\n"
                                      "81 1 2000\n"
                                      "96 1 c1 2 15 \"x\" 16 \"y\"\n"
                                      "98 1 17 \"last\"\n"
                                      ";\n"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element),
              "92 18 a001 | 93 0 fe00 2132 | 94 0 3301 33a2 10:one $1 | "
              "81 0 20d0 11:a 12:b c 13: | 95 0 1b0 14:two | 81 0 2000 | "
              "96 0 c1 15:x 16:y | 98 0 17:last | ");
    EXPECT_STREQ(trap("ACME_UP")->alert_record_name, "ACME_UP");
    EXPECT_EQ(trap("ACME_DOWN")->alert_element, nullptr);
}

TEST_F(Alerts, TextsAreCompiled) {
    ASSERT_EQ(read_alerts(name_line + "98 1 17 \"from $2\" ;\n"), (ConfRead{0, ""}));
    const trap_element& text = *trap("ACME_UP")->alert_element->detailed_data[0]->dd_args;
    EXPECT_STREQ(text.format, "from %s");
    ASSERT_EQ(text.num_args, 1);
}

TEST_F(Alerts, AnEnterpriseMayHaveALeadingDot) {
    EXPECT_EQ(read_alerts("ACME_UP {.1.3.6.1.4.1.4242} 6 1\n92 1 1 ;\n"), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

TEST_F(Alerts, SpreadsABodyOverLinesAsItLikes) {
    EXPECT_EQ(read_alerts("# alerts\n\n  \t\n  # more\n" + name_line +
                          "\n92\n# in between\n\t12\n   \nA001 98 1 17\n\"a # b\"  ; what follows\n"
                          "#\n\nACME_DOWN {1.3.6.1.4.1.4242} 6 2\n 92 1 2\t;"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 18 a001 | 98 0 17:a # b | ");
    EXPECT_EQ(told(trap("ACME_DOWN")->alert_element), "92 1 2 | ");
}

TEST_F(Alerts, ReadsAFileWithoutAlerts) {
    EXPECT_EQ(read_alerts(""), (ConfRead{0, ""}));
    EXPECT_EQ(read_alerts("#\n\n"), (ConfRead{0, ""}));
}

TEST_F(Alerts, ACauseNeedsNoActionsAtTheEnd) {
    EXPECT_EQ(read_alerts(name_line + "94 1 1 ;"), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "94 0 1 | ");
}

TEST_F(Alerts, ABodyMayBeEmpty) {
    EXPECT_EQ(read_alerts(name_line + ";"), (ConfRead{0, ""}));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
}

TEST_F(Alerts, ASecondRecordReplacesTheFirst) {
    EXPECT_EQ(read_alerts(name_line + "98 1 1 \"first\" ;\n" + name_line + "98 1 2 \"second\" ;\n"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "98 0 2:second | ");
    EXPECT_EQ(read_again(), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "98 0 2:second | ");
}

TEST_F(Alerts, AlertsBeforeAnErrorStay) {
    EXPECT_EQ(read_alerts(name_line + "92 1 1 ;\nACME_DOWN\n").result, -1);
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

TEST_F(Alerts, EveryAllowedTypeAndNoOther) {
    for (const unsigned type : {1U, 2U, 3U, 0x11U, 0x12U}) {
        char line[32];
        std::snprintf(line, sizeof line, "92 %x 1 ;\n", type);
        EXPECT_EQ(read_alerts(name_line + line), (ConfRead{0, ""})) << line;
    }
    for (const char* type : {"0", "4", "10", "13", "17", "18", "ffffffff"}) {
        const std::string line = std::string("92 ").append(type).append(" 1 ;");
        EXPECT_EQ(read_alerts(name_line + line + "\n"),
                  failure("Invalid type around line #2 of \"@\": " + line + "\n"));
    }
}

TEST_F(Alerts, TheHighNibbleAsksForItems) {
    const char* items[] = {"", "", "", "", "", "", "", "", "", "", "1 9 \"a\"", "1 9 \"a\"",
                           "2 9 \"a\" 8 \"b\"", "3 9 \"a\" 8 \"b\" 7 \"c\"", "", ""};
    for (unsigned nibble = 0; nibble < std::size(items); ++nibble) {
        char point[16];
        std::snprintf(point, sizeof point, "A%xF ", nibble);
        EXPECT_EQ(read_alerts(name_line + "96 1 " + point + items[nibble] + " ;\n"),
                  (ConfRead{0, ""}))
            << point;
    }
}

/* ---- what is refused */

struct Refusal {
    const char* content;
    const char* message; /* @: the path */
};

/* Errors outside of a body. */
const Refusal refusals[] = {
    {"ACME_UP {1.3.6.1.4.1.4242} 6 1 x\n",
     "Bad name line in line #1 of \"@\": ACME_UP {1.3.6.1.4.1.4242} 6 1 x\n"
     "(matched 5, not4 tokens)\n"},
    {"#\n\n  ACME_UP {1.3.6.1.4.1.4242} 6\n",
     "Bad name line in line #3 of \"@\": ACME_UP {1.3.6.1.4.1.4242} 6\n(matched 3, not4 tokens)\n"},
    {"ACME_UP 1.3.6.1.4.1.4242 6 1\n",
     "Bad name line in line #1 of \"@\": ACME_UP 1.3.6.1.4.1.4242 6 1\n(matched 1, not4 tokens)\n"},
    {"ACME_UP {} 6 1\n",
     "Bad name line in line #1 of \"@\": ACME_UP {} 6 1\n(matched 1, not4 tokens)\n"},
    {"ACME_UP {1.3.x} 6 1\n", "Bad oid char in line #1 of \"@\": ACME_UP {1.3.x} 6 1\n"},
    {"ACME_UP {1.3.6.1.4.1.4241} 6 1\n",
     "No such enterprise as defined in line #1 of \"@\": ACME_UP {1.3.6.1.4.1.4241} 6 1\n"},
    {"ACME_UP {1.3.6.1.4.1.4242.5} 6 1\n",
     "No such enterprise exact (7 vs 8) as defined in line #1 of\"@\": "
     "ACME_UP {1.3.6.1.4.1.4242.5} 6 1\n"},
    {"\nACME_GONE {1.3.6.1.4.1.4242} 6 1\n",
     "Did not find a matching trap name at line #2 of \"@\"\n"},
};

TEST_F(Alerts, RefusesNameLines) {
    for (const Refusal& row : refusals) {
        EXPECT_EQ(read_alerts(row.content), failure(row.message)) << row.content;
        EXPECT_TRUE(is_free(path_)) << row.content;
        EXPECT_EQ(descriptors_of(path_), 0) << row.content;
    }
}

/* Errors in a body, which is all on the second line. */
struct BadBody {
    const char* body;
    const char* check; /* up to the number of the line */
};

const BadBody bad_bodies[] = {
    {"92 1 xyz ;", "Bad char in line"},
    {"92 1 -1 ;", "Bad char in line"},
    {"92 1 123456789 ;", "Bad char in line"},
    {"98 1 1 \"open ;", "Bad char in line"},
    {"98 1 1 \"", "Bad char in line"},
    {"92 1 1;", "Bad char in line"},
    {"97 1 1 ;", "Invalid subvector number around line"},
    {"82 1 1 ;", "Invalid subvector number around line"},
    {"0 ;", "Invalid subvector number around line"},
    {"80 ;", "Invalid subvector number around line"},
    {"99 ;", "Invalid subvector number around line"},
    {"92 1 1 ffffff92 ;", "Invalid subvector number around line"},
    {"92 4 1 ;", "Invalid type around line"},
    {"81 1 1 ;", "Cause subvector not define around line"},
    {"94 1 1 81 1 1 81 1 1 ;", "Cause subvector not define around line"},
    {"94 1 1 95 1 1 ;", "Recommended Actions not defined around line"},
    {"94 1 1 81 1 1 96 1 1 94 1 1 ;", "Recommended Actions not defined around line"},
    {"94 1 C1 1 9 \"a\" ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 C1 3 9 \"a\" 8 \"b\" 7 \"c\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
    {"94 2 C1 A1 2 9 \"a\" 8 \"b\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 1 81 1 A1 0 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 C1 2 9 8 \"a\" ;", "Not enough Detailed Data subfields defined around line"},
    {"94 1 1 81 1 A1 1 9 ;", "Not enough Detailed Data subfields defined aroundline"},
    {"98 2 9 8 \"a\" ;", "Not enough Detailed Data subfields defined aroundline"},
    /* A record that ends within a subvector. */
    {"92 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"92 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 2 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 ffffffff 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 2 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 A1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 A1 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 1 81 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 2 1 \"a\" ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 80000000 1 \"a\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
};

TEST_F(Alerts, RefusesBodiesAndStaysOpen) {
    for (const BadBody& row : bad_bodies) {
        const std::string message =
            std::string(row.check).append(" #2 of \"@\": ").append(row.body).append("\n");
        EXPECT_EQ(read_alerts(name_line + row.body + "\n"), failure(message)) << row.body;
        EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr) << row.body;
        EXPECT_FALSE(is_free(path_)) << row.body;
        EXPECT_EQ(descriptors_of(path_), 1) << row.body;
    }
    EXPECT_EQ(read_alerts(""), (ConfRead{0, ""}));
    EXPECT_TRUE(is_free(path_));
    EXPECT_EQ(descriptors_of(path_), 0);
}

TEST_F(Alerts, ChecksNameTheLastLineOfTheBody) {
    EXPECT_EQ(read_alerts(name_line + "92 4\n#\n1\n\n  ; the end\n"),
              failure("Invalid type around line #6 of \"@\": ; the end\n"));
}

TEST_F(Alerts, RefusesAMissingBody) {
    EXPECT_EQ(read_alerts(name_line),
              failure("Did not find a description line in line #1 of \"@\"\n"));
    EXPECT_FALSE(is_free(path_));
    EXPECT_EQ(read_alerts(name_line + "92 1 1\n#\n"),
              failure("Did not find a description line in line #3 of \"@\"\n"));
}

TEST_F(Alerts, ALineHolds1022BytesWithItsNewline) {
    const std::string body = "98 1 1 \"";
    const std::string fits = body + std::string(1021 - body.size() - 3, 'x') + "\" ;";
    ASSERT_EQ(fits.size(), 1021U);
    EXPECT_EQ(read_alerts(name_line + fits + "\n"), (ConfRead{0, ""}));
    EXPECT_EQ(read_alerts(name_line + fits + " \n"), failure("Line #2 of \"@\" too long\n"));
    EXPECT_FALSE(is_free(path_));
    EXPECT_EQ(read_alerts(name_line + "#" + std::string(5000, '#') + "\n" + fits + "\n"),
              failure("Line #2 of \"@\" too long\n"));
    EXPECT_EQ(read_alerts(std::string(100000, ' ') + name_line),
              failure("Line #1 of \"@\" too long\n"));
    EXPECT_TRUE(is_free(path_));
}

TEST_F(Alerts, EndsATextAtANul) {
    EXPECT_EQ(read_alerts(name_line + "92 1 1 ;" + std::string(1, '\0') + " xyz\n"),
              (ConfRead{0, ""}));
}

/* ---- the file */

TEST_F(Alerts, SaysWhyTheFileCannotBeOpened) {
    setenv("FERLOD_CONF", "/nowhere/alerts", 1);
    EXPECT_EQ(read_again(), (ConfRead{-1,
                                      "Could not lock ferlo format file \"/nowhere/alerts\": "
                                      "No such file or directory\n"}));
    EXPECT_EQ(write(), (ConfRead{-1,
                                 "Could not lock ferlo format file \"/nowhere/alerts\": "
                                 "No such file or directory\n"}));
    setenv("FERLOD_CONF", dir_.path().c_str(), 1);
    EXPECT_EQ(read_again(), (ConfRead{-1, "Could not lock ferlo format file \"" + dir_.path() +
                                              "\": Is a directory\n"}));
}

TEST_F(Alerts, TheTrapConfigurationIsReadAllTheSame) {
    setenv("FERLOD_CONF", "/nowhere/alerts", 1);
    EXPECT_EQ(read(configuration), (ConfRead{0,
                                             "Could not lock ferlo format file "
                                             "\"/nowhere/alerts\": No such file or directory\n"}));
    EXPECT_NE(trap("ACME_UP"), nullptr);
}

TEST_F(Alerts, AreReadWithTheTrapConfiguration) {
    dir_.write("alerts", name_line + "92 1 1 ;\n");
    EXPECT_EQ(read(configuration), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

/* What the trap configuration's reader has to say is not lost where the alerts are fine. */
TEST_F(Alerts, LeaveTheReadersOwnMessageAlone) {
    EXPECT_EQ(read(std::string(configuration) + std::string(60000, 'x')).message, "Line too long");
}

TEST_F(Alerts, GivesUpOnALockAfterSixAttempts) {
    const FakePauses pauses;
    const std::string path = dir_.write("alerts", name_line + "92 1 1 ;\n");
    const LockHolder holder(path);
    const ConfRead refused =
        failure("Could not lock ferlo format file \"@\": Resource temporarily unavailable\n");
    EXPECT_EQ(read_again(), refused);
    EXPECT_EQ(FakePauses::asked(), (std::vector<unsigned>{2, 3, 4, 5, 6}));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
    EXPECT_EQ(write(), refused);
    EXPECT_EQ(dir_.read("alerts"), name_line + "92 1 1 ;\n");
    EXPECT_EQ(descriptors_of(path), 0);
}

TEST_F(Alerts, ReadersShareTheLock) {
    const FakePauses pauses;
    const LockHolder holder(dir_.write("alerts", name_line + "92 1 1 ;\n"), F_RDLCK);
    EXPECT_EQ(read_again(), (ConfRead{0, ""}));
    EXPECT_TRUE(FakePauses::asked().empty());
}

TEST_F(Alerts, NullsFail) {
    EXPECT_EQ(read_ferlospec_file(nullptr), -1);
    EXPECT_EQ(write_ferlospec_file(nullptr), -1);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, nullptr, 0, 0, nullptr), -1);
    delete_ferlo_record(nullptr);
    const uint32_t oid[] = {1, 3};
    print_ferlo_rec(nullptr, trap("ACME_UP"), oid, 2);
    print_ferlo_rec(stderr, nullptr, oid, 2);
    print_ferlo_rec(stderr, trap("ACME_UP"), nullptr, 2);
}

/* ---- attaching and deleting */

alert_record* new_alert(int subvector) {
    auto* const list = static_cast<alert_record*>(doMalloc(sizeof(alert_record)));
    list->subvector = subvector;
    return list;
}

TEST_F(Alerts, AttachesAListToAConfiguredTrapOnly) {
    alert_record* const list = new_alert(0x92);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_GONE", 6, 1, list), -1);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, list), 0);
    EXPECT_EQ(trap("ACME_UP")->alert_element, list);
    EXPECT_STREQ(trap("ACME_UP")->alert_record_name, "ACME_UP");
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, list), 0) << "it is its own";
    EXPECT_EQ(trap("ACME_UP")->alert_element, list);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, new_alert(0x93)), 0);
    EXPECT_EQ(trap("ACME_UP")->alert_element->subvector, 0x93);
}

TEST_F(Alerts, DeletesAList) {
    ASSERT_EQ(read_alerts(name_line + "94 1 A1 1 9 \"a\" 81 1 1 98 2 9 \"b\" 8 \"c\" ;\n").result, 0);
    trap_record* const rec = trap("ACME_UP");
    delete_ferlo_record(rec);
    EXPECT_EQ(rec->alert_element, nullptr);
    delete_ferlo_record(rec);
    EXPECT_EQ(rec->alert_element, nullptr);
}

TEST_F(Alerts, DeletesRecordsThatLackParts) {
    alert_record* const list = new_alert(0x98);
    list->num_detaileddata = 2;
    list->detailed_data = static_cast<detailed_data_record**>(doMalloc(2 * sizeof(void*)));
    list->detailed_data[1] =
        static_cast<detailed_data_record*>(doMalloc(sizeof(detailed_data_record)));
    list->next = new_alert(0x98);
    list->next->num_detaileddata = 3;
    trap("ACME_UP")->alert_element = list;
    EXPECT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_NE(written().find("\n98 2 0 \"\" 0 \"\" \n98 0  ;\n"), std::string::npos);
    delete_ferlo_record(trap("ACME_UP"));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
}

/* ---- writing */

TEST_F(Alerts, WritesThemAsTheyAreRead) {
    ASSERT_EQ(read_alerts("OTHER_UP {1.3.6.1.4.1.5000} 6 7\n92 2 0 ;\n"
                          "ACME_DOWN {1.3.6.1.4.1.4242} 6 2\n93 0 95 1 7 ;\n" +
                          name_line +
                          "92 12 A001 93 2 FE00 2132 94 1 33C1 2 10 \"first $1\" 11 \"a  b\"\n"
                          "81 1 20A0 1 12 \"$2\" 98 1 20 \"\" ;\n"),
              (ConfRead{0, ""}));
    ASSERT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_EQ(written(),
              "#\n###################\n#\n"
              "ACME_UP {1.3.6.1.4.1.4242} 6 1 \n"
              "92 12 a001 \n"
              "93 2 fe00 2132 \n"
              "94 1 33c1 2 10 \"first $1\" 11 \"a  b\" \n"
              "81 1 20a0 1 12 \"$2\" \n"
              "98 1 20 \"\"  ;\n"
              "ACME_DOWN {1.3.6.1.4.1.4242} 6 2 \n"
              "93 0 \n"
              "95 1 7  ;\n"
              "OTHER_UP {1.3.6.1.4.1.5000} 6 4000000000 \n"
              "92 2 0  ;\n");
    EXPECT_TRUE(is_free(path_));
    EXPECT_EQ(descriptors_of(path_), 0);
}

TEST_F(Alerts, WritesAShorterTextOverALongerOne) {
    ASSERT_EQ(read_alerts("#" + std::string(900, '#') + "\n").result, 0);
    EXPECT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_EQ(written(), "#\n###################\n#\n");
}

TEST_F(Alerts, PrintsOneRecord) {
    ASSERT_EQ(read_alerts(name_line + "92 11 FFFF ;\n").result, 0);
    char* text = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&text, &size);
    const uint32_t oid[] = {1, 3, 6};
    print_ferlo_rec(stream, trap("ACME_UP"), oid, 3);
    fclose(stream);
    EXPECT_EQ(std::string(text, size), "ACME_UP {1.3.6} 6 1 \n92 11 ffff  ;\n");
    std::free(text);
}

TEST_F(Alerts, PadsAKeyOfOneDigit) {
    trap("ACME_UP")->alert_element = new_alert(5);
    ASSERT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_NE(written().find("\n 5 0  ;\n"), std::string::npos);
}

std::string random_text(Random& random) {
    std::string text = "\"";
    for (uint32_t i = random.between(0, 12); i > 0; --i) {
        text.push_back("ab $1%;#9.-"[random.between(0, 10)]);
    }
    return text.append("\"");
}

std::string random_items(Random& random, uint32_t count) {
    std::string text;
    char number[16];
    std::snprintf(number, sizeof number, "%x ", count);
    text.append(number);
    for (; count > 0; --count) {
        std::snprintf(number, sizeof number, "%x ", random.any_size());
        text.append(number).append(random_text(random)).append(random.one_in(3) ? "\n" : " ");
    }
    return text;
}

/* A count, code points, and the items that they ask for. */
std::string random_points(Random& random, bool with_items) {
    constexpr uint32_t asked[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 2, 3, 0, 0};
    const uint32_t count = random.between(0, 5);
    uint32_t items = 0;
    char number[16];
    std::snprintf(number, sizeof number, "%x ", count);
    std::string text(number);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t point = random.any_size();
        items += asked[point >> 4 & 0xF];
        std::snprintf(number, sizeof number, "%X ", point);
        text.append(number);
    }
    return with_items && items > 0 ? text.append(random_items(random, items)) : text;
}

std::string random_body(Random& random) {
    const char* causes[] = {"94 ", "95 ", "96 "};
    const char* types[] = {"1 ", "2 ", "3 ", "11 ", "12 "};
    std::string text;
    bool open = false;
    for (uint32_t i = random.between(1, 6); i > 0; --i) {
        switch (random.between(0, 3)) {
            case 0:
                text.append("92 ").append(types[random.between(0, 4)]).append("A001\n");
                break;
            case 1:
                text.append("93 ").append(random_points(random, false));
                break;
            case 2:
                text.append(open ? "81 " : causes[random.between(0, 2)]);
                text.append(random_points(random, true));
                open = !open;
                break;
            default:
                text.append("98 ").append(random_items(random, random.between(0, 4)));
        }
    }
    return text.append(" ;\n");
}

TEST_F(Alerts, WhatIsWrittenReadsTheSame) {
    Random random;
    SCOPED_TRACE(random.name());
    for (int round = 0; round < 40; ++round) {
        ASSERT_EQ(read_alerts(name_line + random_body(random) +
                              "OTHER_UP {1.3.6.1.4.1.5000} 6 7\n" + random_body(random)),
                  (ConfRead{0, ""}));
        const std::string acme = told(trap("ACME_UP")->alert_element);
        const std::string other = told(trap("OTHER_UP")->alert_element);
        ASSERT_EQ(write(), (ConfRead{0, ""}));
        const std::string first = written();
        delete_ferlo_record(trap("ACME_UP"));
        delete_ferlo_record(trap("OTHER_UP"));
        ASSERT_EQ(read_again(), (ConfRead{0, ""})) << first;
        ASSERT_EQ(told(trap("ACME_UP")->alert_element), acme) << first;
        ASSERT_EQ(told(trap("OTHER_UP")->alert_element), other) << first;
        ASSERT_EQ(write(), (ConfRead{0, ""}));
        ASSERT_EQ(written(), first);
    }
}

TEST(AlertTables, HoldWhatProgramsBuildAlertsFrom) {
    const auto values = [](const uint32_t(&table)[7]) {
        return std::vector<uint32_t>(std::begin(table), std::end(table));
    };
    using Values = std::vector<uint32_t>;
    EXPECT_EQ(values(TA_GA_ALERT_TYPES), (Values{18, 18, 1, 18, 17, 1, 18}));
    EXPECT_EQ(values(TA_GA_ALERT_TYPES_NC), (Values{18, 18, 1, 18, 18, 1, 18}));
    EXPECT_EQ(values(TA_GA_CODEPOINTS),
              (Values{0xA000, 0xA000, 0x3300, 0xA000, 0xC00A, 0x3305, 0xB00C}));
    EXPECT_EQ(values(TA_PC_CODEPOINTS),
              (Values{0xFE00, 0xFE00, 0x2132, 0x2132, 0x6700, 0x2200, 0xFE00}));
}

}  // namespace
