// The fields of a configuration line. Each step does what one piece of a scanf() pattern does, and
// the count is what scanf() would return, so that it can be shown to whoever wrote the line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace wq {

// Steps are chained in the order of the pattern. From the first one on that fails, the others do
// nothing and leave their fields alone. Fields are views of the text, which has no terminator.
class FieldScan {
  public:
    explicit FieldScan(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

    // A blank in the pattern: any white space, or none.
    FieldScan& blanks() {
        while (going() && is_blank(*at_)) {
            ++at_;
        }
        return *this;
    }

    // A character of the pattern itself.
    FieldScan& literal(char expected) {
        if (going_ && expect(at_ != end_ && *at_ == expected)) {
            ++at_;
        }
        return *this;
    }

    // %d: white space, a sign or none, digits.
    FieldScan& number(int& value) {
        blanks();
        if (!going_) {
            return *this;
        }
        const char* digits = at_ + (at_ != end_ && (*at_ == '-' || *at_ == '+') ? 1 : 0);
        if (expect(digits != end_ && is_digit(*digits))) {
            const bool negative = *at_ == '-';
            at_ = digits;
            value = read_digits(negative);
            ++count_;
        }
        return *this;
    }

    // %s: white space, then at least one character that is none.
    FieldScan& word(std::string_view& field) {
        blanks();
        if (going_) {
            take(field, [](char c) { return is_blank(c); });
        }
        return *this;
    }

    // %[^c]: at least one character up to the next `delimiter` or the end.
    FieldScan& until(char delimiter, std::string_view& field) {
        if (going_) {
            take(field, [delimiter](char c) { return c == delimiter; });
        }
        return *this;
    }

    // %c
    FieldScan& character(char& field) {
        if (going_ && expect(at_ != end_)) {
            field = *at_++;
            ++count_;
        }
        return *this;
    }

    // Fields that matched; -1 when the text ended before the first.
    int count() const { return count_ == 0 && at_end_ ? -1 : count_; }
    // Whether the whole pattern has matched so far.
    bool matches() const { return going_; }
    std::string_view rest() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }

  private:
    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static bool is_digit(char c) { return c >= '0' && c <= '9'; }

    bool going() const { return going_ && at_ != end_; }

    bool expect(bool holds) {
        going_ = holds;
        at_end_ = !holds && at_ == end_;
        return holds;
    }

    template <class Ends>
    void take(std::string_view& field, Ends ends) {
        const char* start = at_;
        while (at_ != end_ && !ends(*at_)) {
            ++at_;
        }
        if (expect(at_ != start)) {
            field = {start, static_cast<std::size_t>(at_ - start)};
            ++count_;
        }
    }

    // As %d has it: the number as a long, where it does not fit the nearest that does, and of that
    // the low 32 bits.
    int read_digits(bool negative) {
        constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
        const std::uint64_t limit = negative ? largest + 1 : largest;
        std::uint64_t magnitude = 0;
        for (; at_ != end_ && is_digit(*at_); ++at_) {
            const auto digit = static_cast<std::uint64_t>(*at_ - '0');
            magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
        }
        return static_cast<int>(static_cast<std::uint32_t>(negative ? 0 - magnitude : magnitude));
    }

    const char* at_;
    const char* end_;
    int count_ = 0;
    bool going_ = true;
    bool at_end_ = false;
};

// Behind the keyword of a category: %d "%[^"]" %c
struct CategoryFields {
    int slot = 0;
    std::string_view name;
};

inline int scan_category(std::string_view text, CategoryFields& fields) {
    char extra = 0;
    return FieldScan(text)
        .number(fields.slot)
        .blanks()
        .literal('"')
        .until('"', fields.name)
        .literal('"')
        .blanks()
        .character(extra)
        .count();
}

// Behind the keyword of an action: %d "%[^"]" %n
struct ActionFields {
    int wait_time = 0;
    std::string_view name;
    std::string_view command;  // from %n on; empty where the pattern did not get so far
};

inline int scan_action(std::string_view text, ActionFields& fields) {
    FieldScan scan(text);
    scan.number(fields.wait_time).blanks().literal('"').until('"', fields.name);
    if (scan.literal('"').blanks().matches()) {
        fields.command = scan.rest();
    }
    return scan.count();
}

// %s {%[^}]} %c
struct EnterpriseFields {
    std::string_view name;
    std::string_view oid;
};

inline int scan_enterprise(std::string_view line, EnterpriseFields& fields) {
    char extra = 0;
    return FieldScan(line)
        .word(fields.name)
        .blanks()
        .literal('{')
        .until('}', fields.oid)
        .literal('}')
        .blanks()
        .character(extra)
        .count();
}

// %s {%[^}]} %d %d %c %d %d "%[^"]" %c %c
struct EventFields {
    std::string_view name;
    std::string_view oid;
    int generic = 0;
    int specific = 0;
    char source = 0;
    int severity = 0;
    int status = 0;
    std::string_view category;
};

inline int scan_event(std::string_view line, EventFields& fields) {
    char extra = 0;
    FieldScan scan(line);
    scan.word(fields.name).blanks().literal('{').until('}', fields.oid).literal('}');
    scan.number(fields.generic).number(fields.specific).blanks().character(fields.source);
    scan.number(fields.severity).number(fields.status);
    scan.blanks().literal('"').until('"', fields.category).literal('"');
    return scan.blanks().character(extra).blanks().character(extra).count();
}

}  // namespace wq
