#include <nl_types.h>
#include <wqevents/trace.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>

namespace wq {
namespace {

constexpr int sets = 51;

/*
 * Message numbers that the cache has room for; catalogues may use no higher one portably
 * (NL_MSGMAX, POSIX <limits.h>). A number above it counts as out of memory rather than taking
 * gigabytes.
 */
constexpr size_t messages_max = 32767;

/* The texts of one message set, indexed by message number. */
struct CachedSet {
    size_t capacity;  /* entries that may be used */
    size_t allocated; /* entries there are: more than `capacity` after an allocation has failed */
    const char** texts;
};

/* Trivially destructible: the texts live as long as the process, exit handlers included. */
struct MessageCatalogue {
    nl_catd descriptor = reinterpret_cast<nl_catd>(-1);
    bool is_first_use = true;
    std::array<CachedSet, sets> cached{};
};

MessageCatalogue catalogue;

void open_once(MessageCatalogue& of) {
    if (of.is_first_use) {
        of.is_first_use = false;
        std::setlocale(LC_MESSAGES, "");
        of.descriptor = catopen("events.cat", 0);
        of.cached = {};
    }
}

/* Texts that are there stay, so that the pointers to them do. */
bool reserve(CachedSet& set, size_t wanted) {
    if (wanted > set.allocated) {
        void* grown = std::realloc(static_cast<void*>(set.texts), wanted * sizeof *set.texts);
        if (grown == nullptr) {
            return false;
        }
        set.texts = static_cast<const char**>(grown);
        std::fill(set.texts + set.allocated, set.texts + wanted, nullptr);
        set.allocated = wanted;
    }
    return true;
}

/* Makes room for message `msg`. */
bool grow(CachedSet& set, size_t msg) {
    const size_t wanted = (msg / 10 + 1) * 10;
    const bool fits = msg <= messages_max && reserve(set, wanted);
    set.capacity = fits ? wanted : 0;
    if (!fits) {
        errno = ENOMEM;
    }
    return fits;
}

/* The cached copy of a message, made on first use; null when it cannot be copied. */
const char* cached_text(CachedSet& cached, int set, int msg, const char* default_text) {
    const char*& text = cached.texts[msg];
    if (text == nullptr) {
        const char* found = catgets(catalogue.descriptor, set, msg, default_text);
        text = found != nullptr ? strdup(found) : nullptr;
    }
    return text;
}

}  // namespace
}  // namespace wq

const char* _eventsMsg(int set, int msg, const char* default_text) noexcept {
    const int saved_errno = errno;
    errno = 0;
    wq::open_once(wq::catalogue);
    const auto index = static_cast<unsigned>(set) & 0x3FFFFFFFU;
    if (msg <= 0 || index >= wq::sets) {
        errno = saved_errno;
        return default_text;
    }
    wq::CachedSet& cached = wq::catalogue.cached[index];
    const auto number = static_cast<size_t>(msg);
    if (number >= cached.capacity && !wq::grow(cached, number)) {
        return default_text;
    }
    const char* text = wq::cached_text(cached, static_cast<int>(index), msg, default_text);
    if (text == nullptr && default_text != nullptr) {
        return default_text;
    }
    errno = saved_errno;
    return text;
}

nl_catd ___eventsMsg_fd__(void) noexcept {
    return wq::catalogue.descriptor;
}
