#include <wqevents/status.h>

#include "EMS/events/internal/text_scan.h"

void _WQstrip_whitespace(char* string, int mode) noexcept {
    if (string != nullptr && mode >= 0 && mode <= 2) {
        wq::strip_text(string, static_cast<wq::Strip>(mode));
    }
}
