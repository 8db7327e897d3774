#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/trace.h>

#include <array>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "EMS/events/nl__eventsMsg.h"
#include "support/env_value.h"
#include "support/temp_dir.h"

namespace {
bool copies_fail = false;
}

/* Takes the place of the C library's, so that a copy can be made to fail. */
extern "C" char* strdup(const char* text) noexcept {
    if (copies_fail) {
        errno = ENOMEM;
        return nullptr;
    }
    const size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(std::malloc(size));
    return copy != nullptr ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
}

namespace {

using wq::test::EnvValue;
using wq::test::TempDir;

const std::string built_catalogue = WQEVENTS_BUILD_DIR "/catalogs/C/events.cat";

struct Message {
    int number;
    const char* text;
    const char* german; /* as written in the catalogue's source */
};

const Message messages[] = {
    {1, "Remote does not support SNMP.", "Die Gegenstelle kann kein SNMP."},
    {2, "FMT ERROR: accessing element #%d, only %d available",
     "FORMATFEHLER: Element Nr. %d verlangt, nur %d vorhanden"},
    {3, "Cannot read MIB intermediate file '%s'\n",
     "MIB-Zwischendatei '%s' kann nicht gelesen werden"},
    {4, ": MIB file updated.", ": MIB-Datei aktualisiert."},
    {5, ": format file updated next format", ": Formatdatei aktualisiert"},
    {6, "Format string too long", "Formattext zu lang"},
    {7, "Could not open configuration file \"%s\".\nError %d: %s.\n",
     "Konfigurationsdatei %s nicht zu öffnen. Fehler %d: %s."},
    {8,
     "Another Event Configuration process is already running.\n"
     "Could not lock configuration file \"%s\".\nError %d: %s.\n",
     "Konfigurationsdatei %s ist gesperrt. Fehler %d: %s."},
    {9, "%s changed format file \"%s\"", "%s hat die Formatdatei %s geändert"},
};

/*
 * The catalogue opens once a process, so each case has its own. What goes wrong in it is told by
 * the assertions' texts, which the child prints, and by its exit status.
 */
void in_child(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        body();
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

/* No catalogue is found, wherever the tests run. */
class EventsMsg : public ::testing::Test {
  protected:
    TempDir dir_;
    EnvValue search_{"NLSPATH", dir_.path("%N")};
    EnvValue language_{"LANG", "xx_XX"};
};

TEST_F(EventsMsg, DescriptorIsInvalidBeforeFirstUse) {
    in_child([] { EXPECT_EQ(reinterpret_cast<nl_catd>(-1), ___eventsMsg_fd__()); });
}

TEST_F(EventsMsg, MissingCatalogueGivesTheDefaults) {
    in_child([] {
        for (const Message& message : messages) {
            EXPECT_STREQ(message.text, _eventsMsg(1, message.number, message.text));
        }
        EXPECT_EQ(reinterpret_cast<nl_catd>(-1), ___eventsMsg_fd__());
    });
}

TEST_F(EventsMsg, MessageZeroIsTheDefaultItself) {
    in_child([] {
        const char text[] = "text";
        EXPECT_EQ(text, _eventsMsg(1, 0, text));
        EXPECT_EQ(nullptr, _eventsMsg(1, 0, nullptr));
    });
}

TEST_F(EventsMsg, CachedCopyStaysTheSame) {
    in_child([] {
        char text[] = "text";
        const char* copy = _eventsMsg(1, 25, text);
        EXPECT_NE(text, copy);
        EXPECT_STREQ("text", copy);
        text[0] = 'T';
        EXPECT_EQ(copy, _eventsMsg(1, 25, text));
        EXPECT_EQ(copy, _eventsMsg(1, 25, "another default"));
        EXPECT_EQ(copy, _eventsMsg(1, 25, nullptr));
        EXPECT_STREQ("text", copy);
    });
}

TEST_F(EventsMsg, GrowingKeepsCachedCopies) {
    in_child([] {
        const char* copy = _eventsMsg(1, 3, "three");
        for (int number = 9; number < 3000; number += 9) {
            const std::string text = "text " + std::to_string(number);
            EXPECT_EQ(text, _eventsMsg(1, number, text.c_str()));
        }
        EXPECT_EQ(copy, _eventsMsg(1, 3, "other"));
        EXPECT_STREQ("text 2997", _eventsMsg(1, 2997, "other"));
    });
}

TEST_F(EventsMsg, SetsAreApart) {
    in_child([] {
        for (int set = 0; set <= 50; ++set) {
            const std::string text = "set " + std::to_string(set);
            EXPECT_EQ(text, _eventsMsg(set, 1, text.c_str()));
        }
        EXPECT_STREQ("set 50", _eventsMsg(50, 1, "other"));
    });
}

TEST_F(EventsMsg, TopBitsOfTheSetAreIgnored) {
    in_child([] {
        const char* copy = _eventsMsg(1, 4, "text");
        EXPECT_EQ(copy, _eventsMsg(0x40000001, 4, "other"));
        EXPECT_EQ(copy, _eventsMsg(INT_MIN + 1, 4, "other"));
    });
}

TEST_F(EventsMsg, NumbersOutOfRangeGiveTheDefaultItself) {
    in_child([] {
        const char text[] = "text";
        for (const int set : {51, 1000, 0x3FFFFFFF, -1, -2, INT_MAX}) {
            errno = EDOM;
            EXPECT_EQ(text, _eventsMsg(set, 1, text)) << set;
            EXPECT_EQ(EDOM, errno) << set;
        }
        for (const int number : {-1, -25, INT_MIN}) {
            errno = EDOM;
            EXPECT_EQ(text, _eventsMsg(1, number, text)) << number;
            EXPECT_EQ(EDOM, errno) << number;
        }
    });
}

TEST_F(EventsMsg, HugeNumberCountsAsOutOfMemory) {
    in_child([] {
        const char text[] = "text";
        const char* kept = _eventsMsg(1, 4, "four");
        for (const int number : {32768, 1000000000, INT_MAX}) {
            errno = EDOM;
            EXPECT_EQ(text, _eventsMsg(1, number, text)) << number;
            EXPECT_EQ(ENOMEM, errno) << number;
        }
        EXPECT_EQ(kept, _eventsMsg(1, 4, "other")) << "texts handed out stay valid";
        EXPECT_STREQ("text", _eventsMsg(1, 32767, text));
    });
}

TEST_F(EventsMsg, ErrnoIsKept) {
    in_child([] {
        errno = EDOM;
        EXPECT_EQ(nullptr, _eventsMsg(1, 7, nullptr));
        EXPECT_EQ(EDOM, errno);
        _eventsMsg(1, 0, "first use opens the catalogue");
        EXPECT_EQ(EDOM, errno);
        _eventsMsg(1, 7, "not there");
        EXPECT_EQ(EDOM, errno);
        _eventsMsg(1, 7, "cached");
        EXPECT_EQ(EDOM, errno);
    });
}

TEST_F(EventsMsg, NullDefaultIsNotCached) {
    in_child([] {
        EXPECT_EQ(nullptr, _eventsMsg(1, 7, nullptr));
        EXPECT_STREQ("text", _eventsMsg(1, 7, "text"));
    });
}

TEST_F(EventsMsg, FailedCopyGivesTheDefaultItself) {
    in_child([] {
        const char text[] = "text";
        errno = EDOM;
        copies_fail = true;
        EXPECT_EQ(text, _eventsMsg(1, 7, text));
        EXPECT_EQ(ENOMEM, errno);
        copies_fail = false;
        EXPECT_NE(text, _eventsMsg(1, 7, text));
        EXPECT_STREQ("text", _eventsMsg(1, 7, text));
    });
}

#if defined(__SANITIZE_ADDRESS__)
#define WITH_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WITH_ADDRESS_SANITIZER
#endif
#endif

TEST_F(EventsMsg, FailedGrowthGivesTheDefaultItself) {
#ifdef WITH_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer needs the address space that this test takes away";
#endif
    in_child([] {
        const char text[] = "text";
        const char* kept = _eventsMsg(1, 4, "four");
        const rlimit none{0, RLIM_INFINITY};
        const rlimit all{RLIM_INFINITY, RLIM_INFINITY};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &none));
        errno = EDOM;
        const char* result = _eventsMsg(1, 32767, text);
        const int error = errno;
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &all));
        EXPECT_EQ(text, result);
        EXPECT_EQ(ENOMEM, error);
        EXPECT_EQ(kept, _eventsMsg(1, 4, "other"));
        EXPECT_NE(text, _eventsMsg(1, 32767, text));
    });
}

