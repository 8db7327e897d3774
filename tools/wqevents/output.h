/*
 * Where lines are printed: the standard output or a log, gathered and written in large pieces.
 */
#ifndef WQEVENTS_TOOL_OUTPUT_H
#define WQEVENTS_TOOL_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "file_descriptor.h"

namespace wq::command {

class Output {
  public:
    /* The standard output. */
    Output();
    /* A log: the file of that name, appended to; it is made with mode 0640, and is never found by a
     * symbolic link. A Failure if it cannot be opened. */
    explicit Output(const std::string& log);

    /* Append the lines of one trap to it, then call written(). */
    std::string& text() { return text_; }
    /* Writes what has gathered when that is much. */
    void written();
    /* Writes all. The standard output is waited for; a Fatal when it does not take it, ReaderGone
     * when nobody reads it any more. What a log does not take at once is lost, and counted. */
    void flush();
    /* From now on what gathers goes out as it is; else show_lines() has it before. */
    void pass_raw() { raw_ = true; }
    /* From now on a reader that takes nothing for a second is given up: a Fatal. */
    void hurry() { hurried_ = true; }

    /* Opens the log again, or goes on with the old one; a complaint, or "". */
    std::string reopen();
    /* Traps that the log has not taken. */
    std::uint64_t lost() const { return lost_; }
    /* Why the log has begun to lose traps; "" if it has not since the last call. */
    std::string take_complaint();

  private:
    void end_record();
    void flush_to_log();
    void lose_from(std::size_t done, int error);
    std::size_t write_some(std::size_t from);
    void wait_for_room() const;

    std::string log_;  // its name; "": the standard output
    FileDescriptor file_;
    int fd_;
    bool waits_ = false;  // a write of more than PIPE_BUF may block
    bool hurried_ = false;
    bool raw_ = false;
    std::string text_;
    std::vector<std::size_t> ends_;  // of the traps in `text_`
    std::uint64_t lost_ = 0;
    bool losing_ = false;
    bool torn_ = false;  // the log ends in the middle of a line
    std::string complaint_;
};

}  // namespace wq::command

#endif
