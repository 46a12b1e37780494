/* SPDX-License-Identifier: MIT */
// What may be done with files.
#ifndef OVRA_TOOLS_FILES_H
#define OVRA_TOOLS_FILES_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "tools/text/text.h"

namespace tool {

// Whether this process may access the file; the mode is that of access(2).
bool may(const std::string &path, int access_mode);

bool is_read_only(const std::string &path); // its file system

// Type, mode, owner, size and marks of a file; nothing when there is none.
std::optional<struct statx> look_at(const std::string &path);

// The names in a folder, without "." and "..", as far as they can be read.
void for_each_name(const std::string &folder, const std::function<void(std::string_view)> &take);

// Whether this process may open so many files more: 0, or an errno value.
int can_open(size_t files);

// The largest file that this process may write, in bytes.
uint64_t largest_file();

// What a regular file holds. Throws a failure when it is none, cannot be read, or is larger than the limit.
bytes contents(const std::string &file, size_t limit, const char *when_larger);

// What standard input has up to its end. Throws a failure when it cannot be read or is longer than the limit.
std::string standard_input(size_t limit, const char *when_longer);

// Whether it is marked as immutable or append-only.
bool is_marked(const struct statx &file);

} // namespace tool

#endif
