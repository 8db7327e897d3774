/*
 * Traps as the operator's text, by the platform's configuration.
 */
#ifndef WQEVENTS_TOOL_TRAP_FORMATTER_H
#define WQEVENTS_TOOL_TRAP_FORMATTER_H

#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "received_trap.h"

namespace wq::command {

/* The kinds of layout, for help texts. */
inline constexpr const char* layout_kinds_help =
    "Kinds of layout, by the program that they are for:\n"
    "  vortd     time in seconds, category, time, host, source letter, text (the default)\n"
    "  zleevent  time, host, source letter, text; leaves traps for the log only out\n"
    "  kmevents  time, host, source letter, text\n"
    "  obu       host and text\n"
    "  prx       text";

/* parse_layout_kind: the kind of that name; "" is the daemon's. A UsageError for another one. */
rtrap_user parse_layout_kind(std::string_view name);

/*
 * Formats by what the process has read, which must be all, as by Configuration; never reads amid a
 * trap. Octet strings are strict hexadecimal if the environment variable VORTD_STRICT_HEX_FORMAT is
 * set.
 */
class TrapFormatter {
  public:
    enum class Result {
        shown,   // all of the text
        cut,     // as many lines as there is room for
        hidden,  // the configuration has the trap not shown
    };

    /* The text of `raw` is the library's own, else that of trap_lines(). */
    explicit TrapFormatter(rtrap_user kind, bool raw = false);

    /* Makes the text of a trap. `time` is what it shows, 0: now. */
    Result format(TrapRecords& trap, std::time_t time = 0);

    /* What was made: whole lines, "" for a hidden trap. */
    std::string_view text() const { return text_; }

    /* Whether the last trap told that the configuration, or the MIB, is another now. */
    bool tells_of_configuration() const { return tells_of_configuration_; }
    bool tells_of_mib() const { return tells_of_mib_; }

  private:
    rtrap_user kind_;
    bool raw_;
    std::unique_ptr<char[]> buffer_;
    std::string_view text_;
    std::string lines_;
    bool tells_of_configuration_ = false;
    bool tells_of_mib_ = false;
};

}  // namespace wq::command

#endif
