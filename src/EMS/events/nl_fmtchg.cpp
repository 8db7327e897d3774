// Telling the trap daemon that the configuration has changed.
#include <algorithm>
#include <array>
#include <string>

#include <wqevents/channel.h>
#include <wqevents/configuration.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/guarded.h"
#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/nl__eventsMsg.h"
#include "EMS/events/nl_send_event.h"

namespace wq {
namespace {

constexpr int format_changed = 50790438;
constexpr int automatic_transport = 5;

// The warning of the last notification that failed; its text is handed out.
struct Warning {
    KeptText text;
};

// The channel of one notification. A thread that is cancelled meanwhile leaves no socket behind.
struct Notification {
    Notification() { channel.sd = -1; }
    ~Notification() {
        if (!is_closed) {
            const Fd socket(channel.sd);
        }
    }
    Notification(const Notification&) = delete;
    Notification& operator=(const Notification&) = delete;

    void close() {
        is_closed = true;
        close_event(&channel);
    }

    event_infoEMS channel{};
    bool is_closed = false;
};

// The step that failed, or null.
const char* send_notification(uint16_t source, const char* text) {
    std::array<char, 64> daemon{"/usr/WQ/sockets/vortd.socket"};
    Notification notification;
    const char* failed = nullptr;
    const int opened =
        open_event(&notification.channel, source, daemon.data(), automatic_transport);
    WQ_PROGRESS("SendFMTCHevent() open event %d.\n", opened);
    if (opened < 0) {
        failed = "connect";
    } else if (send_event(&notification.channel, format_changed, nullptr, text, nullptr, nullptr) <
               0) {
        failed = "send";
    }
    if (failed != nullptr) {
        WQuLogS(84, 4, "events.cat", 1, 0,
                "sendFMTCHevent send event completed. errRoutine is %s.\n", failed);
    }
    WQ_PROGRESS("sendFMTCHevent send event() completed\n");
    notification.close();
    WQ_PROGRESS("sendFMTCHevent close event() completed.\n");
    return failed;
}

char* warn(const char* file, const char* failed) {
    const std::string warning = std::string("Warning: ")
                                    .append(file)
                                    .append(" updated, but cannot ")
                                    .append(failed)
                                    .append(
                                        " event to vortd.\nChanges won't take effect until vortd "
                                        "and zelevents are restarted.");
    return lasting<Warning>().text.keep(warning);
}

int notify(const char* program, uint16_t source, char*& message) {
    constexpr std::size_t longest = 511;
    const char* const file = getVortdConfFile();
    if (file == nullptr) {
        return -1;
    }
    std::string text = message_text(9, "%s changed format file \"%s\"", {program, file});
    text.resize(std::min(text.size(), longest));
    const char* const failed = send_notification(source, text.c_str());
    if (failed == nullptr) {
        return 0;
    }
    message = warn(file, failed);
    return -1;
}

}  // namespace
}  // namespace wq

int sendFMTCHGevent(const char* program, uint16_t source, char** message) {
    if (message != nullptr) {
        *message = nullptr;
    }
    if (program == nullptr || message == nullptr) {
        return -1;
    }
    return wq::guarded(-1, [&] { return wq::notify(program, source, *message); });
}