TEST_F(EventsMsg, FirstUseSetsTheMessageLocale) {
    EnvValue all("LC_ALL", nullptr);
    EnvValue of_messages("LC_MESSAGES", "C.UTF-8");
    in_child([] {
        EXPECT_STREQ("C", setlocale(LC_MESSAGES, nullptr));
        _eventsMsg(1, 0, "text");
        EXPECT_STREQ("C.UTF-8", setlocale(LC_MESSAGES, nullptr));
        EXPECT_STREQ("C", setlocale(LC_CTYPE, nullptr)) << "no other category changes";
    });
}

TEST_F(EventsMsg, ShippedCatalogueHoldsTheDefaults) {
    if (!std::filesystem::exists(built_catalogue)) {
        GTEST_SKIP() << "built without gencat";
    }
    search_.set(built_catalogue.c_str());
    in_child([] {
        for (const Message& message : messages) {
            EXPECT_STREQ(message.text, _eventsMsg(1, message.number, "missing"));
        }
        EXPECT_NE(reinterpret_cast<nl_catd>(-1), ___eventsMsg_fd__());
        EXPECT_STREQ("missing", _eventsMsg(1, 10, "missing"));
        EXPECT_STREQ("missing", _eventsMsg(2, 1, "missing"));
    });
}

TEST_F(EventsMsg, OtherLanguageWins) {
    std::string source = "$ codeset=UTF-8\n$quote \"\n$set 1\n";
    for (const Message& message : messages) {
        source += std::to_string(message.number) + " \"" + message.german + "\"\n";
    }
    const std::string input = dir_.write("events_de.msg", source);
    std::filesystem::create_directory(dir_.path("de"));
    const std::string command = "gencat '" + dir_.path("de/events.cat") + "' '" + input + "'";
    const int status = std::system(command.c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
        GTEST_SKIP() << "gencat is not installed";
    }
    ASSERT_EQ(0, status);
    search_.set(dir_.path("%l/%N").c_str());
    language_.set("de_DE.UTF-8");
    in_child([] {
        for (const Message& message : messages) {
            EXPECT_STREQ(message.german, _eventsMsg(1, message.number, message.text));
        }
        EXPECT_STREQ("text", _eventsMsg(1, 10, "text"));
    });
}

