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

// Local time as "%a %b %d %H:%M:%S %Y". The text is valid until the next call; while second, time
// zone and locale stay what they are, it is not made again.
std::string_view event_time_text(std::time_t when);

}  // namespace wq
