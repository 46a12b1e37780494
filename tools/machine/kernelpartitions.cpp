// SPDX-License-Identifier: MIT
#include "tools/machine/kernelpartitions.h"

#include <algorithm>
#include <vector>

#include "src/base/whole_number.h"
#include "tools/machine/machinefiles.h"

namespace tool {

namespace {

constexpr uint64_t sysfs_sector = 512; // whatever the size of the disk's blocks

std::string name_in_sysfs(std::string name)
{
    std::replace(name.begin(), name.end(), '/', '!'); // the kernel's mark
    return name;
}

std::string folder_in_sysfs(const drive &drive)
{
    return "/sys/block/" + name_in_sysfs(drive.kernel_name) + '/';
}

// The names of a drive's partitions.
std::vector<std::string> kernel_partitions(const drive &drive)
{
    const machine_files files;
    const std::string folder = folder_in_sysfs(drive);
    std::vector<std::string> found = files.names(folder);
    std::erase_if(found, [&](const std::string &name) {
        return !name.starts_with(name_in_sysfs(drive.kernel_name)) ||
               !files.find(folder + name + "/partition").status;
    });
    for (std::string &name : found)
        std::replace(name.begin(), name.end(), '!', '/');
    return found;
}

} // namespace

uint64_t sectors_of_block(const drive &drive)
{
    return std::max<uint64_t>(drive.block_size / sysfs_sector, 1);
}

std::optional<ovra::extent> kernel_extent(const drive &drive, const std::string &partition)
{
    constexpr size_t limit = 4096;
    const std::string folder = folder_in_sysfs(drive) + name_in_sysfs(partition) + '/';
    const machine_files files;
    const auto number = [&](const char *name) -> std::optional<uint64_t> {
        const auto text = files.text(folder + name, limit);
        return text ? ovra::whole_number<uint64_t>(text->substr(0, text->find('\n'))) : std::nullopt;
    };
    const auto start = number("start");
    const auto size = number("size");
    return start && size ? std::optional(ovra::extent{*start, *size}) : std::nullopt;
}

std::string doubt_of_partitions(const drive &drive, const drive_contents &contents)
{
    const std::string device = "/dev/" + drive.kernel_name + ": ";
    if (const std::string doubt = contents.doubt(); !doubt.empty())
        return device + doubt;
    for (const std::string &name : kernel_partitions(drive)) {
        const auto volume = std::find_if(drive.volumes.begin(), drive.volumes.end(),
                                         [&](const auto &each) { return each.kernel_name == name; });
        if (volume == drive.volumes.end())
            return device + format("the kernel has %s, which is not in its partition table", name.c_str());
        const auto known = kernel_extent(drive, name);
        if (known && known->start != volume->start * sectors_of_block(drive))
            return device +
                   format("the kernel has %s at another place than its partition table", name.c_str());
    }
    return {};
}

} // namespace tool
