// SPDX-License-Identifier: MIT
#include "src/base/guid.h"
#include "src/print/rows.h"

using namespace ovra;

void ovra::add_word(text &to, std::span<const word> words, unsigned value)
{
    if (const word *word = by_value(words, value))
        to.put(word->text);
    else
        to.add("%u", value);
}

bool ovra::print_row(std::span<const printed> rows, const uefi_device_path_t *node, text &to)
{
    for (const printed &row : rows) {
        const node_kind &kind = row.kind;
        if (node->type == kind.type && node->subtype == kind.subtype && node->len >= kind.size) {
            row.print(node, to);
            return true;
        }
    }
    return false;
}

bool ovra::print_generic(const uefi_device_path_t *node, text &to, generic_form form)
{
    char *dump = nullptr;
    device_path_hexdump(node, &dump);
    const owned<char> hex(dump);
    if (!hex)
        return false;
    form(*node, hex.get(), to);
    return true;
}

bool ovra::unknown_text(const uefi_device_path_t *node, text &to)
{
    return print_generic(node, to, [](auto &n, const char *hex, text &t) {
        t.add("/Path(0x%x,0x%x,%s)", n.type, n.subtype, hex);
    });
}

bool ovra::node_text(const uefi_device_path_t *node, text &to)
{
    switch (node->type) {
    case UEFI_HARDWARE:
        return hardware_text(node, to);
    case UEFI_ACPI:
        return acpi_text(node, to);
    case UEFI_MESSAGING:
        return messaging_text(node, to);
    case UEFI_MEDIA:
        return media_text(node, to);
    case UEFI_BIOS:
        return bios_text(node, to);
    case UEFI_END:
        to.put("/EndPath");
        return true;
    default:
        return unknown_text(node, to);
    }
}

void ovra::append_node_text(node_printer printer, const uefi_device_path_t *node, char **to)
{
    // Kept: only a text that begins with a media node has no "/" in front.
    text piece(*to != nullptr);
    if (printer(node, piece))
        append_uefi_path(piece.c_str(), to);
}

void print_device_path(const uefi_device_path_t *node, char **to)
{
    append_node_text(node_text, node, to);
}

void device_path_hexdump(const uefi_device_path_t *node, char **hex)
{
    // Kept: the dump begins with the node's own length.
    constexpr size_t skipped = offsetof(uefi_device_path_t, len);
    const size_t count = node->len < skipped ? 0 : node->len - skipped;
    *hex = static_cast<char *>(malloc(2 * count + 1));
    if (*hex)
        *write_hex({reinterpret_cast<const uint8_t *>(node) + skipped, count}, *hex) = '\0';
}

void append_uefi_path(const char *piece, char **to)
{
    const size_t length = *to ? strlen(*to) : 0;
    const size_t size = strlen(piece) + 1;
    auto *grown = static_cast<char *>(realloc(*to, length + size));
    if (!grown)
        return;
    memcpy(grown + length, piece, size);
    *to = grown;
}

void print_guid(const EFI_GUID *guid, char *out)
{
    const guid_text digits(*guid, letters::upper);
    memcpy(out, digits.c_str(), guid_length + 1);
}
