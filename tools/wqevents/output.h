/*
 * The standard output, gathered and written in large pieces.
 */
#ifndef WQEVENTS_TOOL_OUTPUT_H
#define WQEVENTS_TOOL_OUTPUT_H

#include <cstddef>
#include <string>

namespace wq::command {

class Output {
  public:
    /* Append to it, then call written(). */
    std::string& text() { return text_; }
    /* Writes what has gathered when that is much. */
    void written();
    /* Writes all. A Fatal when the standard output does not take it, ReaderGone when nobody reads
     * it any more. */
    void flush();
    /* From now on what gathers goes out as it is; else show_lines() has it before. */
    void pass_raw() { raw_ = true; }
    /* From now on a reader that takes nothing for a second is given up: a Fatal. */
    void hurry() { hurried_ = true; }

  private:
    std::size_t write_some(std::size_t from);
    void wait_for_room() const;

    bool hurried_ = false;
    bool raw_ = false;
    std::string text_;
};

}  // namespace wq::command

#endif
