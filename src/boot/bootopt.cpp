// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include "src/base/load_option.h"
#include "src/boot/boot.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::owned;
using ovra::trace;
using ovra::tracked;

int validate_bootopt(const char *name)
{
    return ovra::option_number(name) ? 0 : -1;
}

int ovra_bootopt_set(ovra_hdl_t hdl, char *name, ovra_epath_t path, int path_len, char *desc, uint32_t attr,
                     void *optdata, size_t optdata_len)
{
    if (validate_bootopt(name) != 0)
        return fail("incorrect bootopt name\n");
    const owned<uint16_t> description(convert_utf8_to_leunicode(desc));
    if (!description)
        return fail("unable to convert description string to UCS-2\n");

    const size_t description_size = unicode_strlen(description.get());
    const ovra::load_option_parts parts = {
        attr,
        {reinterpret_cast<const uint8_t *>(description.get()), description_size},
        {path, static_cast<uint16_t>(path_len)},
        {static_cast<const uint8_t *>(optdata), optdata_len}};

    // Kept: the size counts path_len uncut, in 32 bits. Lengths that do not come to a size with room for
    // what is written are refused as memory that cannot be had. [kept_size_counts_a_path_above_65535_uncut]
    const auto total = static_cast<int32_t>(static_cast<uint32_t>(
        sizeof(ovra::load_option_header) + description_size + optdata_len + static_cast<size_t>(path_len)));
    if (total < 0 || optdata_len > static_cast<size_t>(total) ||
        ovra::stored_size(parts) > static_cast<size_t>(total))
        return -1;
    const owned<uint8_t> variable(static_cast<uint8_t *>(calloc(1, static_cast<size_t>(total))));
    if (!variable || !ovra::write_load_option(parts, {variable.get(), static_cast<size_t>(total)}))
        return -1;

    if (set_variable(hdl, name, static_cast<UINTN>(total), variable.get()) != EFI_SUCCESS)
        return fail("failed to create load option %s\n", name);
    trace("create_bootopt finished: %s\n", name);
    return 0;
}

namespace {

// A load option variable as it was read.
struct stored_bytes {
    owned<uint8_t> block;
    size_t size = 0;

    ovra::byte_view view() const { return {block.get(), size}; }
};

int read_option(ovra_hdl_t hdl, const char *name, stored_bytes *option)
{
    UINTN size = 0;
    if (get_variable(hdl, name, &size, nullptr) != EFI_BUFFER_TOO_SMALL || size == 0)
        return fail("unable to read variable %s\n", name);
    option->block.reset(static_cast<uint8_t *>(malloc(size)));
    if (!option->block)
        return fail("unable to allocate buffer for load option %s\n", name);
    const UINTN allocated = size;
    const EFI_STATUS status = get_variable(hdl, name, &size, option->block.get());
    if (status != EFI_SUCCESS)
        return fail("unable to read load option for %s: %lx\n", name, status);
    option->size = std::min(size, allocated);
    return 0;
}

tracked<char> hand_out_description(ovra_hdl_t hdl, ovra::byte_view description)
{
    char text[ovra::description_limit + 1];
    const size_t length = convert_utf16_to_utf8(description.data(), ovra::unit_count(description), text,
                                                ovra::description_limit);
    text[length] = '\0';
    auto copy = ovra::tracked_malloc<char>(hdl, length + 1, "desc_temp");
    if (copy)
        memcpy(copy.get(), text, length + 1);
    return copy;
}

tracked<uint8_t> hand_out_bytes(ovra_hdl_t hdl, ovra::byte_view bytes, const char *what)
{
    auto copy = ovra::tracked_malloc<uint8_t>(hdl, bytes.size(), what);
    if (copy && !bytes.empty())
        memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}

struct option_copies {
    explicit option_copies(ovra_hdl_t handle)
        : hdl(handle), desc(nullptr, {handle}), optdata(nullptr, {handle}), path(nullptr, {handle})
    {}

    // -1 without memory; there is no copy then.
    int make(const ovra::stored_load_option &option, ovra::byte_view optional_data, bool with_desc,
             bool with_optdata, bool with_path)
    {
        if (with_desc && !(desc = hand_out_description(hdl, option.description)))
            return drop();
        if (with_optdata && !optional_data.empty() &&
            !(optdata = hand_out_bytes(hdl, optional_data, "optdata")))
            return drop();
        if (with_path && !(path = hand_out_bytes(hdl, option.path, "encoded path")))
            return drop();
        return 0;
    }

    ovra_hdl_t hdl;
    tracked<char> desc;
    tracked<uint8_t> optdata;
    tracked<uint8_t> path;

private:
    int drop()
    {
        desc.reset();
        optdata.reset();
        path.reset();
        return -1;
    }
};

} // namespace

int ovra_bootopt_get(ovra_hdl_t hdl, char *name, ovra_epath_t *path, int *path_len, char **desc,
                     uint32_t *attr, void **optdata, size_t *optdata_len)
{
    if (validate_bootopt(name) != 0)
        return fail("incorrect bootopt name: %s\n", name);
    stored_bytes variable;
    if (read_option(hdl, name, &variable) != 0)
        return -1;

    // Kept: the status is that of reading, which succeeded. [kept_variable_of_one_byte_is_refused]
    const auto too_short = [name] {
        return fail("unable to read load option for %s: %lx\n", name, EFI_SUCCESS);
    };
    const auto option = ovra::split_load_option(variable.view());
    if (!option)
        return too_short();
    if (attr)
        *attr = option->attributes;
    if (path_len)
        *path_len = option->path_length;

    if (!option->has_description())
        return too_short();
    if (option->description.size() > ovra::description_limit)
        return fail("invalid description length %lu\n", option->description.size());
    if (!option->is_whole())
        return too_short();

    // Kept: the offset has 16 bits, as the length fields of load options have.
    // [kept_offset_of_optional_data_has_16_bits]
    const ovra::byte_view optional_data =
        variable.view().subspan(static_cast<uint16_t>(variable.size - option->optional_data.size()));

    const bool wants_optdata = optdata && optdata_len;
    option_copies copies(hdl);
    const int result = copies.make(*option, optional_data, desc, wants_optdata, path);
    if (desc)
        *desc = copies.desc.release();
    if (wants_optdata) {
        *optdata = copies.optdata.release();
        if (result == 0)
            *optdata_len = optional_data.size();
    }
    if (path)
        *path = copies.path.release();
    return result;
}

int ovra::read_option_nodes(ovra_hdl_t hdl, char *option, const char *unreadable, node_list *nodes)
{
    ovra_epath_t path = nullptr;
    int path_len = 0;
    const int result = ovra_bootopt_get(hdl, option, &path, &path_len, nullptr, nullptr, nullptr, nullptr);
    if (result != 0)
        return fail(unreadable, result); // NOLINT: a literal of the caller's
    const tracked<uint8_t> packed(path, {hdl});
    uefi_device_path_t **unpacked = nullptr;
    if (device_path_unpack(path, path_len, &unpacked) != 0)
        return -1;
    nodes->reset(unpacked);
    return 0;
}
