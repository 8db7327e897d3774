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
 * The configuration is the process's own, so that one object at a time is enough.
 */
class TrapFormatter {
  public:
    enum class Result {
        shown,   // all of the text
        cut,     // as many lines as there is room for
        hidden,  // the configuration has the trap not shown
        failed,  // the configuration, which changed, cannot be read; the text says why
    };

    /*
     * Reads the configuration: the file of that name, or, where it is "", the one that the platform
     * names. A Failure where it cannot be read. The text of `raw` is the library's own, else that
     * of trap_lines().
     */
    explicit TrapFormatter(rtrap_user kind, const std::string& configuration = "",
                           bool raw = false);

    /* Makes the text of a trap. `time` is what it shows, 0: now. */
    Result format(TrapRecords& trap, std::time_t time = 0);

    /* What was made: whole lines, "" for a hidden trap, a message where that failed. */
    std::string_view text() const { return text_; }

  private:
    rtrap_user kind_;
    std::unique_ptr<char[]> buffer_;
    std::string_view text_;
    bool raw_;
    std::string lines_;
};

}  // namespace wq::command

#endif
