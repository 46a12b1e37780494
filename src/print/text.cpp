// SPDX-License-Identifier: MIT
#include "src/print/text.h"

#include <cstddef>
#include <cstring>

#include "src/base/guid.h"
#include "src/print/print.h"

using namespace ovra;

void ovra::add_word(text &to, std::span<const word> words, unsigned value)
{
    if (const word *word = by_value(words, value))
        to.put(word->text);
    else
        to.add("%u", value);
}

void device_path_hexdump(const uefi_device_path_t *node, char **hex)
{
    // Kept: the dump begins with the node's own length. [kept_hex_text_begins_with_the_length]
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
