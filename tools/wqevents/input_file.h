// Files that are read as they are given on the command line, and hexadecimal digits in them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "file_descriptor.h"
#include "octets.h"

namespace wq::command {

struct CloseFile {
    void operator()(std::FILE* file) const;
};
using InputFile = std::unique_ptr<std::FILE, CloseFile>;

// read_all: what is left of the stream; `name` is for the Failure.
std::string read_all(std::FILE* file, const std::string& name);

// refuse_special_file: a Failure if something of that name is there that is no regular file, whose
// end may never come. What is not there is left to whoever opens it.
void refuse_special_file(const std::string& name);

// Input: a regular file, or, for "-", the standard input, which may be anything. It is read once,
// forward. A read that fails is a Failure, never an end.
class Input {
  public:
    explicit Input(const std::string& name);

    // The name as messages show it.
    const std::string& name() const { return name_; }

    // The first `size` bytes of what is left, fewer only at the end; they are still to be read.
    std::string_view peek(std::size_t size);

    // Reads what there is, at least a byte, and returns its beginning of `room`; empty at the end.
    std::string_view read(std::span<char> room);

    // All that is left; a Failure if that is more than `limit` bytes.
    std::string read_all(std::size_t limit);

    // A stream of what is left. The object must outlive it.
    InputFile stream();

  private:
    std::size_t read_some(std::span<char> room);

    std::string name_;
    FileDescriptor fd_;
    std::string ahead_;  // what peek() has read
};

// HexStream: the octets of hexadecimal digits, two an octet, with white space between octets, as
// the input gives them.
class HexStream {
  public:
    explicit HexStream(Input& input) : input_(input), decoder_(input.name(), " \t\r\n") {}

    // Appends octets of a further piece of the text; false at the end. A Failure gives the position
    // of what is wrong; the octets before it have been appended.
    bool append_to(Octets& octets);

  private:
    Input& input_;
    HexDecoder decoder_;
};

}  // namespace wq::command
