#include "input_file.h"

#include <unistd.h>

#include <array>
#include <cerrno>

#include "command.h"

namespace wq::command {
namespace {

Failure unreadable(const std::string& name) {
    return system_failure("cannot read " + name, errno);
}

InputFile open_stream(const std::string& name) {
    if (name != "-") {
        return InputFile(std::fopen(name.c_str(), "rbe"));
    }
    const int copy = dup(STDIN_FILENO);
    return InputFile(copy < 0 ? nullptr : fdopen(copy, "rb"));
}

/* Calls `take` with each piece of what is left of the file. */
template <typename Take>
void for_each_piece(std::FILE* file, const std::string& name, Take take) {
    std::array<char, 65536> piece;
    for (std::size_t got = 1; got > 0;) {
        got = std::fread(piece.data(), 1, piece.size(), file);
        take(std::string_view(piece.data(), got));
    }
    if (std::ferror(file) != 0) {
        throw unreadable(name);
    }
}

InputFile temporary_copy(std::FILE* file, const std::string& name) {
    InputFile copy(std::tmpfile());
    bool written = copy != nullptr;
    for_each_piece(file, name, [&](std::string_view piece) {
        written = written && std::fwrite(piece.data(), 1, piece.size(), copy.get()) == piece.size();
    });
    if (!written || std::fflush(copy.get()) != 0) {
        throw system_failure("cannot keep a copy of " + name, errno);
    }
    std::rewind(copy.get());
    return copy;
}

}  // namespace

void CloseFile::operator()(std::FILE* file) const {
    std::fclose(file);
}

InputFile open_input(const std::string& name) {
    InputFile file = open_stream(name);
    if (!file) {
        throw unreadable(name);
    }
    return std::fseek(file.get(), 0, SEEK_SET) == 0 ? std::move(file)
                                                    : temporary_copy(file.get(), name);
}

std::string read_start(std::FILE* file, std::size_t size) {
    std::string start(size, '\0');
    start.resize(std::fread(start.data(), 1, size, file));
    std::rewind(file);
    return start;
}

std::string read_all(std::FILE* file, const std::string& name) {
    std::string text;
    for_each_piece(file, name, [&](std::string_view piece) { text += piece; });
    return text;
}

Octets read_hex(const std::string& name, const std::string& text) {
    try {
        return parse_hex(name, text, " \t\r\n");
    } catch (const UsageError& error) {
        throw Failure(error.what());
    }
}

}  // namespace wq::command
