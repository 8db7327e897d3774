#include <array>
#include <cstdio>
#include <exception>
#include <string>

#include <wqevents/channel.h>
#include <wqevents/configuration.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/nl_send_event.h"

namespace wq {
namespace {

constexpr int format_changed = 50790438;
constexpr int automatic_transport = 5;

// The warning of the last notification that failed; its text is handed out.
std::string& last_warning() {
    static std::string warning;
    return warning;
}

// The step that failed, or null.
const char* send_notification(uint16_t source, const char* text) {
    std::array<char, 64> daemon{"/usr/WQ/sockets/vortd.socket"};
    event_infoEMS channel{};
    const char* failed = nullptr;
    const int opened = open_event(&channel, source, daemon.data(), automatic_transport);
    WQ_PROGRESS("SendFMTCHevent() open event %d.\n", opened);
    if (opened < 0) {
        failed = "connect";
    } else if (send_event(&channel, format_changed, nullptr, text, nullptr, nullptr) < 0) {
        failed = "send";
    }
    if (failed != nullptr) {
        WQuLogS(84, 4, "events.cat", 1, 0,
                "sendFMTCHevent send event completed. errRoutine is %s.\n", failed);
    }
    WQ_PROGRESS("sendFMTCHevent send event() completed\n");
    close_event(&channel);
    WQ_PROGRESS("sendFMTCHevent close event() completed.\n");
    return failed;
}

char* warn(const char* failed) {
    last_warning() = std::string("Warning: ")
                         .append(getVortdConfFile())
                         .append(" updated, but cannot ")
                         .append(failed)
                         .append(
                             " event to vortd.\nChanges won't take effect until vortd and "
                             "zelevents are restarted.");
    return last_warning().data();
}

int notify(const char* program, uint16_t source, char*& message) {
    constexpr std::size_t longest = 512;
    std::array<char, longest> text{};
    std::snprintf(text.data(), text.size(),  // NOLINT: a translation keeps the conversions
                  _eventsMsg(1, 9, "%s changed format file \"%s\""), program, getVortdConfFile());
    const char* const failed = send_notification(source, text.data());
    if (failed == nullptr) {
        return 0;
    }
    message = warn(failed);
    return -1;
}

}  // namespace
}  // namespace wq

int sendFMTCHGevent(const char* program, uint16_t source, char** message) WQEVENTS_NOEXCEPT {
    if (program == nullptr || message == nullptr) {
        return -1;
    }
    *message = nullptr;
    try {
        return wq::notify(program, source, *message);
    } catch (const std::exception&) {  // no memory for the warning
        return -1;
    }
}