/* The recipe of the documentation, with another prefix. */
std::string documented_path(const std::string& prefix) {
    const std::string documented = "NLSPATH=/usr/local/share/locale";
    std::ifstream page(WQEVENTS_TEST_DATA "/../docs/channel.md");
    for (std::string line; std::getline(page, line);) {
        if (const size_t at = line.find(documented); at != std::string::npos) {
            return prefix + line.substr(at + documented.size());
        }
    }
    return "not documented";
}

TEST_F(EventsMsg, DocumentedPathFindsTheLanguage) {
    for (const char* language : {"C", "en"}) {
        const std::string folder = std::string(language) + "/LC_MESSAGES";
        std::filesystem::create_directories(dir_.path(folder));
        dir_.write("events.msg", std::string("$set 1\n1 in ").append(language).append("\n"));
        const std::string command =
            "gencat '" + dir_.path(folder + "/events.cat") + "' '" + dir_.path("events.msg") + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
    const EnvValue path("NLSPATH", documented_path(dir_.path()));
    for (const auto& [lang, text] : {std::pair{"C", "in C"},
                                     {"C.UTF-8", "in C"},
                                     {"en_US.UTF-8", "in en"},
                                     {"en_GB", "in en"}}) {
        const EnvValue value("LANG", lang);
        in_child([expected = text] { EXPECT_STREQ(expected, _eventsMsg(1, 1, "none")); });
    }
}

/* A text, and what it becomes with the arguments "one", 2 and "three"; null: it asks for others. */
struct Expansion {
    const char* text;
    const char* result;
};

TEST(MessageText, TakesItsArguments) {
    for (const Expansion& row : {
             Expansion{"", ""},
             {"plain 100%%", "plain 100%"},
             {"%s %d %s", "one 2 three"},
             {"%s", "one"},
             {"%3$s %2$d %1$s %1$s", "three 2 one one"},
             {"%2$d", "2"},
             {"[%5s] [%-5d] [%.1s]", "[  one] [2    ] [t]"},
             {"[%1$-5s] [%2$03d] [%3$.2s]", "[one  ] [002] [th]"},
             {"%s %d %s %s", nullptr},
             {"%d", nullptr},
             {"%s %s", nullptr},
             {"%4$s", nullptr},
             {"%0$s", nullptr},
             {"%10$s", nullptr},
             {"%1$d", nullptr},
             {"%1$s %s", nullptr},
             {"%s %2$d", nullptr},
             {"%n", nullptr},
             {"%s %n", nullptr},
             {"%ld", nullptr},
             {"%*s", nullptr},
             {"%.*s", nullptr},
             {"%1000s", nullptr},
             {"%s %99999999999d", nullptr},
             {"%.1000s", nullptr},
             {"%1$", nullptr},
             {"%1", nullptr},
             {"%-", nullptr},
             {"%.", nullptr},
             {"%", nullptr},
             {"%5%", nullptr},
             {"%m", nullptr},
         }) {
        std::string result;
        const bool taken = wq::expand_message(result, row.text, {"one", 2, "three"});
        EXPECT_EQ(row.result != nullptr, taken) << row.text;
        if (row.result != nullptr) {
            EXPECT_EQ(row.result, result) << row.text;
        }
    }
}

TEST(MessageText, NullIsAnEmptyText) {
    std::string result;
    EXPECT_TRUE(wq::expand_message(result, "<%s>", {nullptr}));
    EXPECT_EQ("<>", result);
}

}  // namespace
