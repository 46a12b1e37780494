// SPDX-License-Identifier: MIT
#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "src/dpath/list.h"
#include "src/encode/args.h"
#include "src/encode/table.h"
#include "src/rt/diag.h"
#include "src/rt/growing.h"

using ovra::fail;
using ovra::owned;
using ovra::trace;
using ovra::tracing;

namespace {

// Nodes as a list.
class listed_nodes {
public:
    int append(owned<uefi_device_path_t> node)
    {
        return list.append(std::move(node)) == 0 ? 0 : fail("unable to add dpath_node\n");
    }

    int append_end(uint8_t subtype)
    {
        uefi_device_path_t *node = nullptr;
        if (add_device_end(subtype, &node) != 0)
            return fail("failed adding end instance\n");
        return append(owned<uefi_device_path_t>(node));
    }

    ovra::node_list_builder list;
};

// Nodes as they come, packed.
class packed_nodes {
public:
    int append(const owned<uefi_device_path_t> &node) { return append_bytes(*node); }

    int append_end(uint8_t subtype) { return append_bytes({UEFI_END, subtype, sizeof(uefi_device_path_t)}); }

    ovra::growing_block<uint8_t> path;

private:
    int append_bytes(const uefi_device_path_t &node)
    {
        uint8_t *to = path.reserve(node.len);
        if (!to)
            return fail("unable to add dpath_node\n");
        memcpy(to, &node, node.len);
        path.take(node.len);
        return 0;
    }
};

// The precision with which a message shows a part of a text.
int shown(std::string_view text)
{
    return static_cast<int>(std::min<size_t>(text.size(), INT_MAX));
}

// Appends the nodes of one instance after the other.
template <typename nodes>
class path_builder {
public:
    int add_paths(ovra_path_t **paths);

    nodes built;

private:
    int add_instance(const ovra_path_t &path);
    int add_text_node(std::string_view text);
    int add_file(const char *path);

    ovra::arg_list_room arguments{512};
};

template <typename nodes>
int path_builder<nodes>::add_file(const char *path)
{
    uefi_device_path_t *node = nullptr;
    if (add_file_path(path, &node) != 0)
        return fail("unable to create file device path\n");
    return built.append(owned<uefi_device_path_t>(node));
}

template <typename nodes>
int path_builder<nodes>::add_text_node(std::string_view text)
{
    if (tracing())
        trace("processing devnode: %.*s\n", shown(text), text.data());
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return fail("invalid devnode: %.*s\n", shown(text), text.data());

    const std::string_view keyword(text.data(), open);
    // What follows the last parenthesis is ignored.
    const std::string_view between(text.data() + open + 1, close - open - 1);
    if (tracing()) {
        if (between.empty())
            trace("no args for %.*s\n", shown(text), text.data());
        else
            trace("args for %.*s are: '%.*s'\n", shown(text), text.data(), shown(between), between.data());
    }

    const uefi_encode_opt_t *row = ovra::find_keyword(keyword);
    if (!row)
        return fail("%.*s not found in encode table\n", shown(keyword), keyword.data());
    if (!row->opt_encode_fcn)
        return fail("encoder for %.*s not available\n", shown(keyword), keyword.data());
    const ovra::lent_arg_list list = arguments.make(between, row->opt_param_list);
    if (!list) {
        return fail("failure setting up argument list for %.*s %.*s\n", shown(keyword), keyword.data(),
                    shown(between), between.data());
    }
    uefi_device_path_t *node = nullptr;
    if (row->opt_encode_fcn(list.get(), &node) != 0)
        return fail("failure encoding %.*s\n", shown(keyword), keyword.data());
    return built.append(owned<uefi_device_path_t>(node));
}

template <typename nodes>
int path_builder<nodes>::add_instance(const ovra_path_t &path)
{
    std::string_view rest = path.device_path;
    while (!rest.empty()) {
        // A run of slashes counts as one, but one more at the very end leaves an empty node, which is
        // refused.
        rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
        const size_t end = std::min(rest.find('/'), rest.size());
        if (add_text_node({rest.data(), end}) != 0)
            return -1;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return path.file_path ? add_file(path.file_path) : 0;
}

template <typename nodes>
int path_builder<nodes>::add_paths(ovra_path_t **paths)
{
    for (ovra_path_t **path = paths; *path; ++path) {
        if (path != paths && built.append_end(UEFI_END_INSTANCE) != 0)
            return -1;
        if (add_instance(**path) != 0)
            return -1;
    }
    return built.append_end(UEFI_END_ENTIRE);
}

} // namespace

int encode_uefipath(ovra_path_t **paths, uefi_device_path_t ***list)
{
    path_builder<listed_nodes> builder;
    if (builder.add_paths(paths) != 0)
        return -1;
    *list = builder.built.list.release();
    return 0;
}

int encode_packed_path(ovra_path_t **paths, ovra_epath_t *out, int *len)
{
    path_builder<packed_nodes> builder;
    if (builder.add_paths(paths) != 0)
        return fail("error with encode_uefipath\n");
    const size_t size = builder.built.path.size();
    if (size > INT_MAX)
        return fail("unable to pack dpath_list\n");
    if (out)
        *out = builder.built.path.release();
    if (len)
        *len = static_cast<int>(size);
    return 0;
}
