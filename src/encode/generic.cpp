// SPDX-License-Identifier: MIT
#include <algorithm>

#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::hex_bytes;
using ovra::owned;

// A node of raw bytes: its data begins with its own length field.
static constexpr size_t data_offset = offsetof(uefi_device_path_t, len);

// Whether the length that the data states is the node's. Data of one byte is half of a length: refused even
// when the node would be as long as that byte says, since it would be shorter than a header.
static bool states_length(const uefi_device_path_t &node, size_t size)
{
    return size >= sizeof node && node.len == size;
}

static owned<uefi_device_path_t> raw_node(uint8_t type, uint8_t subtype, const hex_bytes &data)
{
    // The block holds a header in any case; data that is no more than a part of one is refused later.
    const size_t size = data_offset + data.size;
    auto node = ovra::new_block(type, subtype, std::max(size, sizeof(uefi_device_path_t)), 0);
    if (!node) {
        fail("unable to allocate dpath\n");
        return nullptr;
    }
    memcpy(reinterpret_cast<uint8_t *>(node.get()) + data_offset, data.bytes.get(), data.size);
    return node;
}

int encode_path(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint8_t type = 0;
    uint8_t subtype = 0;
    hex_bytes data;
    if (!ovra::require(args, "type", &type) || !ovra::require(args, "subtype", &subtype) ||
        !ovra::require_hex(args, "data", 1, SIZE_MAX, &data))
        return -1;
    auto node = raw_node(type, subtype, data);
    if (!node)
        return -1;
    if (!states_length(*node, data_offset + data.size)) {
        return fail("invalid payload size: dpath->len = %hu  calculated size = %lu\n", node->len,
                    data_offset + data.size);
    }
    return ovra::hand_over(std::move(node), out);
}

int encode_path_common(uint8_t type, uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint8_t subtype = 0;
    hex_bytes data;
    if (!ovra::require(args, "subtype", &subtype) || !ovra::require_hex(args, "data", 1, SIZE_MAX, &data))
        return -1;
    auto node = raw_node(type, subtype, data);
    if (!node)
        return -1;
    if (!states_length(*node, data_offset + data.size)) {
        return fail("dpath->len=%d from data payload does not match buffer size %lu\n", node->len,
                    data_offset + data.size);
    }
    return ovra::hand_over(std::move(node), out);
}

#define TYPED_PATH(name, type)                                                                               \
    int name(uefi_arg_list_t *args, uefi_device_path_t **out)                                                \
    {                                                                                                        \
        return encode_path_common(type, args, out);                                                          \
    }
TYPED_PATH(encode_hardwarepath, UEFI_HARDWARE)
TYPED_PATH(encode_acpipath, UEFI_ACPI)
TYPED_PATH(encode_messagepath, UEFI_MESSAGING)
TYPED_PATH(encode_mediapath, UEFI_MEDIA)
TYPED_PATH(encode_bbspath, UEFI_BIOS)
