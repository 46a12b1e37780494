/* SPDX-License-Identifier: MIT */
/*
 * Printed node kinds. A kind is one row: its record and its format. A row is used only for nodes at least as
 * long as its record: no format can read beyond its node.
 */
#ifndef SRC_PRINT_ROWS_H
#define SRC_PRINT_ROWS_H

#include <cstddef>
#include <type_traits>

#include "src/base/nodes.h"
#include "src/base/words.h"
#include "src/print/text.h"

namespace ovra {

struct printed {
    node_kind kind;
    bool any_subtype;
    bool (*print)(const uefi_device_path_t *node, text &to); // false: generic after all, and nothing printed
};

enum class subtypes : bool { own, any };

/*
 * The row of a record that states its kind. `format` takes the record and the text; one that returns a bool
 * may refuse a node, before it prints anything.
 */
template <typename record, auto format>
constexpr printed row(subtypes of = subtypes::own)
{
    static_assert(kind_of<record>.type != 0, "the record states no kind");
    return {kind_of<record>, of == subtypes::any, [](const uefi_device_path_t *node, text &to) {
                const auto &stored = *reinterpret_cast<const record *>(node);
                if constexpr (std::is_void_v<decltype(format(stored, to))>) {
                    format(stored, to);
                    return true;
                } else {
                    return format(stored, to);
                }
            }};
}

using printed_rows = std::span<const printed>;

constexpr bool distinct_subtypes(printed_rows rows)
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

/* The rows of each type of node. */
extern const printed_rows hardware_rows;
extern const printed_rows acpi_rows;
extern const printed_rows messaging_rows;
extern const printed_rows media_rows;
extern const printed_rows bios_rows;

} // namespace ovra

#endif
