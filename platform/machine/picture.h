/* SPDX-License-Identifier: MIT */
/*
 * Disks with what is on them, by the names of their partitions and slices. One snapshot of the machine; media
 * are read when they are asked for. What reads throws read_failure.
 */
#ifndef HWPLAT_MACHINE_PICTURE_H
#define HWPLAT_MACHINE_PICTURE_H

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/media.h"
#include "platform/machine/tree.h"

namespace machine {

/* A partition of an MBR ("p1") or a slice of a GPT ("s0") of a drive, as its name says. */
struct volume_name {
    std::string disk;
    table_kind table = table_kind::none;
    unsigned number = 0; /* behind the letter */
};

/* "c0t0d0s0" or "c0t0d0p1"; nothing for any other text. */
std::optional<volume_name> parse_volume_name(std::string_view text);

class picture {
public:
    picture();
    picture(const picture &) = delete;
    picture &operator=(const picture &) = delete;
    ~picture();

    /* The machine as it is; between devns_begin and devns_end, as the thread first saw it there. */
    static std::shared_ptr<picture> read();

    [[nodiscard]] const device_tree &tree() const { return devices; }

    /* The medium of a disk of the tree, by its place in the list. Several threads may ask. */
    const medium &medium_of(std::size_t disk);

    /* The place of a drive's disk in the list; the size of the list when there is none. */
    [[nodiscard]] std::size_t find_disk(std::string_view name) const;

private:
    machine_root root;
    device_tree devices;
    std::map<std::string, std::size_t, std::less<>> by_name;
    /* Null: not read yet. No lock is held while one is read: a child that is forked meanwhile may read it
     * too. */
    std::vector<std::atomic<const medium *>> media;
};

/* The number in the name of a partition: of a slice one less than the table's. */
unsigned volume_number(table_kind table, const partition &part);

/* The partition of a medium that a name means, or null. */
const partition *find_partition(const medium &medium, const volume_name &name);

/* What "/dev/dsk/<volume>" links to: "../../devices<physical path>:<minor>". Nothing without such a volume;
 * a read_failure where its disk cannot be read. */
std::optional<std::string> device_link(std::string_view volume);

} // namespace machine

#endif
