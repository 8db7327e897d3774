#include "EMS/events/nl_icftime.h"

#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <string>

#include "support/env_value.h"
#include "support/exact_block.h"
#include "support/locales.h"
#include "support/vectors.h"

namespace {

using wq::test::EnvValue;
using wq::test::ExactArray;
using wq::test::read_vectors;

std::string interval(uint32_t hundredths) {
    std::array<char, 10> text{};
    EXPECT_EQ(DRXEvtTimeInt2String(&hundredths, text.data()), 0);
    return text.data();
}

TEST(DRXEvtTimeInt2String, TellsTheIntervalInItsSmallestNonZeroUnit) {
    for (const auto& row : read_vectors("value_interval.txt", 2)) {
        SCOPED_TRACE(row.where);
        EXPECT_EQ(interval(static_cast<uint32_t>(wq::test::number(row[0]))), row[1]);
    }
}

TEST(DRXEvtTimeInt2String, LongestTextFillsTenBytes) {
    const uint32_t hundredths = 0xFFFFFFFF;
    ExactArray<char> text(10);
    EXPECT_EQ(DRXEvtTimeInt2String(&hundredths, text.data()), 0);
    EXPECT_STREQ(text.data(), "42949672s");
}

TEST(DRXEvtTimeInt2String, FailsForANullPointer) {
    const uint32_t hundredths = 100;
    char text = 'x';
    EXPECT_EQ(DRXEvtTimeInt2String(nullptr, &text), -1);
    EXPECT_EQ(text, 'x');
    EXPECT_EQ(DRXEvtTimeInt2String(&hundredths, nullptr), -1);
}

TEST(Interval, IsCutAtTheRoom) {
    for (size_t size = 1; size < 12; ++size) {
        ExactArray<char> buffer(size);
        wq::TextSink sink(buffer.data(), size);
        wq::append_interval(sink, 9000000);
        EXPECT_EQ(buffer.data(), std::string("25h").substr(0, size - 1));
    }
}

constexpr std::time_t moment = 1795255965; /* Sat Nov 21 10:12:45 2026 in UTC */

std::string local_time(std::time_t when, const char* format, size_t size) {
    ExactArray<char> buffer(size);
    wq::TextSink sink(buffer.data(), size);
    wq::append_local_time(sink, when, format);
    return buffer.data();
}

TEST(LocalTime, IsWrittenInTheFormatAndCutAtTheRoom) {
    const EnvValue zone("TZ", "UTC0");
    const std::string whole = "2026-11-21 10:12:45";
    for (size_t size = 1; size <= whole.size() + 2; ++size) {
        EXPECT_EQ(local_time(moment, "%Y-%m-%d %H:%M:%S", size), whole.substr(0, size - 1));
    }
    EXPECT_EQ(local_time(moment, "", 10), "");
}

TEST(LocalTime, FollowsTheTimeZone) {
    EnvValue zone("TZ", "UTC0");
    EXPECT_EQ(local_time(moment, "%H", 10), "10");
    zone.set("XXX-3");
    EXPECT_EQ(local_time(moment, "%H", 10), "13");
}

TEST(LocalTime, IsEmptyForAYearThatCannotBeTold) {
    EXPECT_EQ(local_time(std::numeric_limits<std::time_t>::max(), "%Y", 10), "");
    EXPECT_EQ(wq::event_time_text(std::numeric_limits<std::time_t>::max()), "");
    EXPECT_NE(wq::event_time_text(0), "");
}

TEST(EventTimeText, IsTheLocalTimeWithDayAndMonth) {
    const EnvValue zone("TZ", "UTC0");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 10:12:45 2026");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 10:12:45 2026");
    EXPECT_EQ(wq::event_time_text(moment + 1), "Sat Nov 21 10:12:46 2026");
    EXPECT_EQ(wq::event_time_text(0), "Thu Jan 01 00:00:00 1970");
    EXPECT_EQ(wq::event_time_text(-1), "Wed Dec 31 23:59:59 1969");
}

TEST(EventTimeText, IsNotKeptWhenTheTimeZoneChanges) {
    EnvValue zone("TZ", "UTC0");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 10:12:45 2026");
    zone.set("XXX-3");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 13:12:45 2026");
    /* A name too long to be remembered is looked at each time. */
    const std::string longer(70, 'A');
    zone.set((longer + "5").c_str());
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 05:12:45 2026");
    zone.set((longer + "6").c_str());
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 04:12:45 2026");
    zone.set(nullptr);
    const std::string unset(wq::event_time_text(moment));
    zone.set("XXX-4");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 14:12:45 2026");
    zone.set(nullptr);
    EXPECT_EQ(wq::event_time_text(moment), unset);
}

class TimeLocale {
  public:
    explicit TimeLocale(const char* name) : is_set_(std::setlocale(LC_TIME, name) != nullptr) {}
    ~TimeLocale() { std::setlocale(LC_TIME, "C"); }
    TimeLocale(const TimeLocale&) = delete;
    TimeLocale& operator=(const TimeLocale&) = delete;

    bool is_set() const { return is_set_; }

  private:
    bool is_set_;
};

/* Saturday and November in Chinese, in GBK: "liu", and "11 yue", which is preceded by a blank. */
TEST(EventTimeText, IsNotKeptWhenTheLocaleChanges) {
    REQUIRE_TWO_BYTE_LOCALE(characters);
    const EnvValue zone("TZ", "UTC0");
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 10:12:45 2026");
    {
        const TimeLocale chinese(characters.encoding().name);
        ASSERT_TRUE(chinese.is_set());
        const std::string text(wq::event_time_text(moment));
        EXPECT_TRUE(text.starts_with("\xC1\xF9 ")) << text;
        EXPECT_TRUE(text.ends_with("11\xD4\xC2 21 10:12:45 2026")) << text;
        EXPECT_EQ(wq::event_time_text(moment), text);
    }
    EXPECT_EQ(wq::event_time_text(moment), "Sat Nov 21 10:12:45 2026");
}

/* German and Austrian: the same names of the days, another January. */
TEST(EventTimeText, IsNotKeptWhenOnlyTheMonthsChange) {
    const std::string folder = wq::test::built_locales().folder("de_DE.UTF-8", "de_DE", "UTF-8");
    if (folder.empty() ||
        wq::test::built_locales().folder("de_AT.UTF-8", "de_AT", "UTF-8").empty()) {
        ASSERT_EQ(std::getenv("CI"), nullptr) << "no locale can be built (Debian: package locales)";
        GTEST_SKIP() << "no locale can be built (Debian: package locales)";
    }
    constexpr std::time_t january = 1768471965; /* Thu Jan 15 10:12:45 2026 in UTC */
    const EnvValue search("LOCPATH", folder);
    const EnvValue zone("TZ", "UTC0");
    for (int round = 0; round < 2; ++round) {
        {
            const TimeLocale german("de_DE.UTF-8");
            ASSERT_TRUE(german.is_set());
            EXPECT_EQ(wq::event_time_text(january), "Do Jan 15 10:12:45 2026");
        }
        const TimeLocale austrian("de_AT.UTF-8");
        ASSERT_TRUE(austrian.is_set());
        EXPECT_EQ(wq::event_time_text(january), "Do J\u00e4n 15 10:12:45 2026");
    }
}

}  // namespace
