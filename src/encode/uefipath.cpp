// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <string_view>

#include "src/base/ascii.h"
#include "src/dpath/list.h"
#include "src/encode/args.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"

using ovra::arg_list;
using ovra::copy_of;
using ovra::fail;
using ovra::owned;
using ovra::trace;

namespace {

const uefi_encode_opt_t *find_keyword(const char *keyword)
{
    const auto row = std::find_if(std::begin(encode_opt_table), std::end(encode_opt_table),
                                  [&](const auto &opt) { return ovra::alike(opt.opt_name, keyword); });
    return row == std::end(encode_opt_table) ? nullptr : row;
}

// Appends the nodes of one instance after the other.
class path_builder {
public:
    int add_instance(const ovra_path_t &path);
    int add_end(uint8_t subtype);
    uefi_device_path_t **release() { return list.release(); }

private:
    int add_text_node(std::string_view text);
    int add_file(const char *path);
    int append(owned<uefi_device_path_t> node);

    ovra::node_list_builder list;
};

int path_builder::append(owned<uefi_device_path_t> node)
{
    return list.append(std::move(node)) == 0 ? 0 : fail("unable to add dpath_node\n");
}

int path_builder::add_end(uint8_t subtype)
{
    uefi_device_path_t *node = nullptr;
    if (add_device_end(subtype, &node) != 0)
        return fail("failed adding end instance\n");
    return append(owned<uefi_device_path_t>(node));
}

int path_builder::add_file(const char *path)
{
    uefi_device_path_t *node = nullptr;
    if (add_file_path(path, &node) != 0)
        return fail("unable to create file device path\n");
    return append(owned<uefi_device_path_t>(node));
}

int path_builder::add_text_node(std::string_view text)
{
    const owned<char> devnode = copy_of(text);
    if (!devnode)
        return fail("unable to allocate devnode\n");
    trace("processing devnode: %s\n", devnode.get());
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return fail("invalid devnode: %s\n", devnode.get());

    const owned<char> keyword = copy_of({text.data(), open});
    if (!keyword)
        return fail("unable to allocate devname\n");
    // What follows the last parenthesis is ignored.
    const owned<char> arguments = copy_of({text.data() + open + 1, close - open - 1});
    if (!arguments)
        return fail("unable to allocate arg_str\n");
    if (*arguments)
        trace("args for %s are: '%s'\n", devnode.get(), arguments.get());
    else
        trace("no args for %s\n", devnode.get());

    const uefi_encode_opt_t *row = find_keyword(keyword.get());
    if (!row)
        return fail("%s not found in encode table\n", keyword.get());
    if (!row->opt_encode_fcn)
        return fail("encoder for %s not available\n", keyword.get());
    uefi_arg_list_t *list_of_arguments = nullptr;
    if (arg_list_init(&list_of_arguments, arguments.get(), row->opt_param_list) != 0)
        return fail("failure setting up argument list for %s %s\n", keyword.get(), arguments.get());
    const arg_list args(list_of_arguments);
    uefi_device_path_t *node = nullptr;
    if (row->opt_encode_fcn(args.get(), &node) != 0)
        return fail("failure encoding %s\n", keyword.get());
    return append(owned<uefi_device_path_t>(node));
}

int path_builder::add_instance(const ovra_path_t &path)
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

} // namespace

int encode_uefipath(ovra_path_t **paths, uefi_device_path_t ***list)
{
    path_builder builder;
    for (ovra_path_t **path = paths; *path; ++path) {
        if (path != paths && builder.add_end(UEFI_END_INSTANCE) != 0)
            return -1;
        if (builder.add_instance(**path) != 0)
            return -1;
    }
    if (builder.add_end(UEFI_END_ENTIRE) != 0)
        return -1;
    *list = builder.release();
    return 0;
}
