/*
 * Files that are read as they are given on the command line, and hexadecimal digits in them.
 */
#ifndef WQEVENTS_TOOL_INPUT_FILE_H
#define WQEVENTS_TOOL_INPUT_FILE_H

#include <cstdio>
#include <memory>
#include <string>

#include "octets.h"

namespace wq::command {

struct CloseFile {
    void operator()(std::FILE* file) const;
};
using InputFile = std::unique_ptr<std::FILE, CloseFile>;

/*
 * open_input: the file of that name, for "-" the standard input, at its start, to which rewind()
 * leads back: what comes by a pipe is put into a temporary file. A Failure where it cannot be read.
 */
InputFile open_input(const std::string& name);

/* read_start: the first `size` bytes, or all where there are fewer; the file is rewound. */
std::string read_start(std::FILE* file, std::size_t size);

/* read_all: what is left of the file; `name` is for the Failure. */
std::string read_all(std::FILE* file, const std::string& name);

/* read_hex: the octets of hexadecimal digits with white space; a Failure tells the position. */
Octets read_hex(const std::string& name, const std::string& text);

}  // namespace wq::command

#endif
