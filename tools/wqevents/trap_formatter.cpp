#include "trap_formatter.h"

#include <array>
#include <cstdlib>
#include <utility>

#include "command.h"
#include "shown_text.h"
#include "trap_lines.h"

namespace wq::command {
namespace {

/* Room for the text of one trap: some nine hundred lines of ordinary length. */
constexpr int text_max = 65536;

/* Results of trp_format() that are no categories. */
constexpr int not_to_be_shown = -1;
constexpr int cut_short = -2;

struct KindName {
    std::string_view name;
    rtrap_user kind;
};

constexpr std::array kind_names = {
    KindName{"vortd", VORTD_USER},       KindName{"zleevent", ZLEEVENT_USER},
    KindName{"kmevents", KMEVENTS_USER}, KindName{"obu", OBU_USER},
    KindName{"prx", PRX_USER},
};

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

TrapFormatter::TrapFormatter(rtrap_user kind, bool raw)
    : kind_(kind), raw_(raw), buffer_(std::make_unique<char[]>(text_max)) {
    strictHex = std::getenv("VORTD_STRICT_HEX_FORMAT") != nullptr ? 1 : 0;
    have_read_vortdconf = 1;
    have_read_mibtxt = 1;
}

TrapFormatter::Result TrapFormatter::format(TrapRecords& trap, std::time_t time) {
    char* host = nullptr;
    buffer_[0] = '\0';
    text_ = {};
    const int category = trp_format(kind_, &trap.info(), buffer_.get(), text_max,
                                    trap.bindings().data(), &host, time);
    // A trap that tells of a change would have the next one read the files.
    tells_of_configuration_ = std::exchange(have_read_vortdconf, 1) == 0;
    tells_of_mib_ = std::exchange(have_read_mibtxt, 1) == 0;
    if (category == not_to_be_shown) {
        return Result::hidden;
    }
    text_ = buffer_.get();
    const std::string_view source = host == nullptr ? "" : host;
    if (!raw_ && !is_one_plain_line(text_, source)) {
        lines_ = trap_lines(kind_, text_, source);
        text_ = lines_;
    }
    return category == cut_short ? Result::cut : Result::shown;
}

}  // namespace wq::command
