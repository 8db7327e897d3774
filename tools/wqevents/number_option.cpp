// Checks the numbers of options before the argument parser converts them.
#include "number_option.h"

#include <array>
#include <charconv>
#include <string>

#include "command.h"

namespace wq::command {
namespace {

std::string plain(std::int64_t number) {
    return std::to_string(number);
}

std::string plain(double number) {
    std::array<char, 512> text{};
    const auto [end, error] =
        std::to_chars(text.begin(), text.end(), number, std::chars_format::fixed);
    return {text.data(), end};
}

// Leaves the number in its plain form, so that "010" is ten for the parser, too.
template <typename Number>
std::string check(std::string& text, Number low, Number high) {
    Number number{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    // Written so that what is no number at all, "nan", lies in no range.
    if (error == std::errc{} && stop == end && number >= low && number <= high) {
        text = plain(number);
        return "";
    }
    return command::quoted(text) + " is not a number from " + plain(low) + " to " + plain(high);
}

}  // namespace

CLI::Validator whole_number(std::int64_t low, std::int64_t high) {
    return {[low, high](std::string& text) { return check(text, low, high); }, ""};
}

CLI::Validator real_number(double low, double high) {
    return {[low, high](std::string& text) { return check(text, low, high); }, ""};
}

}  // namespace wq::command
