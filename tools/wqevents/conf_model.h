/*
 * The trap configuration in memory, as the subcommands of "conf" want it: read without a loss, and
 * as the text that would be written.
 */
#ifndef WQEVENTS_TOOL_CONF_MODEL_H
#define WQEVENTS_TOOL_CONF_MODEL_H

#include <string>

namespace wq::command {

/*
 * load_configuration: reads the file that getVortdConfFile() names. A Failure with the reader's
 * message where that is missing, wrong, or would be read in part.
 */
void load_configuration();

/* alert_file_name: the path of the file of alerts. */
std::string alert_file_name();

/* has_alert_file: whether there is a file of alerts; none is needed. */
bool has_alert_file();

/* load_alerts: attaches the configured alerts; without a file of them there are none. Returns the
 * reader's message, empty on success. */
std::string load_alerts();

/* written_form: the model as the library writes it, without the line that tells when. */
std::string written_form();

/*
 * read_back: puts what the reader makes of the model's written form in its place, so that it is
 * known before a file is touched. A Failure where the reader does not accept it or reads something
 * else.
 */
void read_back();

/*
 * require_same_lines: a Failure unless the model's written form has the lines of `text`. Their
 * order is not looked at: of traps with the same numbers and with nodes the reader turns it round.
 */
void require_same_lines(const std::string& text);

}  // namespace wq::command

#endif
