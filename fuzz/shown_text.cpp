// Texts as they go to a terminal: nothing in them steers it, what is harmless stays, and a text
// without backslashes can be told from what is shown. The lines of a trap cannot be mistaken. The
// first octet of the input chooses the layout, the second the length of the host's name.
#include "../tools/wqevents/shown_text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <string>
#include <string_view>

#include "../tools/wqevents/trap_lines.h"
#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

constexpr std::array kinds = {ZLEEVENT_USER, VORTD_USER, OBU_USER, KMEVENTS_USER, PRX_USER};

bool steers(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto at = [&](std::size_t k) {
            return k < text.size() ? static_cast<unsigned char>(text[k]) : 0U;
        };
        const bool c0 = at(i) < 0x20 && text[i] != '\t' && text[i] != '\n';
        const bool c1 = at(i) == 0xC2 && at(i + 1) < 0xA0;
        const bool order =
            at(i) == 0xE2 && ((at(i + 1) == 0x80 && at(i + 2) >= 0xA8 && at(i + 2) <= 0xAE) ||
                              (at(i + 1) == 0x81 && at(i + 2) >= 0xA6 && at(i + 2) <= 0xA9));
        if (c0 || c1 || order || at(i) == 0x7F) {
            return true;
        }
    }
    return false;
}

// The C library's decoder agrees that it is UTF-8. It takes numbers beyond the last character, too.
bool is_utf8(const std::string& text) {
    std::wstring wide(text.size() + 1, L'\0');
    const std::size_t size = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    return size != static_cast<std::size_t>(-1) &&
           std::all_of(wide.begin(), wide.end(), [](wchar_t c) { return c <= 0x10FFFF; });
}

void require_harmless(const std::string& text) {
    require(!steers(text));
    require(is_utf8(text));
}

std::string lines_of(std::string text) {
    wq::command::show_lines(text);
    return text;
}

std::string unescaped(std::string_view shown) {
    std::string text;
    while (!shown.empty()) {
        if (shown.starts_with("\\x")) {
            text += static_cast<char>(std::stoi(std::string(shown.substr(2, 2)), nullptr, 16));
            shown.remove_prefix(4);
        } else {
            text += shown.front();
            shown.remove_prefix(1);
        }
    }
    return text;
}

auto newlines(std::string_view text) {
    return std::count(text.begin(), text.end(), '\n');
}

void check_text(const std::string& text) {
    const std::string shown = wq::command::shown(text);
    require_harmless(shown);
    require(newlines(shown) == 0);
    require(wq::command::shown(shown) == shown);
    const std::string lines = lines_of(text);
    require_harmless(lines);
    require(newlines(lines) == newlines(text));
    require(lines_of(lines) == lines);
    if (text.find('\\') == std::string::npos) {
        require(unescaped(shown) == text);
        require(unescaped(lines) == text);
    }
    if (text.find('\0') == std::string::npos && is_utf8(text) && !steers(text)) {
        require(lines == text);
    }
}

void check_lines(rtrap_user kind, std::string_view host, std::string_view text) {
    std::string rest = lines_of(wq::command::trap_lines(kind, text, host));
    require_harmless(rest);
    require(text.empty() || rest.ends_with('\n') || newlines(text) == 0);
    if (kind == VORTD_USER || kind == OBU_USER) {
        return;
    }
    for (bool first = true; !rest.empty(); first = false) {
        require(rest.starts_with('\t') != first);
        rest.erase(0, rest.find('\n') + 1);
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    require(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    check_text(text);
    if (size >= 2) {
        const std::size_t length = std::min<std::size_t>(data[1], size - 2);
        check_lines(kinds[data[0] % kinds.size()], std::string_view(text).substr(2, length),
                    std::string_view(text).substr(2 + length));
    }
    return 0;
}
