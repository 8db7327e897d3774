/*
 * The MIB's intermediate file: a line "version 1", then one definition a line, a name and its
 * place. docs/mib.md describes it for those who write one.
 */
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/line_reader.h"
#include "platform/libmib.h"

namespace wq {
namespace {

constexpr size_t line_max = 8191; /* bytes of a line, its newline not counted */
constexpr const char* could_not_read = "Could not read";
constexpr const char* too_long = "a line is longer than 8191 bytes";
static_assert(line_max + 1 == LineReader::longest_piece);

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/* The names of SMI, whatever the locale, and the underscore that some modules use. */
bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_in_names(char c) {
    return is_letter(c) || is_digit(c) || c == '-' || c == '_';
}

bool is_name(std::string_view text) {
    return !text.empty() && text.size() <= MibTree::name_max && is_letter(text.front()) &&
           std::all_of(text.begin(), text.end(), is_in_names);
}

/* What stands between the blanks of a line, in front of a comment. */
struct Words {
    std::array<std::string_view, 4> word; /* one more than any line has */
    size_t count = 0;

    explicit Words(std::string_view line) {
        const char* at = line.data();
        const char* end = at + line.size();
        while (count < word.size()) {
            at = std::find_if_not(at, end, is_blank);
            const char* start = at;
            while (at != end && !is_blank(*at) && *at != '#') {
                ++at;
            }
            if (at == start) {
                return; /* the end of the line, or a comment */
            }
            word[count++] = {start, static_cast<size_t>(at - start)};
        }
    }
};

/* Takes the lines of a file one by one. */
class MibFileReader {
  public:
    explicit MibFileReader(MibDefinitions& definitions) : definitions_(definitions) {}

    /* What is wrong with the line; null: nothing. */
    const char* take(std::string_view line) {
        const Words words(line);
        if (words.count == 0) {
            return nullptr;
        }
        return version_seen_ ? take_definition(words) : take_version(words);
    }

    /* The same for what is missing at the end of the file. */
    const char* finish() const { return version_seen_ ? nullptr : no_version; }

  private:
    static constexpr const char* no_version = "the first line is not \"version 1\"";

    const char* take_version(const Words& words) {
        version_seen_ = words.count == 2 && words.word[0] == "version" && words.word[1] == "1";
        return version_seen_ ? nullptr : no_version;
    }

    const char* take_definition(const Words& words) {
        const std::string_view name = words.word[0];
        if (!is_name(name)) {
            return "what is defined is not a name";
        }
        const char* fault = nullptr;
        uint32_t node = MibTree::none;
        if (words.count == 2) {
            fault = find_by_numbers(words.word[1], node);
        } else if (words.count == 3) {
            fault = find_below(words.word[1], words.word[2], node);
        } else {
            fault = "neither \"NAME OID\" nor \"NAME PARENT NUMBER\"";
        }
        if (fault == nullptr) {
            definitions_.define(node, name);
            parent_ = name == parent_name_ ? node : parent_;
        }
        return fault;
    }

    const char* find_by_numbers(std::string_view text, uint32_t& node) {
        std::array<uint32_t, MibTree::depth_max> oid;
        const auto count = read_dotted_numbers(text, oid);
        if (!count) {
            return "not an object identifier of at most 128 numbers";
        }
        node = MibTree::root;
        for (size_t i = 0; i < *count; ++i) {
            node = definitions_.tree.make_child(node, oid[i]);
        }
        return nullptr;
    }

    const char* find_below(std::string_view parent, std::string_view number, uint32_t& node) {
        uint32_t sub_id = 0;
        const char* end = number.data() + number.size();
        const auto [stop, error] = std::from_chars(number.data(), end, sub_id);
        if (error != std::errc{} || stop != end) {
            return "not a number of 32 bits";
        }
        if (parent != parent_name_) {
            const uint32_t found = definitions_.find(parent);
            if (found == MibTree::none) {
                return "the parent is not defined above";
            }
            parent_name_ = parent;
            parent_ = found;
        }
        node = definitions_.tree.make_child(parent_, sub_id);
        return node != MibTree::none ? nullptr : "deeper than 128 numbers";
    }

    MibDefinitions& definitions_;
    bool version_seen_ = false;
    /* The parent of the line before: most lines have the same one. */
    std::string parent_name_;
    uint32_t parent_ = MibTree::none;
};

}  // namespace

std::optional<MibFileFault> read_mib_file(const char* path, MibDefinitions& definitions) {
    const Fd fd = open_for_reading(path);
    if (!fd) {
        return MibFileFault{errno, 0, nullptr};
    }
    FileText file;
    if (!file.read(fd.get(), {.longest_line = line_max + 1, .patience_ms = 5000})) {
        return MibFileFault{errno, 0, could_not_read};
    }
    LineReader source(file.view());
    MibFileReader reader(definitions);
    const char* fault = nullptr;
    size_t line = 1;
    for (;; ++line) {
        const std::string_view text = source.piece(LineReader::longest_piece);
        if (text.empty()) {
            fault = reader.finish();
            break;
        }
        fault = text.size() > line_max && text.back() != '\n' ? too_long : reader.take(text);
        if (fault != nullptr) {
            break;
        }
    }
    return fault != nullptr ? std::optional(MibFileFault{0, line, fault}) : std::nullopt;
}

}  // namespace wq
