/*
 * The compiler of format texts, and what else walks over text, from any bytes.
 *
 * The first octet chooses the locale (odd: UTF-8), the rest is the text up to its first NUL. The
 * result is what the step by step model gives, whatever was compiled into the element before.
 */
#include <wqevents/configuration.h>
#include <wqevents/status.h>

#include <clocale>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/support/format_model.h"
#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

trap_element element{};

void compile(const std::string& text) {
    makeFormatString(doStrdup(text.c_str()), &element);
    require(wq::test::contents_of(element) == wq::test::compiled(text));
    require(element.num_args >= 0 && element.num_args < EMS_ARGS_MAX);
    require(text.size() > 4094 ? std::strcmp(element.rawstring, "Format string too long") == 0
                               : element.rawstring == text);
}

void interpret(const std::string& text) {
    std::vector<char> out(2 * text.size() + 1);
    interpret_esc_sequences(text.c_str(), out.data());
    const std::string expected = wq::test::interpreted(text);
    require(std::memcmp(out.data(), expected.c_str(), expected.size() + 1) == 0);
}

/* A copy in a block of its own for the sanitizer to watch. */
std::vector<char> copied(const std::string& text) {
    return {text.c_str(), text.c_str() + text.size() + 1};
}

void strip(const std::string& text) {
    std::vector<char> ends = copied(text);
    _WQstrip_whitespace(ends.data(), 0);
    _WQstrip_whitespace(ends.data(), 1);
    std::vector<char> both = copied(text);
    _WQstrip_whitespace(both.data(), 2);
    require(std::strcmp(ends.data(), both.data()) == 0);
    require(std::strstr(text.c_str(), both.data()) != nullptr);
    _WQstrip_whitespace(ends.data(), 2);
    require(std::strcmp(ends.data(), both.data()) == 0);
}

/* Taking away a character at a time ends with the empty text. */
void suck(const std::string& text) {
    std::vector<char> rest = copied(text.substr(0, 100));
    for (std::size_t left = std::strlen(rest.data()); left != 0;) {
        suck_a_char(rest.data());
        const std::size_t now = std::strlen(rest.data());
        require(now < left && now + 2 >= left);
        left = now;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    std::setlocale(LC_CTYPE, data[0] % 2 != 0 ? "C.UTF-8" : "C");
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string text = bytes.c_str();
    compile(text);
    interpret(text);
    strip(text);
    suck(text);
    return 0;
}
