// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include "src/boot/boot.h"
#include "src/boot/loadoption.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::owned;
using ovra::trace;
using ovra::tracked;

int validate_bootopt(const char *name)
{
    auto is_digit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); };
    if (strlen(name) != 8 || memcmp(name, "Boot", 4) != 0 || !std::all_of(name + 4, name + 8, is_digit))
        return -1;
    return 0;
}

int ovra_bootopt_set(ovra_hdl_t hdl, char *name, ovra_epath_t path, int path_len, char *desc, uint32_t attr,
                     void *optdata, size_t optdata_len)
{
    if (validate_bootopt(name) != 0)
        return fail("incorrect bootopt name\n");
    const owned<uint16_t> description(convert_utf8_to_leunicode(desc));
    if (!description)
        return fail("unable to convert description string to UCS-2\n");

    const ovra::load_option_header header = {attr, static_cast<uint16_t>(path_len)};
    const size_t description_size = unicode_strlen(description.get());
    const size_t used = sizeof header + description_size + header.path_length;

    // Kept: the size counts path_len uncut, in 32 bits. Lengths that do not come to a size with room for
    // what is written are refused as memory that cannot be had. [kept_size_counts_a_path_above_65535_uncut]
    const auto total = static_cast<int32_t>(static_cast<uint32_t>(
        sizeof header + description_size + optdata_len + static_cast<size_t>(path_len)));
    if (total < 0 || optdata_len > static_cast<size_t>(total) ||
        used > static_cast<size_t>(total) - optdata_len)
        return -1;
    const owned<uint8_t> variable(static_cast<uint8_t *>(calloc(1, static_cast<size_t>(total))));
    if (!variable)
        return -1;

    uint8_t *to = variable.get();
    auto append = [&to](const void *bytes, size_t size) {
        if (size != 0)
            memcpy(to, bytes, size);
        to += size;
    };
    append(&header, sizeof header);
    append(description.get(), description_size);
    append(path, header.path_length);
    append(optdata, optdata_len);

    if (set_variable(hdl, name, static_cast<UINTN>(total), variable.get()) != EFI_SUCCESS)
        return fail("failed to create load option %s\n", name);
    trace("create_bootopt finished: %s\n", name);
    return 0;
}

namespace {

// A load option variable, and where its parts are. Only what lies inside the variable counts as a part.
struct stored_option {
    owned<uint8_t> bytes;
    size_t size = 0;

    const ovra::load_option_header &header() const
    {
        return *reinterpret_cast<const ovra::load_option_header *>(bytes.get());
    }
    const uint8_t *description() const { return bytes.get() + sizeof(ovra::load_option_header); }

    // Size of the description with its terminator; 0 when the variable ends before one.
    size_t description_size() const
    {
        for (size_t end = sizeof(ovra::load_option_header) + 2; end <= size; end += 2) {
            if (bytes.get()[end - 2] == 0 && bytes.get()[end - 1] == 0)
                return end - sizeof(ovra::load_option_header);
        }
        return 0;
    }
};

constexpr size_t description_limit = 256; // bytes, of the variable's text and of the one handed out

int read_option(ovra_hdl_t hdl, const char *name, stored_option *option)
{
    UINTN size = 0;
    if (get_variable(hdl, name, &size, nullptr) != EFI_BUFFER_TOO_SMALL || size == 0)
        return fail("unable to read variable %s\n", name);
    option->bytes.reset(static_cast<uint8_t *>(malloc(size)));
    if (!option->bytes)
        return fail("unable to allocate buffer for load option %s\n", name);
    const UINTN allocated = size;
    const EFI_STATUS status = get_variable(hdl, name, &size, option->bytes.get());
    if (status != EFI_SUCCESS)
        return fail("unable to read load option for %s: %lx\n", name, status);
    option->size = std::min(size, allocated);
    return 0;
}

tracked<char> hand_out_description(ovra_hdl_t hdl, const uint8_t *description, size_t size)
{
    char text[description_limit + 1];
    const size_t length =
        convert_utf16_to_utf8(description, size / sizeof(uint16_t), text, description_limit);
    text[length] = '\0';
    auto copy = ovra::tracked_malloc<char>(hdl, length + 1, "desc_temp");
    if (copy)
        memcpy(copy.get(), text, length + 1);
    return copy;
}

tracked<uint8_t> hand_out_bytes(ovra_hdl_t hdl, const uint8_t *bytes, size_t size, const char *what)
{
    auto copy = ovra::tracked_malloc<uint8_t>(hdl, size, what);
    if (copy && size != 0)
        memcpy(copy.get(), bytes, size);
    return copy;
}

// Where the parts of an option are that ovra_bootopt_get hands out.
struct option_parts {
    size_t description_size;
    size_t path_offset;
    size_t path_size;
    size_t optdata_offset;
    size_t optdata_size;
};

struct option_copies {
    explicit option_copies(ovra_hdl_t handle)
        : hdl(handle), desc(nullptr, {handle}), optdata(nullptr, {handle}), path(nullptr, {handle})
    {}

    // -1 without memory; there is no copy then.
    int make(const stored_option &option, const option_parts &at, bool with_desc, bool with_optdata,
             bool with_path)
    {
        const uint8_t *bytes = option.bytes.get();
        if (with_desc && !(desc = hand_out_description(hdl, option.description(), at.description_size)))
            return drop();
        if (with_optdata && at.optdata_size != 0 &&
            !(optdata = hand_out_bytes(hdl, bytes + at.optdata_offset, at.optdata_size, "optdata")))
            return drop();
        if (with_path && !(path = hand_out_bytes(hdl, bytes + at.path_offset, at.path_size, "encoded path")))
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
    stored_option option;
    if (read_option(hdl, name, &option) != 0)
        return -1;

    const auto too_short = [name] {
        return fail("unable to read load option for %s: %lx\n", name, EFI_SUCCESS);
    };
    if (option.size < sizeof(ovra::load_option_header))
        return too_short();
    const ovra::load_option_header header = option.header();
    if (attr)
        *attr = header.attributes;
    if (path_len)
        *path_len = header.path_length;

    const size_t description_size = option.description_size();
    if (description_size == 0)
        return too_short();
    if (description_size > description_limit)
        return fail("invalid description length %lu\n", description_size);
    const size_t path_offset = sizeof header + description_size;
    const size_t path_end = path_offset + header.path_length;
    if (path_end > option.size)
        return too_short();

    // Kept: the offset has 16 bits, as the length fields of load options have.
    // [kept_offset_of_optional_data_has_16_bits]
    const size_t optdata_offset = static_cast<uint16_t>(path_end);
    const size_t optdata_size = option.size - optdata_offset;

    const bool wants_optdata = optdata && optdata_len;
    option_copies copies(hdl);
    const int result =
        copies.make(option, {description_size, path_offset, header.path_length, optdata_offset, optdata_size},
                    desc, wants_optdata, path);
    if (desc)
        *desc = copies.desc.release();
    if (wants_optdata) {
        *optdata = copies.optdata.release();
        if (result == 0)
            *optdata_len = optdata_size;
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
