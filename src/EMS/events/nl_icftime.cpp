#include "EMS/events/nl_icftime.h"

#include <wqevents/formatter.h>

#include <langinfo.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace wq {
namespace {

struct Unit {
    char letter;
    uint32_t seconds;
};

// From the smallest to the largest.
constexpr std::array<Unit, 4> units = {{{'s', 1}, {'m', 60}, {'h', 60 * 60}, {'d', 24 * 60 * 60}}};

constexpr std::size_t interval_room = 10;  // eight digits, the unit and the terminator
constexpr std::size_t longest_time = 128;
constexpr const char* event_time_format = "%a %b %d %H:%M:%S %Y";

// The largest unit that tells the interval without a rest.
Unit exact_unit(uint32_t seconds) {
    Unit exact = units.front();
    for (const Unit& unit : units) {
        if (seconds % unit.seconds == 0) {
            exact = unit;
        }
    }
    return exact;
}

using TimeText = std::array<char, longest_time>;

bool to_local(std::time_t when, std::tm& local) {
    tzset();
    return localtime_r(&when, &local) != nullptr;
}

std::size_t write_time(TimeText& text, const std::tm& local, const char* format) {
    return std::strftime(text.data(), text.size(), format, &local);
}

constexpr std::size_t longest_number = 20;

// The text made last and what it depends on: the second, the time zone, the names of day and month.
struct EventTime {
    TimeText text{};
    std::array<char, longest_number + 1> seconds{};  // `when` in decimal
    std::size_t seconds_length = 0;
    std::size_t length = 0;  // 0: none yet, or not to be used again
    std::time_t when = 0;
    std::array<char, 64> zone{};
    int weekday = 0;
    int month = 0;
};

constinit EventTime event_time;

// The value of TZ, as getenv() finds it: each line asks, and few variables begin with a T.
const char* zone_name() {
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const char* const text = *variable;
        if (text[0] == 'T' && text[1] == 'Z' && text[2] == '=') {
            return text + 3;
        }
    }
    return "/";  // unset is another zone than empty
}

bool begins_with(std::string_view& text, std::string_view part) {
    if (!text.starts_with(part)) {
        return false;
    }
    text.remove_prefix(part.size());
    return true;
}

bool is_current(const EventTime& made, std::time_t when) {
    if (made.length == 0 || made.when != when || std::strcmp(made.zone.data(), zone_name()) != 0) {
        return false;
    }
    std::string_view text(made.text.data(), made.length);
    return begins_with(text, nl_langinfo(ABDAY_1 + made.weekday)) && begins_with(text, " ") &&
           begins_with(text, nl_langinfo(ABMON_1 + made.month)) && begins_with(text, " ");
}

// False where the zone's name is too long to be recognised.
bool remember_zone(EventTime& made) {
    const std::string_view zone = zone_name();
    TextSink(made.zone.data(), made.zone.size()).append(zone);
    return zone.size() < made.zone.size();
}

EventTimeTexts make_event_time(EventTime& made, std::time_t when) {
    made.length = 0;
    made.when = when;
    TextSink seconds(made.seconds.data(), made.seconds.size());
    seconds.append_decimal(std::int64_t{when});
    made.seconds_length = seconds.length();
    std::tm local{};
    if (!to_local(when, local)) {
        return {seconds.text(), {}};
    }
    const std::size_t length = write_time(made.text, local, event_time_format);
    made.weekday = local.tm_wday;
    made.month = local.tm_mon;
    made.length = remember_zone(made) ? length : 0;
    return {seconds.text(), {made.text.data(), length}};
}

}  // namespace

void append_interval(TextSink& sink, uint32_t hundredths) {
    const uint32_t seconds = hundredths / 100;
    const Unit unit = seconds == 0 ? units.front() : exact_unit(seconds);
    sink.append_decimal(seconds / unit.seconds);
    sink.append(unit.letter);
}

void append_local_time(TextSink& sink, std::time_t when, const char* format) {
    std::tm local{};
    TimeText text;
    if (to_local(when, local)) {
        sink.append({text.data(), write_time(text, local, format)});
    }
}

EventTimeTexts event_time_texts(std::time_t when) {
    const EventTime& made = event_time;
    if (is_current(made, when)) {
        return {{made.seconds.data(), made.seconds_length}, {made.text.data(), made.length}};
    }
    return make_event_time(event_time, when);
}

std::string_view event_time_text(std::time_t when) {
    return event_time_texts(when).local;
}

}  // namespace wq

int DRXEvtTimeInt2String(const uint32_t* lpData, char* pcString) {
    if (lpData == nullptr || pcString == nullptr) {
        return -1;
    }
    wq::TextSink sink(pcString, wq::interval_room);
    wq::append_interval(sink, *lpData);
    return 0;
}
