// SPDX-License-Identifier: MIT
#include "src/print/nodes.h"
#include "src/print/print.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

using generic_form = void (*)(const uefi_device_path_t &node, const char *hex, text &to);

// A type of nodes: its rows, and the form in which it prints what no row stands for.
struct printed_type {
    uint8_t type;
    const printed_rows *rows;
    generic_form generic;
};

void print_unknown(const uefi_device_path_t &node, const char *hex, text &to)
{
    to.add("/Path(0x%x,0x%x,%s)", node.type, node.subtype, hex);
}

void print_hardware(const uefi_device_path_t &node, const char *hex, text &to)
{
    to.add("/HardwarePath(0x%x,%s)", node.subtype, hex);
}

void print_acpi(const uefi_device_path_t &node, const char *hex, text &to)
{
    to.add("/AcpiPath(0x%X,%s)", node.subtype, hex);
}

void print_messaging(const uefi_device_path_t &node, const char *hex, text &to)
{
    // Kept: in decimal, unlike the other generic forms. [kept_messaging_generic_subtype_in_decimal]
    to.add("/MessagingPath(%u,%s)", node.subtype, hex);
}

void print_media(const uefi_device_path_t &node, const char *hex, text &to)
{
    to.add("%sMediaPath(0x%x,%s)", to.media_prefix(), node.subtype, hex);
}

bool print_end(const uefi_device_path_t *, text &to)
{
    to.put("/EndPath");
    return true;
}

// Of any subtype and any length: it has nothing to read.
constexpr printed end_row[] = {{{UEFI_END, 0, 0}, true, print_end}};
constexpr printed_rows end_rows = end_row;
constexpr printed_rows no_rows;

constexpr printed_type types[] = {
    {UEFI_HARDWARE, &hardware_rows, print_hardware},
    {UEFI_ACPI, &acpi_rows, print_acpi},
    {UEFI_MESSAGING, &messaging_rows, print_messaging},
    {UEFI_MEDIA, &media_rows, print_media},
    {UEFI_BIOS, &bios_rows, print_unknown},
    {UEFI_END, &end_rows, print_unknown},
};
constexpr printed_type unknown = {0, &no_rows, print_unknown};

const printed_type &type_of(uint8_t type)
{
    for (const printed_type &known : types) {
        if (known.type == type)
            return known;
    }
    return unknown;
}

bool stands_for(const printed &row, const uefi_device_path_t *node)
{
    return node->type == row.kind.type && (row.any_subtype || node->subtype == row.kind.subtype) &&
           node->len >= row.kind.size;
}

bool print_as(const printed_type &type, const uefi_device_path_t *node, text &to)
{
    for (const printed &row : *type.rows) {
        if (stands_for(row, node) && row.print(node, to))
            return true;
    }
    char *dump = nullptr;
    device_path_hexdump(node, &dump);
    const owned<char> hex(dump);
    if (!hex)
        return false;
    type.generic(*node, hex.get(), to);
    return true;
}

void append_text(uint8_t type, const uefi_device_path_t *node, char **to)
{
    // Kept: only a text that begins with a media node has no "/" in front.
    // [kept_only_a_leading_media_node_has_no_slash]
    text piece(*to != nullptr);
    if (print_as(type_of(type), node, piece))
        append_uefi_path(piece.c_str(), to);
}

} // namespace

bool ovra::node_text(const uefi_device_path_t *node, text &to)
{
    return print_as(type_of(node->type), node, to);
}

void print_device_path(const uefi_device_path_t *node, char **to)
{
    append_text(node->type, node, to);
}

void print_hardware_path(const uefi_device_path_t *node, char **to)
{
    append_text(UEFI_HARDWARE, node, to);
}

void print_acpi_path(const uefi_device_path_t *node, char **to)
{
    append_text(UEFI_ACPI, node, to);
}

void print_messaging_path(const uefi_device_path_t *node, char **to)
{
    append_text(UEFI_MESSAGING, node, to);
}

void print_media_path(const uefi_device_path_t *node, char **to)
{
    append_text(UEFI_MEDIA, node, to);
}

void print_bios_path(const uefi_device_path_t *node, char **to)
{
    append_text(UEFI_BIOS, node, to);
}
