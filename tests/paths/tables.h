/* SPDX-License-Identifier: MIT */
/* The tables below tests/data, and one step each way between text and packed form. */
#ifndef TESTS_PATHS_TABLES_H
#define TESTS_PATHS_TABLES_H

#include <optional>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "tests/support/bytes.h"

namespace ovra::test {

/* The rows of a table, split at tabs; lines that begin with "#" are comments. Throws for a file without rows.
 */
std::vector<std::vector<std::string>> read_table(const std::string &file);

/* A text of one instance as packed bytes; nothing when it is refused. */
std::optional<bytes> encode(const std::string &device);

struct instance {
    std::string device;
    std::optional<std::string> file;
    bool operator==(const instance &) const = default;
};

/* The instances of a packed path; nothing when it is refused. */
std::optional<std::vector<instance>> decode(const bytes &packed);

} // namespace ovra::test

#endif
