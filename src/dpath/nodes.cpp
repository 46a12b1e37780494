// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/dpath/build.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::owned;

int add_file_path(const char *path, uefi_device_path_t **out)
{
    const owned<uint16_t> name(convert_utf8_to_leunicode(path));
    if (!name)
        return -1;
    const size_t size = unicode_strlen(name.get());
    constexpr ovra::node_kind kind = ovra::kind_of<uefi_file_path_t>;
    const size_t length = kind.size + size;
    // Kept: of a text that is longer than a node can be, the length is cut to its 16 bits.
    // [kept_length_is_cut_to_16_bits_while_the_string_keeps_its_bytes]
    auto node = ovra::new_block(kind.type, kind.subtype, length, static_cast<uint16_t>(length));
    if (!node)
        return fail("unable to allocate device path\n");
    memcpy(reinterpret_cast<uint8_t *>(node.get()) + kind.size, name.get(), size);
    return ovra::hand_over(std::move(node), out);
}

int add_device_end(uint8_t subtype, uefi_device_path_t **out)
{
    auto node = ovra::new_raw_node(UEFI_END, subtype, sizeof(uefi_device_path_t));
    if (!node)
        return -1;
    return ovra::hand_over(std::move(node), out);
}
