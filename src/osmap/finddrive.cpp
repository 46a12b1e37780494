// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/base/cancel.h"
#include "src/base/nodes.h"
#include "src/osmap/harddrive.h"
#include "src/osmap/platform.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"
#include "src/rt/strarray.h"

using ovra::attributes;
using ovra::descriptors;
using ovra::fail;
using ovra::owned;
using ovra::say;
using ovra::trace;

namespace {

// The names found so far, released unless they are handed over. The handle owns each name from its entry on,
// the array only at the end.
class found_names {
public:
    explicit found_names(ovra_hdl_t handle) : hdl(handle), names(ovra::tracked_names(nullptr, {handle})) {}

    int append(const char *name)
    {
        if (names.reserve() != 0)
            return -1;
        trace("num_matches after increment: %d\n", static_cast<int>(names.size() + 1));
        return names.append(ovra::copy_string(hdl, name));
    }

    // Gives the names to the caller of the search. -1 when there is none, too.
    int hand_over(char ***out)
    {
        if (names.size() == 0 || memlist_add(hdl, names.get()) != 0)
            return -1;
        *out = names.release();
        return 0;
    }

private:
    ovra_hdl_t hdl;
    ovra::growing_list<ovra::tracked_names, ovra::plain_memory, 2> names;
};

// A drive as the messages name it.
struct drive {
    int index;
    vs_descriptor_t desc;
};

// Partitions of an MBR, by the signature of the disk, start and size.
struct mbr_search {
    static constexpr vs_kind_t unit_kind = VS_PARTITION;
    static constexpr size_t folder_length = ovra::length_of(ovra::partition_folder);

    static void tell_drive(int i, const char *name) { trace("name[%d]=%s\n", i, name); }
    static void tell_no_media(int err) { say("unexpected NULL media descriptor: %d\n", err); }

    static bool medium_matches(vs_descriptor_t medium, const uefi_hard_drive_path_t *hd)
    {
        int err = 0;
        const attributes list(vs_get_attributes(medium, &err));
        if (err != 0 || !list) {
            say("vs_get_attributes media[0] err == %d kvl = %p\n", err, static_cast<void *>(list.get()));
            return false;
        }
        uint32_t signature = 0;
        if (kvlist_lookup_uint32(list.get(), "volserno", &signature) != 0) {
            say("unable to extract VOLSERNO\n");
            return false;
        }
        const uint32_t wanted = ovra::mbr_signature(*hd);
        if (signature != wanted) {
            say("mbrsig doesn't match: mbrsig: %x hdp_mbrsig: %x\n", signature, wanted);
            return false;
        }
        return true;
    }

    static void tell_unit_error(const void *units, int err, const drive &drive)
    {
        say("matching mbrsig unexpected problem getting partition descr partition=%p err=%d drive[%d]=%lx\n",
            units, err, drive.index, drive.desc);
    }
    static void tell_no_units(const void *units)
    {
        say("matching mbrsig unexpected NULL partition descriptor: partition = %p\n", units);
    }
    static void tell_attribute_error(int unit, int err, const void *list)
    {
        say("vs_get_attributes partition[%d] err == %d kvl = %p\n", unit, err, list);
    }

    static bool unit_matches(kvlist_t *list, int, const uefi_hard_drive_path_t *hd)
    {
        uint32_t size = 0;
        if (kvlist_lookup_uint32(list, "nsectors", &size) != 0) {
            say("unable to find VS_NSECTORS for\n");
            return false;
        }
        trace("VS_NSECTORS (number of sectors): %d\n", size);
        uint32_t start = 0;
        if (kvlist_lookup_uint32(list, "relsect", &start) != 0) {
            // Kept: no end of line; the next message follows on the same one.
            // [kept_no_line_end_behind_a_missing_start]
            say("unable to find VS_RELSECT (start sector)");
            return false;
        }
        trace("VS_RELSECT (start sector): %d\n", start);
        return start == hd->part_start && size == hd->part_size;
    }

    static void tell_match(const char *) {}
};

// Slices of a GPT, by the GUID of the slice, start and size.
struct guid_search {
    static constexpr vs_kind_t unit_kind = VS_SLICE;
    static constexpr size_t folder_length = ovra::length_of(ovra::slice_folder);

    static void tell_drive(int, const char *) {}
    static void tell_no_media(int) { say("unexpected NULL media descriptor\n"); }
    static bool medium_matches(vs_descriptor_t, const uefi_hard_drive_path_t *) { return true; }

    static void tell_unit_error(const void *units, int err, const drive &drive)
    {
        say("unexpected problem getting partition descr partition=%p err=%d drive[%d]=%lx\n", units, err,
            drive.index, drive.desc);
    }
    static void tell_no_units(const void *units) { say("no VS_SLICE descriptors for %p\n", units); }
    static void tell_attribute_error(int unit, int err, const void *list)
    {
        // Kept: without the blank that the search by MBR signature has here.
        // [kept_no_blank_in_the_attribute_message_of_the_search_by_guid]
        say("vs_get_attributespartition[%d] err == %d kvl = %p\n", unit, err, list);
    }

