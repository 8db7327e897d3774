#include "trap_formatter.h"

#include <wqplatform.h>

#include <array>

#include "command.h"
#include "conf_model.h"
#include "input_file.h"
#include "shown_text.h"
#include "trap_lines.h"

namespace wq::command {
namespace {

/* Room for the text of one trap: some nine hundred lines of ordinary length. */
constexpr int text_max = 65536;

/* Results of trp_format() that are no categories. */
constexpr int not_to_be_shown = -1;
constexpr int cut_short = -2;
constexpr int load_failed = 2;

struct KindName {
    std::string_view name;
    rtrap_user kind;
};

constexpr std::array kind_names = {
    KindName{"vortd", VORTD_USER},       KindName{"zleevent", ZLEEVENT_USER},
    KindName{"kmevents", KMEVENTS_USER}, KindName{"obu", OBU_USER},
    KindName{"prx", PRX_USER},
};

std::string_view without_newlines(std::string_view text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

/* The reader's message; a broken slot mapping has none. */
std::string explained(const char* message) {
    const std::string_view text = without_newlines(message == nullptr ? "" : message);
    return text.empty() ? std::string("cannot read ").append(getVortdConfFile())
                        : std::string(text);
}

/*
 * Reads what formatting needs before the first trap comes, so that a mistake shows at once. The
 * names of identifiers are left to trp_format(): they may be missing.
 */
void load() {
    refuse_special_file(WQmib_get_mib_filename());
    refuse_special_file(getVortdConfFile());
    have_read_mibtxt = 1;
    if (WQmib_load_mib() != 0) {
        throw Failure("cannot read the MIB file " + quoted(WQmib_get_mib_filename()));
    }
    char* message = nullptr;
    if (read_trapspec_file(&message) != 0) {
        throw Failure(explained(message));
    }
    have_read_vortdconf = 1;
    if (message != nullptr && *message != '\0' && has_alert_file()) {
        report(indented(explained(message)) + "\n");
    }
}

}  // namespace

rtrap_user parse_layout_kind(std::string_view name) {
    if (name.empty()) {
        return VORTD_USER;
    }
    std::string names;
    for (const KindName& row : kind_names) {
        if (row.name == name) {
            return row.kind;
        }
        names.append(names.empty() ? "" : ", ").append(row.name);
    }
    throw UsageError("there is no kind of layout " + quoted(name) + "; there are " + names);
}

TrapFormatter::TrapFormatter(rtrap_user kind, const std::string& configuration, bool raw)
    : kind_(kind), buffer_(std::make_unique<char[]>(text_max)), raw_(raw) {
    if (!configuration.empty()) {
        setVortdConfFile(configuration.c_str());
    }
    load();
}

TrapFormatter::Result TrapFormatter::format(TrapRecords& trap, std::time_t time) {
    char* host = nullptr;
    buffer_[0] = '\0';
    text_ = {};
    const int category = trp_format(kind_, &trap.info(), buffer_.get(), text_max,
                                    trap.bindings().data(), &host, time);
    if (category == not_to_be_shown) {
        return Result::hidden;
    }
    text_ = buffer_.get();
    // The number of a failed load is that of a category too, but only a text names its source.
    if (category == load_failed && host == nullptr) {
        text_ = without_newlines(text_);
        return Result::failed;
    }
    const std::string_view source = host == nullptr ? "" : host;
    if (!raw_ && !is_one_plain_line(text_, source)) {
        lines_ = trap_lines(kind_, text_, source);
        text_ = lines_;
    }
    return category == cut_short ? Result::cut : Result::shown;
}

}  // namespace wq::command
