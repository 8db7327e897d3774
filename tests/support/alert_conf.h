/*
 * An alert configuration of the test's own, and traps for it.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_ALERT_CONF_H
#define WQEVENTS_TESTS_SUPPORT_ALERT_CONF_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "support/trap_conf.h"

namespace wq::test {

inline constexpr const char* alert_traps =
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

inline const std::string name_line = "ACME_UP {1.3.6.1.4.1.4242} 6 1\n";

/* A list as text: each subvector as "key type [code points] [identifier:text]". */
inline std::string told(const alert_record* list) {
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
inline bool is_free(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock wanted {};
    wanted.l_type = F_WRLCK;
    wanted.l_whence = SEEK_SET;
    const bool asked = fd >= 0 && fcntl(fd, F_GETLK, &wanted) == 0;
    close(fd);
    return asked && wanted.l_type == F_UNLCK;
}

/* Descriptors of this process that are open on the file. */
inline int descriptors_of(const std::string& path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone) == path ? 1 : 0;
    }
    return count;
}

/* A subvector without anything in it. */
inline alert_record* new_alert(int subvector) {
    auto* const list = static_cast<alert_record*>(doMalloc(sizeof(alert_record)));
    list->subvector = subvector;
    return list;
}

class Alerts : public TrapConf {
  protected:
    void SetUp() override { ASSERT_EQ(read(alert_traps), (ConfRead{0, ""})); }
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

}  // namespace wq::test

#endif
