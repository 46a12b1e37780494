// SPDX-License-Identifier: MIT
#include "tools/machine/pathnodes.h"

#include <algorithm>

#include "src/base/nodes.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"

namespace tool {

namespace {

struct first_instance {
    std::vector<byte_view> nodes; // before its END node
    byte_view rest;               // the END node and all after it
};

first_instance split_first(byte_view packed)
{
    first_instance first;
    first.rest = packed;
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next(); first.rest = nodes.rest) {
        if (node->type == UEFI_END)
            break;
        first.nodes.push_back(ovra::node_bytes(node));
    }
    return first;
}

first_instance split_stored(byte_view packed)
{
    if (const auto error = path_error(packed))
        throw failure("the option's path is no packed device path: " + *error,
                      "It is unclear what to keep; 'ovra create --force' overwrites it.");
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
    return ovra::as<uefi_file_path_t>(node) != nullptr;
}

std::vector<std::vector<byte_view>> instances_of(byte_view packed)
{
    std::vector<std::vector<byte_view>> instances(1);
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next();) {
        if (node->type != UEFI_END)
            instances.back().push_back(ovra::node_bytes(node));
        else if (!ovra::is_end_entire(node))
            instances.emplace_back();
        else
            break;
    }
    return instances;
}

std::vector<byte_view> paths_of(byte_view packed)
{
    std::vector<byte_view> paths;
    byte_view rest = packed;
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next();) {
        if (!ovra::is_end_entire(node))
            continue;
        paths.push_back(rest.first(rest.size() - nodes.rest.size()));
        rest = nodes.rest;
    }
    if (!rest.empty())
        paths.push_back(rest);
    return paths;
}

std::vector<path_instance> all_instances_of(byte_view packed)
{
    std::vector<path_instance> instances;
    bool begins_path = true;
    byte_view rest = packed;
    byte_view behind = packed; // the last node that was read
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next(); behind = nodes.rest) {
        if (node->type != UEFI_END)
            continue;
        instances.push_back({rest.first(rest.size() - behind.size()), begins_path});
        begins_path = ovra::is_end_entire(node);
        rest = nodes.rest;
    }
    if (!rest.empty())
        instances.push_back({rest, begins_path});
    return instances;
}

bytes with_end(byte_view nodes)
{
    bytes path(nodes.begin(), nodes.end());
    append(&path, ovra::bytes_of(ovra::end_entire));
    return path;
}

byte_view first_instance_of(byte_view packed)
{
    byte_view rest = packed; // from the END node on
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next(); rest = nodes.rest) {
        if (node->type == UEFI_END)
            break;
    }
    return packed.first(packed.size() - rest.size());
}

bool ends_plainly(byte_view packed)
{
    bool plain = false;
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next();) {
        if (node->type != UEFI_END)
            continue;
        plain = ovra::is_end_entire(node);
        if (node->len != sizeof *node || (!plain && node->subtype != UEFI_END_INSTANCE))
            return false;
        if (plain)
            return true;
    }
    return plain;
}

size_t bytes_after_end(byte_view packed)
{
    size_t behind = packed.size();
    for (ovra::cursor nodes{packed}; const auto *node = nodes.next();) {
        if (node->type != UEFI_END)
            continue;
        behind = nodes.rest.size();
        if (ovra::is_end_entire(node))
            break;
    }
    return behind;
}

void require_one_instance(byte_view encoded)
{
    const first_instance first = split_first(encoded);
    ovra::cursor end{first.rest};
    end.next();
    if (end.at_end())
        return;
    throw failure(format("node %zu of the path is an END node", first.nodes.size() + 1),
                  "What follows it would not belong to the path's first instance;\n"
                  "--path-hex stores any path.");
}

bytes joined(byte_view front, byte_view path)
{
    bytes all;
    append_nodes(&all, front);
    append(&all, path);
    return all;
}

void require_devices(byte_view encoded)
{
    const auto instances = instances_of(encoded);
    if (instances.size() > 1)
        throw failure("the path has several instances",
                      "Only the first of the option would be replaced; --path-hex of 'ovra create' takes any "
                      "path.");
    if (std::any_of(instances[0].begin(), instances[0].end(), is_file))
        throw failure("the path has a file before its end", "'ovra create' takes any path.");
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

bytes with_hard_drive(byte_view packed, byte_view node)
{
    split_stored(packed); // refuses one that is not well-formed
    bytes path;
    bool found = false;
    ovra::cursor nodes{packed};
    while (const auto *each = nodes.next()) {
        const bool is_disk = ovra::is_kind<uefi_hard_drive_path_t>(each);
        append(&path, is_disk ? node : ovra::node_bytes(each));
        found = found || is_disk;
    }
    append(&path, nodes.rest);
    if (!found)
        throw failure("the path names no partition", "--disk puts one into it.");
    return path;
}

} // namespace tool
