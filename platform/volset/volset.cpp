// SPDX-License-Identifier: MIT
#include "platform/include/volset.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/failure.h"
#include "platform/machine/picture.h"
#include "platform/machine/shared.h"
#include "src/base/device_name.h"

using machine::outcome_of;
using machine::partition;
using machine::read_failure;
using machine::table_kind;

namespace {

// What a descriptor stands for. It keeps the picture that it comes from.
struct object {
    vs_kind_t kind = VS_DRIVE;
    std::shared_ptr<machine::picture> seen;
    std::size_t place = 0;
    const partition *part = nullptr; // of a partition or a slice

    [[nodiscard]] const machine::disk &disk() const { return seen->tree().disks[place]; }
    [[nodiscard]] const machine::medium &medium() const { return seen->medium_of(place); }
};

using objects = std::vector<std::unique_ptr<object>>;

struct list_freeing {
    void operator()(kvlist_t *list) const { kvlist_free(list); }
};
using list_owner = std::unique_ptr<kvlist_t, list_freeing>;

object *to_object(vs_descriptor_t descriptor)
{
    // The interface makes a descriptor a number.
    return reinterpret_cast<object *>(descriptor); // NOLINT(performance-no-int-to-ptr)
}

vs_descriptor_t to_descriptor(std::unique_ptr<object> found)
{
    return reinterpret_cast<vs_descriptor_t>(found.release());
}

// An array ended by 0.
vs_descriptor_t *to_array(objects found)
{
    auto *array = static_cast<vs_descriptor_t *>(calloc(found.size() + 1, sizeof(vs_descriptor_t)));
    if (array == nullptr)
        throw std::bad_alloc();
    for (std::size_t i = 0; i < found.size(); ++i)
        array[i] = to_descriptor(std::move(found[i]));
    return array;
}

void add(objects *found, object added)
{
    found->push_back(std::make_unique<object>(std::move(added)));
}

// The kind of table that has entries of this kind; none for a drive or a medium.
table_kind table_of(vs_kind_t kind)
{
    if (kind == VS_PARTITION)
        return table_kind::mbr;
    return kind == VS_SLICE ? table_kind::gpt : table_kind::none;
}

// Adds what a disk has of a kind: itself, its medium, or the entries of its table.
void add_of_disk(const std::shared_ptr<machine::picture> &seen, std::size_t disk, vs_kind_t kind,
                 objects *found)
{
    if (kind == VS_DRIVE) {
        add(found, {kind, seen, disk});
        return;
    }
    const machine::medium &medium = seen->medium_of(disk);
    if (medium.table == table_kind::none)
        return;
    if (kind == VS_MEDIA) {
        add(found, {kind, seen, disk});
        return;
    }
    if (medium.table != table_of(kind))
        return;
    for (const partition &part : medium.partitions)
        add(found, {kind, seen, disk, &part});
}

// A list of all media lacks those of unreadable disks; a call for one of them fails with the reason.
const machine::medium &readable_medium(const object &of)
{
    const machine::medium &medium = of.medium();
    if (medium.error != 0)
        throw read_failure{medium.error};
    return medium;
}

void check_kind(vs_kind_t kind)
{
    if (kind < VS_DRIVE || kind > VS_SLICE)
        throw read_failure{EINVAL};
}

// A medium is associated with everything else, partitions and slices with a medium.
bool is_associated(vs_kind_t with, vs_kind_t kind)
{
    return with == VS_MEDIA ? kind == VS_PARTITION || kind == VS_SLICE : kind == VS_MEDIA;
}

vs_descriptor_t find_by_name(vs_kind_t kind, std::string_view name)
{
    const std::string_view prefix = kind == VS_PARTITION ? ovra::partition_folder : ovra::slice_folder;
    if (name.starts_with(prefix))
        name.remove_prefix(prefix.size());
    const bool whole = kind == VS_DRIVE || kind == VS_MEDIA;
    const auto volume = whole ? machine::volume_name{std::string(name), table_kind::none, 0}
                              : machine::parse_volume_name(name).value_or(machine::volume_name{});
    if (!whole && volume.table != table_of(kind))
        throw read_failure{ENOENT};
    auto seen = machine::picture::read();
    const std::size_t disk = seen->find_disk(volume.disk);
    if (disk == seen->tree().disks.size())
        throw read_failure{ENOENT};
    object found = {kind, std::move(seen), disk};
    if (kind != VS_DRIVE) {
        const machine::medium &medium = readable_medium(found);
        if (!whole)
            found.part = machine::find_partition(medium, volume);
        if (whole ? medium.table == table_kind::none : found.part == nullptr)
            throw read_failure{ENOENT};
    }
    return to_descriptor(std::make_unique<object>(std::move(found)));
}

void check(int result)
{
    if (result != 0)
        throw std::bad_alloc();
}

void add_text(kvlist_t *list, const char *name, const std::string &text)
{
    check(kvlist_add_uint8_array(list, name, reinterpret_cast<const uint8_t *>(text.c_str()),
                                 static_cast<unsigned>(text.size() + 1)));
}

void add_bytes(kvlist_t *list, const char *name, const std::vector<uint8_t> &bytes)
{
    if (!bytes.empty())
        check(kvlist_add_uint8_array(list, name, bytes.data(), static_cast<unsigned>(bytes.size())));
}

void add_attachment(const object &of, kvlist_t *list)
{
    if (of.kind != VS_DRIVE)
        throw read_failure{EINVAL};
    const machine::transport attached = of.seen->transport_of(of.place);
    if (!attached.kind.empty())
        add_text(list, "transport", attached.kind);
    if (!attached.unknown.empty())
        add_text(list, "place-unknown", attached.unknown);
    for (const auto &[name, value] : attached.numbers)
        check(kvlist_add_uint64(list, name.c_str(), value));
    add_bytes(list, "eui64", attached.eui64);
    add_bytes(list, "usb-ports", attached.usb_ports);
}

void add_known_text(kvlist_t *list, const char *name, const std::string &text)
{
    if (!text.empty())
        add_text(list, name, text);
}

void add_drive_attributes(const object &of, kvlist_t *list)
{
    const machine::disk &disk = of.disk();
    check(kvlist_add_uint32(list, "blocksize", disk.block_size));
    check(kvlist_add_uint64(list, "nblocks", disk.blocks));
    add_text(list, "kernel-name", disk.kernel_name);
    add_text(list, "devfs-path", of.seen->tree().path_of(disk.node));
    if (disk.metadata.empty())
        return;
    add_text(list, "metadata", disk.metadata);
    std::string members;
    for (const std::string &member : disk.members)
        members += (members.empty() ? "" : " ") + member;
    add_text(list, "members", members);
}

void add_attributes(const object &of, kvlist_t *list)
{
    switch (of.kind) {
    case VS_DRIVE:
        add_drive_attributes(of, list);
        break;
    case VS_MEDIA:
        check(kvlist_add_uint32(list, "blocksize", of.disk().block_size));
        check(kvlist_add_uint64(list, "nblocks", of.disk().blocks));
        if (of.medium().table == table_kind::mbr)
            check(kvlist_add_uint32(list, "volserno", of.medium().signature));
        break;
    case VS_PARTITION:
        check(kvlist_add_uint32(list, "relsect", static_cast<uint32_t>(of.part->start)));
        check(kvlist_add_uint32(list, "nsectors", static_cast<uint32_t>(of.part->size)));
        break;
    case VS_SLICE:
        check(kvlist_add_uint64(list, "start", of.part->start));
        check(kvlist_add_uint64(list, "size", of.part->size));
        check(kvlist_add_uint8_array(list, "uguid", of.part->guid.data(),
                                     static_cast<unsigned>(of.part->guid.size())));
        check(kvlist_add_uint64(list, "attributes", of.part->attributes));
        add_known_text(list, "partlabel", of.part->label);
        break;
    }
}

// A new list that `add` fills, or null with the reason.
template <typename body>
kvlist_t *list_of(int *err, body add)
{
    list_owner list;
    *err = outcome_of([&] {
        list.reset(kvlist_alloc());
        if (!list)
            throw std::bad_alloc();
        add(list.get());
    });
    return *err == 0 ? list.release() : nullptr;
}

const char *word_for(machine::contents_kind kind)
{
    switch (kind) {
    case machine::contents_kind::absent:
        return "absent";
    case machine::contents_kind::blank:
        return "blank";
    case machine::contents_kind::unknown:
        return "unknown";
    case machine::contents_kind::file_system:
        return "file-system";
    case machine::contents_kind::other_table:
        return "other-table";
    case machine::contents_kind::damaged_gpt:
        return "damaged-gpt";
    case machine::contents_kind::unused_gpt:
        return "unused-gpt";
    case machine::contents_kind::gpt:
        return "gpt";
    case machine::contents_kind::mbr:
        return "mbr";
    }
    return "unknown";
}

void add_contents(const object &of, kvlist_t *list)
{
    if (of.kind != VS_DRIVE)
        throw read_failure{EINVAL};
    const machine::contents found = of.seen->contents_of(of.place);
    if (found.error != 0) {
        check(kvlist_add_uint32(list, "error", static_cast<uint32_t>(found.error)));
        return;
    }
    add_text(list, "kind", word_for(found.kind));
    if (!found.detail.empty())
        add_text(list, "detail", found.detail);
    if (found.first_damaged)
        check(kvlist_add_uint32(list, "first-header-damaged", 1));
    if (found.is_short)
        check(kvlist_add_uint32(list, "short", 1));
    if (found.has_more)
        check(kvlist_add_uint32(list, "more-entries", 1));
}

std::string name_of(const object &of)
{
    std::string disk = of.disk().name();
    if (of.part == nullptr)
        return disk;
    const std::string number = std::to_string(machine::volume_number(table_of(of.kind), *of.part));
    if (of.kind == VS_SLICE)
        return std::string(ovra::slice_folder) + disk + "s" + number;
    return std::string(ovra::partition_folder) + disk + "p" + number;
}

} // namespace

