// SPDX-License-Identifier: MIT
#include "tools/machine/pathnodes.h"

#include <algorithm>

#include "tools/text/failure.h"
#include "tools/text/loadoption.h"

namespace tool {

namespace {

constexpr uint8_t file_path_subtype = 4;

struct first_instance {
    std::vector<byte_view> nodes; // before its END node
    byte_view rest;               // the END node and all behind it
};

// The node that begins here; nothing when it is cut off or gives no length.
byte_view first_node(byte_view packed)
{
    if (packed.size() < sizeof(uefi_device_path_t))
        return {};
    const size_t length = static_cast<size_t>(packed[2] | packed[3] << 8);
    return length < sizeof(uefi_device_path_t) || length > packed.size() ? byte_view() : packed.first(length);
}

first_instance split_first(byte_view packed)
{
    first_instance first;
    for (byte_view node = first_node(packed); !node.empty() && node[0] != UEFI_END;
         node = first_node(packed)) {
        first.nodes.push_back(node);
        packed = packed.subspan(node.size());
    }
    first.rest = packed;
    return first;
}

first_instance split_stored(byte_view packed)
{
    if (const auto error = path_error(packed))
        throw failure("the option's path is no packed device path: " + *error,
                      "What should stay of it cannot be told; 'ovra create --force' overwrites it.");
    return split_first(packed);
}

void append(bytes *to, byte_view what)
{
    to->insert(to->end(), what.begin(), what.end());
}

void append_nodes(bytes *to, byte_view path)
{
    for (const byte_view node : split_first(path).nodes)
        append(to, node);
}

} // namespace

bool is_file(byte_view node)
{
    return node[0] == UEFI_MEDIA && node[1] == file_path_subtype;
}

std::vector<std::vector<byte_view>> instances_of(byte_view packed)
{
    std::vector<std::vector<byte_view>> instances(1);
    for (byte_view node = first_node(packed); !node.empty(); node = first_node(packed)) {
        packed = packed.subspan(node.size());
        if (node[0] != UEFI_END)
            instances.back().push_back(node);
        else if (node[1] != UEFI_END_ENTIRE)
            instances.emplace_back();
        else
            break;
    }
    return instances;
}

bool ends_plainly(byte_view packed)
{
    bool plain = false;
    for (byte_view node = first_node(packed); !node.empty(); node = first_node(packed)) {
        packed = packed.subspan(node.size());
        if (node[0] != UEFI_END)
            continue;
        plain = node[1] == UEFI_END_ENTIRE;
        if (node.size() != sizeof(uefi_device_path_t) || (!plain && node[1] != UEFI_END_INSTANCE))
            return false;
        if (plain)
            return true;
    }
    return plain;
}

size_t bytes_behind_end(byte_view packed)
{
    size_t behind = packed.size();
    for (byte_view node = first_node(packed); !node.empty(); node = first_node(packed)) {
        packed = packed.subspan(node.size());
        if (node[0] != UEFI_END)
            continue;
        behind = packed.size();
        if (node[1] == UEFI_END_ENTIRE)
            break;
    }
    return behind;
}

void require_one_instance(byte_view encoded)
{
    const first_instance first = split_first(encoded);
    if (first.rest.size() == first_node(first.rest).size())
        return;
    throw failure(format("node %zu of the path is an END node", first.nodes.size() + 1),
                  "What stands behind it would not belong to the path's first instance;\n"
                  "--path-hex stores any path.");
}

bytes with_devices(byte_view packed, byte_view nodes)
{
    const first_instance first = split_stored(packed);
    bytes path;
    append_nodes(&path, nodes);
    for (const byte_view node : first.nodes) {
        if (is_file(node))
            append(&path, node);
    }
    append(&path, first.rest);
    return path;
}

bytes with_file(byte_view packed, byte_view nodes)
{
    const first_instance first = split_stored(packed);
    bytes path;
    bool placed = false;
    // The nodes of a file in several parts are all replaced, where the first of them stands.
    for (const byte_view node : first.nodes) {
        if (!is_file(node))
            append(&path, node);
        else if (!placed)
            append_nodes(&path, nodes);
        placed = placed || is_file(node);
    }
    if (!placed)
        append_nodes(&path, nodes);
    append(&path, first.rest);
    return path;
}

} // namespace tool
