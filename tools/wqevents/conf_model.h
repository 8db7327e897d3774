/*
 * The trap configuration in memory, as the subcommands of "conf" want it: read without a loss, and
 * as the text that would be written.
 */
#ifndef WQEVENTS_TOOL_CONF_MODEL_H
#define WQEVENTS_TOOL_CONF_MODEL_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace wq::command {

/*
 * load_configuration: reads the file `name`, which an empty name leaves to getVortdConfFile().
 * Returns its bytes. A Failure with the reader's message where that is missing, wrong, or would be
 * read in part.
 */
std::string load_configuration(const std::string& name);

/* load_text: the same with the bytes of a file, which messages call `name`. */
void load_text(const std::string& text, const std::string& name);

/* alert_file_name: the path of the file of alerts. */
std::string alert_file_name();

/* has_alert_file: whether there is a file of alerts; none is needed. */
bool has_alert_file();

/* load_alerts: attaches the configured alerts; without a file of them there are none. Returns the
 * reader's message, empty on success. */
std::string load_alerts();

/*
 * is_implied_category: whether the category of that slot stands in the model only because the
 * reader gave the text that was loaded last one standard category more.
 */
bool is_implied_category(std::size_t slot);

/* make_category_explicit: the category of that slot is one of the file from now on. */
void make_category_explicit(std::size_t slot);

/*
 * written_text: the bytes of a file of the model, in the library's layout. Traps of the same
 * numbers stand as they did in the file that was loaded, and an implied category has no line.
 */
std::string written_text();

/* without_time_stamp: the text without the line that tells when it was written, and by whom. */
std::string without_time_stamp(std::string text);

/*
 * read_back: puts what the reader makes of `text`, which written_text() gave, in the model's place.
 * A Failure where the reader does not accept it.
 */
void read_back(const std::string& text);

/* require_same_text: a Failure unless the model that was read back would be written as `text`. */
void require_same_text(const std::string& text);

}  // namespace wq::command

#endif
