/* SPDX-License-Identifier: MIT */
// A load option as lines "key = value" that a person reads and changes.
#ifndef OVRA_TOOLS_EXCHANGE_FIELDS_H
#define OVRA_TOOLS_EXCHANGE_FIELDS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/machine/devicepaths.h"
#include "tools/text/text.h"

namespace tool {

struct text_line {
    std::string key;
    std::string value;
    size_t number = 0; // in the file; 0 for one that was not read
};

using text_lines = std::vector<text_line>;

// What is wrong with a text, and in which line.
struct line_error : std::runtime_error {
    line_error(size_t at, const std::string &why) : std::runtime_error(why), line(at) {}

    size_t line;
};

// The keys that the lines of an option may have. Beside those of its fields there are `bytes`, the whole
// variable, `crc32`, the sum of these bytes, and `unreadable`, for an option that is left as it is.
bool is_key_of_option(const std::string &key);

// An option's fields. None for bytes that are no load option.
text_lines lines_of(byte_view option, device_paths &paths);

// The lines of an option as a text has them: its fields, its bytes and their sum.
text_lines all_lines_of(byte_view option, device_paths &paths);

// The variable that the lines of an option say. What the fields say of the bytes that are given stays byte
// for byte; a field that was changed replaces its part of them. `section` is the line of the option's name.
// Throws a line_error.
bytes option_of(const text_lines &lines, size_t section, device_paths &paths);

} // namespace tool

#endif
