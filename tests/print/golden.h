/* SPDX-License-Identifier: MIT */
/* The cases of tests/data/print.tsv, and nodes as the tests of the printer build them. */
#ifndef TESTS_PRINT_GOLDEN_H
#define TESTS_PRINT_GOLDEN_H

#include <optional>
#include <string>
#include <vector>

#include "src/print/print.h"
#include "tests/support/bytes.h"

namespace ovra::test {

struct golden_case {
    std::string name;
    bytes nodes; /* without an END node */
    std::string device;
    std::optional<std::string> file;
};

/* Reads the table once. Throws when a line has no such form. */
const std::vector<golden_case> &golden_cases();

/* The nodes of a path that is known to be whole. */
std::vector<bytes> split_nodes(const bytes &path);

/*
 * A node in a block of its own size (at least that of a header), so that a sanitizer sees every byte that is
 * read beyond it.
 */
class exact_node {
public:
    explicit exact_node(const bytes &content);
    ~exact_node();
    exact_node(const exact_node &) = delete;
    exact_node &operator=(const exact_node &) = delete;

    uefi_device_path_t *get() const { return node; }

private:
    uefi_device_path_t *node;
};

/* A node of this header and these bytes behind it; `len` is what they make. */
bytes node_of(uint8_t type, uint8_t subtype, const bytes &data);

/* What a printer appends to `before` (nothing: to a null accumulator). Nothing: it left that null. */
using c_printer = void (*)(const uefi_device_path_t *node, char **to);
std::optional<std::string> printed(const bytes &node, const std::optional<std::string> &before = {},
                                   c_printer printer = print_device_path);

/* The text of a node in the form that shows its bytes. */
std::string generic_text(const bytes &node, bool follows = false);

/* The least length that the printer's row for a kind asks for; nothing: there is no row. */
std::optional<size_t> row_size(unsigned type, unsigned subtype);

/* The bytes behind type and subtype as the generic forms show them. */
std::string dump(const bytes &node);

/* A path with its END-entire node. */
bytes ended(bytes nodes);

} // namespace ovra::test

#endif