#pragma GCC visibility push(default)

vs_descriptor_t *vs_get_descriptors(vs_kind_t kind, const int *, int *err)
{
    vs_descriptor_t *all = nullptr;
    *err = outcome_of([&] {
        check_kind(kind);
        const auto seen = machine::picture::read();
        objects found;
        for (std::size_t disk = 0; disk < seen->tree().disks.size(); ++disk) {
            add_of_disk(seen, disk, kind, &found);
            // A caller that keeps a picture reads the media next and skips drives without one. A shortage,
            // which is not the drive's fault, must fail here.
            if (machine::is_picture_kept())
                seen->medium_of(disk);
        }
        all = to_array(std::move(found));
    });
    return all;
}

vs_descriptor_t vs_get_descriptor_by_name(vs_kind_t kind, const char *name, int *err)
{
    vs_descriptor_t found = 0;
    *err = outcome_of([&] {
        check_kind(kind);
        found = find_by_name(kind, name);
    });
    return found;
}

vs_descriptor_t *vs_get_associated_descriptors(vs_descriptor_t desc, vs_kind_t kind, int *err)
{
    vs_descriptor_t *associated = nullptr;
    *err = outcome_of([&] {
        const object &of = *to_object(desc);
        if (!is_associated(of.kind, kind))
            throw read_failure{EINVAL};
        readable_medium(of);
        objects found;
        add_of_disk(of.seen, of.place, kind, &found);
        associated = to_array(std::move(found));
    });
    return associated;
}

