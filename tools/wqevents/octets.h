/*
 * Octet strings as text and as hexadecimal digits.
 */
#ifndef WQEVENTS_TOOL_OCTETS_H
#define WQEVENTS_TOOL_OCTETS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wq::command {

using Octets = std::vector<std::uint8_t>;

/*
 * is_printable: whether the octets are well-formed UTF-8 without control characters other than tab,
 * newline and carriage return. Only such text goes to a terminal as it is.
 */
bool is_printable(std::span<const std::uint8_t> octets);

/* to_text: the octets as they are. */
std::string to_text(std::span<const std::uint8_t> octets);

/* to_hex: "0a ff 00". */
std::string to_hex(std::span<const std::uint8_t> octets);

/*
 * parse_hex: the octets of hexadecimal digits, two an octet. Between octets any of `separators` may
 * stand. A UsageError says what is wrong; `what` names the text in it.
 */
Octets parse_hex(std::string_view what, std::string_view text, std::string_view separators);

/* HexDecoder: the same for a text that comes in pieces. */
class HexDecoder {
  public:
    HexDecoder(std::string_view what, std::string_view separators)
        : what_(what), separators_(separators) {}

    /* Appends the octets of a piece. A UsageError comes after those before what is wrong. */
    void decode(std::string_view piece, Octets& octets);

    /* A UsageError where the text ends in the middle of an octet. */
    void finish() const;

  private:
    [[noreturn]] void refuse(std::uint64_t position) const;

    std::string what_;
    std::string separators_;
    std::uint64_t position_ = 0;  // of the next digit, from 0
    int high_ = -1;               // the first digit of an octet whose second is still to come
};

}  // namespace wq::command

#endif
