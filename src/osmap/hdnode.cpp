// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "src/base/cancel.h"
#include "src/base/number.h"
#include "src/dpath/build.h"
#include "src/osmap/harddrive.h"
#include "src/osmap/platform.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::say;
using ovra::trace;

namespace {

struct device_name {
    char text[1024];
};

// The descriptor of a slice or partition by its whole device name, which `device` receives. A name that does
// not fit is not looked up: cut, it is another one.
vs_descriptor_t find_descriptor(vs_kind_t kind, const char *folder, const char *disk, device_name *device,
                                int *err)
{
    *err = ENAMETOOLONG;
    if (!ovra::fits(snprintf(device->text, sizeof device->text, "%s%s", folder, disk), sizeof device->text))
        return 0;
    *err = 0;
    return vs_get_descriptor_by_name(kind, device->text, err);
}

// The number after the last "s" or "p" of a disk's name. Kept: no digits are 0.
// [kept_a_partition_without_a_number_is_the_whole_disk]
uint32_t unit_number(const char *digits)
{
    return static_cast<uint32_t>(ovra::read_decimal(digits));
}

bool all_digits(const char *text)
{
    return std::all_of(text, text + strlen(text), ovra::is_ascii_digit);
}

} // namespace

int add_hd_path_slice(const char *disk, uefi_device_path_t **out)
{
    device_name device;
    int err = 0;
    ovra::descriptor slice(find_descriptor(VS_SLICE, ovra::slice_folder, disk, &device, &err));
    if (!slice)
        return fail("vs_get_descriptor_by_name(VS_SLICE, %s, %d)failed\n", device.text, err);
    const ovra::attributes list(vs_get_attributes(slice.get(), &err));
    slice.reset();
    if (!list)
        return fail("no VS_SLICE attributes found for %s\n", device.text);

    // Kept: blanks and a parenthesis are missing in these two messages.
    // [kept_wording_of_missing_slice_values]
    uint64_t size = 0;
    if (kvlist_lookup_uint64(list.get(), "size", &size) != 0)
        return fail("unable to extract VS_SIZE (number of sectors)for %s\n", device.text);
    uint64_t start = 0;
    if (kvlist_lookup_uint64(list.get(), "start", &start) != 0)
        return fail("unable to extract VS_START (start sectorfor %s\n", device.text);
    const char *s = strrchr(disk, 's');
    if (!s)
        return fail("drive has no slice number: %s\n", disk);

    auto node = ovra::new_node<uefi_hard_drive_path_t>();
    if (!node)
        return -1;
    uint8_t *guid = nullptr;
    unsigned int count = 0;
    if (kvlist_lookup_uint8_array(list.get(), "uguid", &guid, &count) != 0 || !guid)
        count = 0;
    *node = ovra::slice_node(unit_number(s + 1), {start, size}, {guid, count});
    // Kept: a slice without a GUID is told as an error, and has a node without a signature.
    // [kept_a_slice_without_a_whole_guid_has_no_signature]
    if (node->sig_type != ovra::signature_guid)
        say("unable to extract UEFI UGUID --- for %s\n", device.text);
    return ovra::hand_over(std::move(node), out);
}

int get_mbr_sig(vs_descriptor_t partition, uint32_t *sig)
{
    int err = 0;
    const ovra::descriptors media(vs_get_associated_descriptors(partition, VS_MEDIA, &err));
    if (err != 0 || media.is_empty())
        return fail("unexpected NULL media descriptor: err=%d\n", err);
    const ovra::attributes list(vs_get_attributes(media[0], &err));
    if (err != 0 || !list)
        return fail("vs_get_attributes media[0] err == %d kvp = %p\n", err, static_cast<void *>(list.get()));
    uint32_t signature = 0;
    if (kvlist_lookup_uint32(list.get(), "volserno", &signature) != 0)
        return fail("unable to extract VOLSERNO\n");
    *sig = signature;
    return 0;
}

int add_hd_path_partition(const char *disk, uefi_device_path_t **out)
{
    device_name device;
    int err = 0;
    const ovra::descriptor partition(
        find_descriptor(VS_PARTITION, ovra::partition_folder, disk, &device, &err));
    if (!partition)
        return fail("vs_get_descriptor_by_name(VS_PARTITION, %s, %d) failed\n", device.text, err);
    ovra::attributes list(vs_get_attributes(partition.get(), &err));
    if (!list)
        return fail("no attributes for VS_PARTITION %s %d\n", device.text, err);

    uint32_t sectors = 0;
    if (kvlist_lookup_uint32(list.get(), "nsectors", &sectors) != 0)
        return fail("unable to find VS_NSECTORS for %s\n", device.text);
    trace("VS_NSECTORS (number of sectors): %d\n", sectors);
    uint32_t start = 0;
    if (kvlist_lookup_uint32(list.get(), "relsect", &start) != 0)
        return fail("unable to find VS_RELSECT (start sector)for %s\n", device.text);
    trace("VS_RELSECT (start sector): %d\n", start);
    list.reset();
    const char *p = strrchr(disk, 'p');
    if (!p)
        return fail("drive has no partition number: %s\n", disk);

    auto node = ovra::new_node<uefi_hard_drive_path_t>();
    if (!node)
        return -1;
    uint32_t signature = 0;
    if (get_mbr_sig(partition.get(), &signature) != 0)
        return fail("unable to obtain MBR sig: %s\n", device.text);
    *node = ovra::partition_node(unit_number(p + 1), {start, sectors}, signature);
    return ovra::hand_over(std::move(node), out);
}

int add_hd_path(const char *name, uefi_device_path_t **out)
{
    const ovra::uncancelled reading;
    const ovra::one_picture picture;
    // Kept: a folder anywhere in the name cuts the name's start by its length.
    // [kept_a_folder_inside_the_name_cuts_its_start]
    const char *disk = name;
    if (strstr(name, ovra::slice_folder))
        disk += ovra::length_of(ovra::slice_folder);
    else if (strstr(name, ovra::partition_folder))
        disk += ovra::length_of(ovra::partition_folder);

    const char *p = strrchr(disk, 'p');
    const char *s = strrchr(disk, 's');
    if (!p && !s)
        return fail("unrecognized format %s\n", disk);
    if (p && (!s || p > s))
        return all_digits(p + 1) ? add_hd_path_partition(disk, out) : -1;
    return all_digits(s + 1) ? add_hd_path_slice(disk, out) : -1;
}
