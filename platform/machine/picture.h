/* SPDX-License-Identifier: MIT */
/*
 * A picture of the machine: its device tree and disks as they were at one moment, and the media of the disks,
 * each read when it is first asked for. Functions that read throw read_failure.
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

#include "platform/machine/contents.h"
#include "platform/machine/filesystem.h"
#include "platform/machine/media.h"
#include "platform/machine/transport.h"
#include "platform/machine/tree.h"

namespace machine {

/* The name of a partition of an MBR ("p1") or a slice of a GPT ("s0"), taken apart. */
struct volume_name {
    std::string disk; /* "c0t0d0" */
    table_kind table = table_kind::none;
    unsigned number = 0; /* after the letter */
};

/* Takes "c0t0d0s0" or "c0t0d0p1" apart. Nothing for any other text. */
std::optional<volume_name> parse_volume_name(std::string_view text);

class picture {
public:
    picture();
    picture(const picture &) = delete;
    picture &operator=(const picture &) = delete;
    ~picture();

    /* The machine now; between devns_begin and devns_end, the one picture that the thread has there. */
    static std::shared_ptr<picture> read();

    [[nodiscard]] const device_tree &tree() const { return devices; }

    /* The medium of a disk, by its index in tree().disks. Several threads may ask at once. */
    const medium &medium_of(std::size_t disk);

    /* How a disk is attached, by its index in tree().disks; read anew with each call. */
    [[nodiscard]] transport transport_of(std::size_t disk) const;
    /* What a partition of a disk holds, read anew at each call. */
    [[nodiscard]] file_system file_system_of(std::size_t disk, const partition &part) const
    {
        return read_file_system(root, devices.disks[disk], part);
    }
    /* What else is to say of a disk's medium, read at each call. */
    contents contents_of(std::size_t disk);

    /* The index of the disk of this name in tree().disks; the size of that list if there is none. */
    [[nodiscard]] std::size_t find_disk(std::string_view name) const;

private:
    machine_root root;
    device_tree devices;
    std::map<std::string, std::size_t, std::less<>> by_name;
    /* By disk; null: not read yet. Read without a lock: a child forked meanwhile may read it too. */
    std::vector<std::atomic<const medium *>> media;
};

/* The number in the name of a volume; that of a slice is one less than its entry's. */
unsigned volume_number(table_kind table, const partition &part);

/* The partition that a name means, or null. */
const partition *find_partition(const medium &medium, const volume_name &name);

/*
 * The target of the link "/dev/dsk/<volume>": "../../devices<physical path>:<minor>". Nothing without such a
 * volume. Throws read_failure when its disk cannot be read.
 */
std::optional<std::string> device_link(std::string_view volume);

} // namespace machine

#endif
