/* SPDX-License-Identifier: MIT */
/*
 * Printed node kinds. A kind is one row: its record and its format. The row is reached only by nodes that are
 * as long as the record, so that no format can read beyond its node.
 */
#ifndef SRC_PRINT_ROWS_H
#define SRC_PRINT_ROWS_H

#include <cstddef>

#include "src/base/nodes.h"
#include "src/base/words.h"
#include "src/print/print.h"
#include "src/print/text.h"

namespace ovra {

struct printed {
    node_kind kind;
    void (*print)(const uefi_device_path_t *node, text &to);
};

/* The row of a record that states its kind; `format` takes the record and the text. */
template <typename record, typename format>
constexpr printed row(format)
{
    static_assert(kind_of<record>.type != 0, "the record states no kind");
    return {kind_of<record>, [](const uefi_device_path_t *node, text &to) {
                format{}(*reinterpret_cast<const record *>(node), to);
            }};
}

constexpr bool distinct_subtypes(std::span<const printed> rows)
{
    for (size_t i = 0; i < rows.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (rows[i].kind.subtype == rows[j].kind.subtype)
                return false;
        }
    }
    return true;
}

/* The string that begins the bytes: to its terminator, or to their end. */
inline std::string_view bounded_string(std::span<const uint8_t> bytes)
{
    const auto *string = reinterpret_cast<const char *>(bytes.data());
    return {string, strnlen(string, bytes.size())};
}

/* The word of a value, or the value in decimal. */
void add_word(text &to, std::span<const word> words, unsigned value);

/* Prints a node by its row. false: none stands for it, and the text is as it was. */
bool print_row(std::span<const printed> rows, const uefi_device_path_t *node, text &to);

/* Prints the bytes of a node in a generic form. false: no memory for them, and the text is as it was. */
using generic_form = void (*)(const uefi_device_path_t &node, const char *hex, text &to);
bool print_generic(const uefi_device_path_t *node, text &to, generic_form form);

/* The text of any node, and of one of each type. false: no memory for it. */
using node_printer = bool (*)(const uefi_device_path_t *node, text &to);
bool node_text(const uefi_device_path_t *node, text &to);
bool hardware_text(const uefi_device_path_t *node, text &to);
bool acpi_text(const uefi_device_path_t *node, text &to);
bool messaging_text(const uefi_device_path_t *node, text &to);
bool media_text(const uefi_device_path_t *node, text &to);
bool bios_text(const uefi_device_path_t *node, text &to);
bool unknown_text(const uefi_device_path_t *node, text &to);

/* Appends the text of a node to an accumulator. */
void append_node_text(node_printer printer, const uefi_device_path_t *node, char **to);

} // namespace ovra

#endif
