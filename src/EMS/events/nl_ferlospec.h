// The records of the trap-to-alert configuration: what its reader and its writer share.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <wqevents/alerts.h>

#include "EMS/events/nl_alertfile.h"

namespace wq {

// The keys of the subvectors.
enum SubvectorKey : int {
    generic_alert = 0x92,
    probable_causes = 0x93,
    user_causes = 0x94,
    install_causes = 0x95,
    failure_causes = 0x96,
    recommended_actions = 0x81,
    detailed_data = 0x98,
};

// Items of detailed data that a code point asks for, by its high nibble.
inline int items_of_code_point(uint32_t code_point) {
    switch (code_point & 0xF0U) {
        case 0xA0:
        case 0xB0:
            return 1;
        case 0xC0:
            return 2;
        case 0xD0:
            return 3;
        default:
            return 0;
    }
}

// Reads the alerts behind the trap configuration. Points `*errmsg` at the text of a failure, and
// leaves it alone where there is none.
void read_alert_configuration(char** errmsg);

void free_alert_list(alert_record* list);

// The alert configuration while it is read or written; unlocked and closed in the end.
struct AlertFileCloser {
    void operator()(std::FILE* stream) const { close_alert_file(stream); }
};
using AlertStream = std::unique_ptr<std::FILE, AlertFileCloser>;

// The text that goes with a failure; empty when there is none.
std::string& alert_message();

// Its text, to be handed out: it stays readable, and the next one overwrites it.
char* kept_alert_message();

// What opening for reading or writing leaves in alert_message() when it fails.
void report_unlocked(const AlertFile& file, int error);

}  // namespace wq
