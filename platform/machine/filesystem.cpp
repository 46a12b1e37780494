// SPDX-License-Identifier: MIT
#include "platform/machine/filesystem.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/machine/blkid.h"
#include "platform/machine/debug.h"
#include "platform/machine/failure.h"

namespace machine {

namespace {

std::string value_of(blkid_probe probe, const char *name)
{
    const char *value = nullptr;
    std::size_t size = 0; // with the terminator
    if (blkid().probe_lookup_value(probe, name, &value, &size) != 0 || value == nullptr)
        return {};
    return {value, strnlen(value, size)};
}

bool is_of_a_whole(std::string_view usage)
{
    return usage != "filesystem" && usage != "crypto" && usage != "other";
}

file_system probe_once(const disk &disk, int device, const partition &part)
{
    const probe_owner probe(blkid().new_probe());
    if (!probe)
        throw std::bad_alloc();
    errno = 0;
    if (blkid().probe_set_device(probe.get(), device, static_cast<blkid_loff_t>(part.start * disk.block_size),
                                 static_cast<blkid_loff_t>(part.size * disk.block_size)) != 0 ||
        blkid().probe_set_sectorsize(probe.get(), disk.block_size) != 0 ||
        blkid().probe_enable_superblocks(probe.get(), 1) != 0 ||
        blkid().probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_UUID |
                                                             BLKID_SUBLKS_LABEL | BLKID_SUBLKS_USAGE) != 0)
        throw read_failure{errno != 0 ? errno : EIO};
    errno = 0;
    constexpr int none = 1;
    constexpr int several = -2;
    const int result = blkid().do_safeprobe(probe.get());
    if (result == several)
        debug("dev/%s: partition %u holds several file systems at once", disk.kernel_name.c_str(),
              part.number);
    else if (result != 0 && result != none)
        throw read_failure{errno != 0 ? errno : EIO};
    if (result != 0 || is_of_a_whole(value_of(probe.get(), "USAGE")))
        return {};
    return {value_of(probe.get(), "TYPE"), value_of(probe.get(), "UUID"), value_of(probe.get(), "LABEL")};
}

} // namespace

file_system read_file_system(const machine_root &root, const disk &disk, const partition &part)
{
    const owned_fd device = open_disk(root, disk);
    if (!device)
        throw read_failure{errno};
    // libblkid ignores some failures, as it does of tables: a result counts when it comes twice.
    static constexpr unsigned attempts = 4;
    partition on_disk = part; // that of an MBR may reach beyond it
    if (part.start < disk.blocks)
        on_disk.size = std::min(part.size, disk.blocks - part.start);
    file_system found = probe_once(disk, device.get(), on_disk);
    for (unsigned i = 0; i < attempts; ++i) {
        file_system again = probe_once(disk, device.get(), on_disk);
        if (again == found)
            return found;
        found = std::move(again);
    }
    throw read_failure{EIO};
}

} // namespace machine
