// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "src/print/decode.h"
#include "src/rt/diag.h"
#include "src/rt/rt.h"

using ovra::fail;

namespace {

enum field : unsigned { path = 1, desc = 2, attr = 4, optdata = 8, all = path | desc | attr | optdata };

struct option_fields {
    ovra_epath_t path = nullptr;
    int path_len = 0;
    char *desc = nullptr;
    uint32_t attr = 0;
    void *optdata = nullptr;
    size_t optdata_len = 0;
};

// Reads the wanted fields. What is read stays tracked by the handle.
int read_fields(ovra_hdl_t hdl, char *bootname, unsigned wanted, option_fields *option)
{
    if (ovra_bootopt_get(hdl, bootname, wanted & path ? &option->path : nullptr,
                         wanted & path ? &option->path_len : nullptr, wanted & desc ? &option->desc : nullptr,
                         wanted & attr ? &option->attr : nullptr,
                         wanted & optdata ? &option->optdata : nullptr,
                         wanted & optdata ? &option->optdata_len : nullptr) != 0)
        return fail("unable to get existing boot option %s\n", bootname);
    return 0;
}

int write_fields(ovra_hdl_t hdl, char *bootname, const option_fields &option)
{
    if (ovra_bootopt_set(hdl, bootname, option.path, option.path_len, option.desc, option.attr,
                         option.optdata, option.optdata_len) != 0)
        return fail("unable to set existing boot option %s\n", bootname);
    return 0;
}

// The path of an option as text, in instances; null for a path of none. *whole is false when the text lacks a
// node for want of memory.
int decode_path(ovra_hdl_t hdl, char *bootname, const option_fields &option, ovra_path_t ***instances,
                bool *whole)
{
    if (ovra::decode_to_uefi(hdl, option.path, option.path_len, instances, whole) != 0)
        return fail("unable to ovra_epath_decode: %s\n", bootname);
    return 0;
}

using text_field = char *ovra_path_t::*;

int get_text(ovra_hdl_t hdl, char *bootname, text_field which, char **text)
{
    option_fields option;
    ovra_path_t **instances = nullptr;
    bool whole = false; // without memory a text is just shorter, as the decoder's own
    if (read_fields(hdl, bootname, path, &option) != 0 ||
        decode_path(hdl, bootname, option, &instances, &whole) != 0)
        return -1;
    char *found = instances ? instances[0]->*which : nullptr;
    if (!found)
        return -1;
    *text = found;
    return 0;
}

int set_text(ovra_hdl_t hdl, char *bootname, text_field which, char *text)
{
    option_fields option;
    ovra_path_t **instances = nullptr;
    bool whole = false;
    if (read_fields(hdl, bootname, all, &option) != 0 ||
        decode_path(hdl, bootname, option, &instances, &whole) != 0)
        return -1;
    // A path without a first instance has no text to put this one beside; a text that lacks a node, written
    // back, would make an option that boots something else.
    if (!instances || !whole)
        return fail("unable to ovra_epath_decode: %s\n", bootname);
    // Kept: the other text goes back as it was printed: without what follows its first 1023 bytes or a
    // character that is none. [kept_a_text_that_was_printed_cut_is_written_back_cut]
    instances[0]->*which = text;

    // Kept: the encoder accepts some texts without producing a path; the one that was read is then written
    // back. [kept_name_of_the_tree_leaves_the_path_that_was_read]
    uint8_t *const stored = option.path;
    if (ovra_epath_encode(hdl, instances, 0, &option.path, &option.path_len) != 0)
        return fail("unable to ovra_epath_encode: %s\n", bootname);
    const int result = write_fields(hdl, bootname, option);
    if (option.path != stored && !memlist_holds(hdl, option.path))
        free(option.path);
    return result;
}

} // namespace

int ovra_bootopt_devpath_get(ovra_hdl_t hdl, char *bootname, char **devpath)
{
    return get_text(hdl, bootname, &ovra_path_t::device_path, devpath);
}

int ovra_bootopt_devpath_set(ovra_hdl_t hdl, char *bootname, char *devpath)
{
    return set_text(hdl, bootname, &ovra_path_t::device_path, devpath);
}

int ovra_bootopt_bootpath_get(ovra_hdl_t hdl, char *bootname, char **bootpath)
{
    return get_text(hdl, bootname, &ovra_path_t::file_path, bootpath);
}

int ovra_bootopt_bootpath_set(ovra_hdl_t hdl, char *bootname, char *bootpath)
{
    return set_text(hdl, bootname, &ovra_path_t::file_path, bootpath);
}

int ovra_bootopt_encoded_path_set(ovra_hdl_t hdl, char *bootname, ovra_epath_t epath, int path_len)
{
    option_fields option;
    if (read_fields(hdl, bootname, all & ~path, &option) != 0)
        return -1;
    option.path = epath;
    option.path_len = path_len;
    return write_fields(hdl, bootname, option);
}

int ovra_bootopt_desc_get(ovra_hdl_t hdl, char *bootname, char **description)
{
    option_fields option;
    if (read_fields(hdl, bootname, desc, &option) != 0)
        return -1;
    *description = option.desc;
    return 0;
}

int ovra_bootopt_desc_set(ovra_hdl_t hdl, char *bootname, char *description)
{
    option_fields option;
    if (read_fields(hdl, bootname, all & ~desc, &option) != 0)
        return -1;
    option.desc = description;
    return write_fields(hdl, bootname, option);
}

int ovra_bootopt_attr_get(ovra_hdl_t hdl, char *bootname, uint32_t *attributes)
{
    option_fields option;
    if (read_fields(hdl, bootname, attr, &option) != 0)
        return -1;
    *attributes = option.attr;
    return 0;
}

int ovra_bootopt_attr_set(ovra_hdl_t hdl, char *bootname, uint32_t attributes)
{
    option_fields option;
    if (read_fields(hdl, bootname, all & ~attr, &option) != 0)
        return -1;
    option.attr = attributes;
    return write_fields(hdl, bootname, option);
}

int ovra_bootopt_optdata_get(ovra_hdl_t hdl, char *bootname, void **data, size_t *data_len)
{
    option_fields option;
    if (read_fields(hdl, bootname, optdata, &option) != 0)
        return -1;
    *data = option.optdata;
    *data_len = option.optdata_len;
    return 0;
}

int ovra_bootopt_optdata_set(ovra_hdl_t hdl, char *bootname, void *data, size_t data_len)
{
    option_fields option;
    if (read_fields(hdl, bootname, all & ~optdata, &option) != 0)
        return -1;
    option.optdata = data;
    option.optdata_len = data_len;
    return write_fields(hdl, bootname, option);
}
