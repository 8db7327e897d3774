// Composing the text of a configuration file in memory.
#pragma once

#include <wqevents/configuration.h>

#include <charconv>
#include <concepts>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace wq {

inline void append_one(std::string& text, std::string_view part) {
    text.append(part);
}
// Records come from callers: a text that is not there is an empty one.
inline void append_one(std::string& text, const char* part) {
    if (part != nullptr) {
        text.append(part);
    }
}
inline void append_one(std::string& text, std::same_as<char> auto part) {
    text.push_back(part);
}

template <typename Number>
void append_number(std::string& text, Number number, int base) {
    constexpr std::size_t longest = 24;
    char digits[longest];
    const char* end = std::to_chars(digits, digits + longest, number, base).ptr;
    text.append(digits, static_cast<std::size_t>(end - digits));
}

inline void append_one(std::string& text, std::same_as<int32_t> auto number) {
    append_number(text, number, 10);
}
inline void append_one(std::string& text, std::same_as<uint32_t> auto number) {
    append_number(text, number, 10);
}

template <typename... Parts>
void append(std::string& text, const Parts&... parts) {
    (append_one(text, parts), ...);
}

// Whether a line of a configuration file can name the enterprise.
inline bool has_identifier(const enterprise_info& enterprise) {
    return enterprise.enterprise_oid != nullptr && enterprise.oid_len != 0;
}

// Why a model cannot be written to the file of that name.
inline std::string no_identifier(const enterprise_info& enterprise, std::string_view file) {
    std::string text;
    append(text, "Enterprise \"", enterprise.enterprise_name, "\" has no object identifier: ", file,
           " file not written\n");
    return text;
}

// The local time as "Sat Nov 21 10:15:00 2026"; empty where there is none.
inline std::string local_time_text() {
    constexpr std::size_t longest = 200;
    char text[longest];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    const bool known = localtime_r(&now, &local) != nullptr;
    return {text, known ? std::strftime(text, longest, "%a %b %d %H:%M:%S %Y", &local) : 0};
}

}  // namespace wq
