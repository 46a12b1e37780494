/* SPDX-License-Identifier: MIT */
// The device paths of a load option as lines: one for each instance, and one for the file on it.
#ifndef OVRA_TOOLS_EXCHANGE_PATHLINES_H
#define OVRA_TOOLS_EXCHANGE_PATHLINES_H

#include "tools/exchange/fields.h"

namespace tool {

bool is_key_of_path(const std::string &key);

// Lines that give the same bytes back: texts, or `path-bytes` where no text does.
text_lines path_lines_of(byte_view path, device_paths &paths);

// The path that such lines say. Texts may be those of other tools. Throws a line_error.
bytes path_of(const text_lines &lines, device_paths &paths);

} // namespace tool

#endif
