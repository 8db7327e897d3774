// Times and intervals as text.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "EMS/events/internal/text_sink.h"

namespace wq {

// DRXEvtTimeInt2String(): an interval in hundredths of a second.
void append_interval(TextSink& sink, uint32_t hundredths);

// Local time as strftime() writes it, here of at most 127 bytes; nothing where it cannot be told.
void append_local_time(TextSink& sink, std::time_t when, const char* format);

// A time in seconds since 1970, in decimal, and as local time by "%a %b %d %H:%M:%S %Y", empty
// where that cannot be told.
struct EventTimeTexts {
    std::string_view seconds;
    std::string_view local;
};

// The texts are valid until the next call; while second, time zone and locale stay what they are,
// they are not made again.
EventTimeTexts event_time_texts(std::time_t when);
std::string_view event_time_text(std::time_t when);  // the local time alone

}  // namespace wq
