// The message catalogue: its texts, and messages made of them.
#include "EMS/events/nl__eventsMsg.h"

#include <nl_types.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include <wqevents/trace.h>

#include "EMS/events/internal/cancel.h"

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
    nl_catd descriptor = nullptr; /* valid once it has been opened */
    bool is_opened = false;
    std::array<CachedSet, sets> cached{};
};

constinit MessageCatalogue catalogue;

nl_catd descriptor_of(const MessageCatalogue& of) {
    /* POSIX wants the number as a pointer. */
    return of.is_opened ? of.descriptor : reinterpret_cast<nl_catd>(-1);  // NOLINT
}

void open_once(MessageCatalogue& of) {
    if (!of.is_opened) {
        const CancelHeld held; /* for the locale's and the catalogue's files */
        std::setlocale(LC_MESSAGES, "");
        of.descriptor = catopen("events.cat", 0);
        of.is_opened = true;
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
        const char* found = catgets(descriptor_of(catalogue), set, msg, default_text);
        text = found != nullptr ? strdup(found) : nullptr;
    }
    return text;
}

/* One conversion of a message: "%s", "%-10.3d", "%2$s", and "%%". */
struct Conversion {
    std::size_t argument = 0; /* from 1; 0: the next one */
    std::string_view layout;  /* flags, width and precision */
    char letter = '\0';
    std::size_t size = 0; /* of the whole */
};

std::size_t digits_at(std::string_view text) {
    return std::min(text.find_first_not_of("0123456789"), text.size());
}

bool is_short(std::size_t digits) {
    return digits <= 3;
}

/* `text` follows the percent sign. */
std::optional<Conversion> read_conversion(std::string_view text) {
    Conversion found;
    const std::size_t whole = text.size();
    if (const std::size_t digits = digits_at(text);
        digits == 1 && text.substr(1).starts_with('$')) {
        found.argument = static_cast<std::size_t>(text.front() - '0');
        if (found.argument == 0) {
            return std::nullopt;
        }
        text.remove_prefix(2);
    }
    const std::string_view from_layout = text;
    text.remove_prefix(std::min(text.find_first_not_of("-+ #0'"), text.size()));
    const std::size_t width = digits_at(text);
    text.remove_prefix(width);
    std::size_t precision = 0;
    if (text.starts_with('.')) {
        precision = digits_at(text.substr(1));
        text.remove_prefix(1 + precision);
    }
    if (text.empty() || !is_short(width) || !is_short(precision)) {
        return std::nullopt;
    }
    found.layout = from_layout.substr(0, from_layout.size() - text.size());
    found.letter = text.front();
    found.size = whole - text.size() + 1;
    return found;
}

/* The format is that of the conversion, checked against the argument's type. */
template <class Value>
void append_laid_out(std::string& result, const Conversion& conversion, Value value) {
    const std::string format =
        std::string("%").append(conversion.layout).append(1, conversion.letter);
    const int length = std::snprintf(nullptr, 0, format.c_str(), value);  // NOLINT
    if (length > 0) {
        const std::size_t before = result.size();
        result.resize(before + static_cast<std::size_t>(length) + 1);
        std::snprintf(&result[before], static_cast<std::size_t>(length) + 1, format.c_str(),
                      value);  // NOLINT
        result.pop_back();
    }
}

bool append_argument(std::string& result, const Conversion& conversion, const MessageArg& arg) {
    if (const int* const number = std::get_if<int>(&arg)) {
        if (conversion.letter != 'd') {
            return false;
        }
        append_laid_out(result, conversion, *number);
        return true;
    }
    const char* const text = std::get<const char*>(arg);
    if (conversion.letter != 's') {
        return false;
    }
    append_laid_out(result, conversion, text != nullptr ? text : "");
    return true;
}

/* Which arguments a message takes: those of numbers or the next ones, but not both. */
class ArgumentOrder {
  public:
    explicit ArgumentOrder(std::span<const MessageArg> args) : args_(args) {}

    const MessageArg* argument_for(const Conversion& conversion) {
        (conversion.argument == 0 ? has_plain_ : has_numbered_) = true;
        const std::size_t index = conversion.argument == 0 ? next_++ : conversion.argument - 1;
        return (has_plain_ && has_numbered_) || index >= args_.size() ? nullptr : &args_[index];
    }

  private:
    std::span<const MessageArg> args_;
    std::size_t next_ = 0;
    bool has_plain_ = false;
    bool has_numbered_ = false;
};

}  // namespace

bool expand_message(std::string& result, const char* text, std::initializer_list<MessageArg> args) {
    ArgumentOrder order({args.begin(), args.size()});
    std::string_view rest(text);
    result.clear();
    for (std::size_t run = 0; (run = rest.find('%')) != std::string_view::npos;) {
        result.append(rest.substr(0, run));
        rest.remove_prefix(run + 1);
        const std::optional<Conversion> conversion = read_conversion(rest);
        if (!conversion) {
            return false;
        }
        if (conversion->letter == '%' && conversion->size == 1) {
            result.push_back('%');
        } else if (const MessageArg* const arg = order.argument_for(*conversion);
                   arg == nullptr || !append_argument(result, *conversion, *arg)) {
            return false;
        }
        rest.remove_prefix(conversion->size);
    }
    result.append(rest);
    return true;
}

std::string message_text(int msg, const char* default_text,
                         std::initializer_list<MessageArg> args) {
    std::string result;
    if (!expand_message(result, _eventsMsg(1, msg, default_text), args)) {
        expand_message(result, default_text, args);
    }
    return result;
}

}  // namespace wq

const char* _eventsMsg(int set, int msg, const char* default_text) WQEVENTS_NOEXCEPT {
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

nl_catd ___eventsMsg_fd__(void) WQEVENTS_NOEXCEPT {
    return wq::descriptor_of(wq::catalogue);
}
