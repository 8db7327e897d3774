/*
 * The difference of two texts as patch(1) takes it.
 */
#ifndef WQEVENTS_TOOL_UNIFIED_DIFF_H
#define WQEVENTS_TOOL_UNIFIED_DIFF_H

#include <string>
#include <string_view>

namespace wq::command {

/* A text and the name that the difference shows it under. */
struct NamedText {
    std::string_view name;
    std::string_view text;
};

/*
 * unified_diff: the lines that turn `before` into `after`, with three lines around each change;
 * empty where the texts are the same. It is always correct, and small where the texts differ
 * little; where they differ in long stretches without a common line of their own it may name more
 * lines than need be, so that its cost stays near that of reading the texts.
 */
std::string unified_diff(const NamedText& before, const NamedText& after);

}  // namespace wq::command

#endif