kvlist_t *vs_get_attributes(vs_descriptor_t desc, int *err)
{
    return list_of(err, [&](kvlist_t *list) { add_attributes(*to_object(desc), list); });
}

kvlist_t *vs_get_file_system(vs_descriptor_t desc, int *err)
{
    return list_of(err, [&](kvlist_t *list) {
        const object &of = *to_object(desc);
        if (of.part == nullptr)
            throw read_failure{EINVAL};
        const machine::file_system found = of.seen->file_system_of(of.place, *of.part);
        add_known_text(list, "type", found.type);
        add_known_text(list, "uuid", found.uuid);
        add_known_text(list, "label", found.label);
    });
}

kvlist_t *vs_get_contents(vs_descriptor_t drive, int *err)
{
    return list_of(err, [&](kvlist_t *list) { add_contents(*to_object(drive), list); });
}

kvlist_t *vs_get_attachment(vs_descriptor_t drive, int *err)
{
    return list_of(err, [&](kvlist_t *list) { add_attachment(*to_object(drive), list); });
}

char *vs_get_name(vs_descriptor_t desc, int *err)
{
    char *name = nullptr;
    *err = outcome_of([&] {
        name = strdup(name_of(*to_object(desc)).c_str());
        if (name == nullptr)
            throw std::bad_alloc();
    });
    return name;
}

// The last descriptor of a picture closes its folder, where a thread could be cancelled.
void vs_free_descriptor(vs_descriptor_t desc)
{
    const ovra::uncancelled undisturbed;
    delete to_object(desc);
}

void vs_free_descriptors(vs_descriptor_t *descs)
{
    if (descs == nullptr)
        return;
    const ovra::uncancelled undisturbed;
    for (vs_descriptor_t *desc = descs; *desc != 0; ++desc)
        delete to_object(*desc);
    free(descs);
}

#pragma GCC visibility pop
