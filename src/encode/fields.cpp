// SPDX-License-Identifier: MIT
#include "src/encode/fields.h"

#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::field;
using ovra::form;
using ovra::got;

static int read_integer(uefi_arg_list_t *args, const field &field, uint64_t *value)
{
    const char *text = ovra_get_arg(args, field.name);
    if (!text && field.missing)
        return fail("%s", field.missing);
    if (!text)
        return static_cast<int>(ovra::number_absent(field.name));
    if (const ovra::word *word = ovra::by_text(field.words, text)) {
        *value = word->value;
        return 0;
    }
    if (ovra::read_integer(field.name, text, field.at.size, value) != got::ok)
        return -1;
    if (*value > field.limit)
        return fail(field.over, static_cast<int>(*value)); // NOLINT: a literal of the field list
    return 0;
}

// Bytes as many as a member has: of few of them a copy costs less than a call.
static void write_integer(uint64_t value, size_t size, uint8_t *to)
{
    switch (size) {
    case sizeof(uint8_t):
        *to = static_cast<uint8_t>(value);
        break;
    case sizeof(uint16_t):
        memcpy(to, &value, sizeof(uint16_t));
        break;
    case sizeof(uint32_t):
        memcpy(to, &value, sizeof(uint32_t));
        break;
    default:
        memcpy(to, &value, sizeof value);
    }
}

// Reads one field to its place in the node's image.
static int read_field(uefi_arg_list_t *args, const field &field, uint8_t *node)
{
    uint8_t *to = node + field.at.offset;
    switch (field.value) {
    case form::integer: {
        uint64_t value = 0;
        if (read_integer(args, field, &value) != 0)
            return -1;
        write_integer(value, field.at.size, to);
        return 0;
    }
    case form::guid: {
        EFI_GUID guid = {};
        if (!ovra::require(args, field.name, &guid))
            return -1;
        memcpy(to, &guid, sizeof guid);
        return 0;
    }
    case form::bytes: {
        ovra::hex_bytes hex;
        if (!ovra::require_hex(args, field.name, field.at.size, field.at.size, &hex))
            return -1;
        memcpy(to, hex.bytes.get(), field.at.size);
        return 0;
    }
    }
    return -1;
}

int ovra::encode_fields(uefi_arg_list_t *args, uefi_device_path_t **out, node_kind kind,
                        std::span<const field> fields, const char *no_memory, order allocation)
{
    uint8_t image[largest_field_list] = {};
    owned<uefi_device_path_t> node;
    const auto allocate = [&] {
        node = new_header(kind.type, kind.subtype, kind.size, kind.size);
        return node ? 0 : fail("%s", no_memory);
    };
    if (allocation == order::alloc_first && allocate() != 0)
        return -1;
    for (const field &field : fields) {
        if (read_field(args, field, image) != 0)
            return -1;
    }
    if (allocation == order::alloc_last && allocate() != 0)
        return -1;
    memcpy(node.get() + 1, image + sizeof *node, kind.size - sizeof *node);
    return hand_over(std::move(node), out);
}
