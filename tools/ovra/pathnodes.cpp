// Editing packed paths node by node, without a detour through text.
#include <algorithm>

#include "tools/ovra/devicepaths.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/loadoption.h"

namespace tool {

namespace {

constexpr uint8_t file_path_subtype = 4;

struct first_instance {
    std::vector<byte_view> nodes; // before its END node
    byte_view rest;               // the END node and all behind it
};

first_instance split_first(byte_view packed)
{
    if (const auto error = path_error(packed))
        throw failure("the option's path is no packed device path: " + *error,
                      "What should stay of it cannot be told; 'ovra create --force' overwrites the option.");
    first_instance first;
    while (packed[0] != UEFI_END) {
        const size_t length = static_cast<size_t>(packed[2] | packed[3] << 8);
        first.nodes.push_back(packed.first(length));
        packed = packed.subspan(length);
    }
    first.rest = packed;
    return first;
}

bool is_file(byte_view node)
{
    return node[0] == UEFI_MEDIA && node[1] == file_path_subtype;
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

bytes with_devices(byte_view packed, byte_view nodes)
{
    const first_instance first = split_first(packed);
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
    const first_instance first = split_first(packed);
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