    static bool unit_matches(kvlist_t *list, int unit, const uefi_hard_drive_path_t *hd)
    {
        uint8_t *guid = nullptr;
        unsigned int count = 0;
        if (kvlist_lookup_uint8_array(list, "uguid", &guid, &count) != 0) {
            say("unable to extract UEFI UGUID p%d\n", unit);
            return false;
        }
        // No bytes at all would match everything, and more than a GUID has match nothing.
        if (!guid || count == 0 || count > sizeof hd->part_sig || memcmp(guid, hd->part_sig, count) != 0) {
            say("UEFI UGUID doesn't match\n");
            return false;
        }
        uint64_t size = 0;
        if (kvlist_lookup_uint64(list, "size", &size) != 0) {
            say("unable to extract VS_SIZE (number of sectors)\n");
            return false;
        }
        uint64_t start = 0;
        if (kvlist_lookup_uint64(list, "start", &start) != 0) {
            say("unable to extract VS_START (start sector)\n");
            return false;
        }
        return start == hd->part_start && size == hd->part_size;
    }

    static void tell_match(const char *name) { trace("match found: %s\n", name); }
};

// The first of a medium's partitions or slices that matches; 0 when none does.
template <typename search>
vs_descriptor_t find_unit(const vs_descriptor_t *units, const uefi_hard_drive_path_t *hd)
{
    for (int j = 0; units[j] != 0; ++j) {
        trace("\n\npartition: %d\n", j);
        int err = 0;
        const attributes list(vs_get_attributes(units[j], &err));
        if (err != 0 || !list)
            search::tell_attribute_error(j, err, list.get());
        else if (search::unit_matches(list.get(), j, hd))
            return units[j];
    }
    return 0;
}

// Appends the name of the drive's first match, if it has one. -1 only without memory: a drive that cannot be
// read, or is not the one, is passed over.
template <typename search>
int search_drive(const drive &drive, const uefi_hard_drive_path_t *hd, found_names *names)
{
    int err = 0;
    const owned<char> drive_name(vs_get_name(drive.desc, &err));
    if (!drive_name)
        return 0;
    search::tell_drive(drive.index, drive_name.get());

    err = 0;
    const descriptors media(vs_get_associated_descriptors(drive.desc, VS_MEDIA, &err));
    if (err != 0 || media.is_empty()) {
        search::tell_no_media(err);
        return 0;
    }
    if (!search::medium_matches(media[0], hd))
        return 0;

    err = 0;
    const descriptors units(vs_get_associated_descriptors(media[0], search::unit_kind, &err));
    if (err != 0) {
        search::tell_unit_error(units.get(), err, drive);
        return 0;
    }
    if (units.is_empty()) {
        search::tell_no_units(units.get());
        return 0;
    }

    const vs_descriptor_t unit = find_unit<search>(units.get(), hd);
    const owned<char> name(unit != 0 ? vs_get_name(unit, &err) : nullptr);
    if (!name || strlen(name.get()) < search::folder_length) {
        trace("no partition matches\n");
        return 0;
    }
    search::tell_match(name.get());
    const char *short_name = name.get() + search::folder_length;
    trace("partition name = %s\n", short_name);
    return names->append(short_name);
}

template <typename search>
int find_drive(ovra_hdl_t hdl, const uefi_hard_drive_path_t *hd, char ***out)
{
    const ovra::uncancelled reading;
    int err = 0;
    const descriptors drives(vs_get_descriptors(VS_DRIVE, nullptr, &err));
    if (err != 0)
        return fail("vs_get_descriptors VS_DRIVE failed. err is %d\n", err);
    if (drives.is_empty())
        return fail("vs_get_descriptors VS_DRIVE list is NULL\n");

    found_names names(hdl);
    for (int i = 0; drives[static_cast<size_t>(i)] != 0; ++i) {
        if (search_drive<search>({i, drives[static_cast<size_t>(i)]}, hd, &names) != 0)
            return -1;
    }
    return names.hand_over(out);
}

} // namespace

int find_drive_mbrsig(ovra_hdl_t hdl, const uefi_hard_drive_path_t *hd, char ***names)
{
    return find_drive<mbr_search>(hdl, hd, names);
}

int find_drive_guid(ovra_hdl_t hdl, const uefi_hard_drive_path_t *hd, char ***names)
{
    return find_drive<guid_search>(hdl, hd, names);
}

const uefi_device_path_t *ovra::first_hard_drive(uefi_device_path_t **list)
{
    for (uefi_device_path_t **node = list; node && *node; ++node) {
        if (is_kind<uefi_hard_drive_path_t>(*node))
            return *node;
    }
    return nullptr;
}

int ovra::find_drives(ovra_hdl_t hdl, const uefi_device_path_t *node, char ***names)
{
    const auto *hd = as<uefi_hard_drive_path_t>(node);
    if (!hd)
        return -1;
    const one_picture picture;
    switch (hd->sig_type) {
    case signature_guid:
        return find_drive_guid(hdl, hd, names);
    case signature_mbr:
        return find_drive_mbrsig(hdl, hd, names);
    default:
        return -1;
    }
}
