// Numbers that options take. The argument parser's own conversion wraps negative numbers round and
// takes other bases and "nan".
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

namespace wq::command {

// whole_number, real_number: for CLI::Option::transform(): refuses all but decimal numbers from
// `low` to `high`.
CLI::Validator whole_number(std::int64_t low, std::int64_t high);
CLI::Validator real_number(double low, double high);

}  // namespace wq::command
