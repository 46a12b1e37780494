// SPDX-License-Identifier: MIT
#include "tools/ovra/fields.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ovra/failure.h"

namespace tool {

namespace {

constexpr size_t file_limit = 1 << 20; // far above what firmware stores

bytes contents(const std::string &file)
{
    const std::string cannot = "cannot read " + (file.empty() ? "\"\"" : printable(file)) + ": ";
    // Not blocking, as the name may be a FIFO's or a terminal's.
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1)
        throw failure(cannot + strerror(errno));
    struct stat info = {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        const bool is_folder = S_ISDIR(info.st_mode);
        close(fd);
        throw failure(cannot + (is_folder ? strerror(EISDIR) : "it is no regular file"));
    }
    bytes data(file_limit + 1);
    size_t size = 0;
    ssize_t part = 0;
    while (size < data.size() &&
           ((part = read(fd, data.data() + size, data.size() - size)) > 0 || (part == -1 && errno == EINTR)))
        size += part > 0 ? static_cast<size_t>(part) : 0;
    const int error = errno;
    close(fd);
    if (part == -1)
        throw failure(cannot + strerror(error));
    if (size > file_limit)
        throw failure(cannot + "it is larger than any firmware variable");
    data.resize(size);
    return data;
}

// What firmware goes by when it looks for the disk of a path may be that of another disk, or of none.
void warn_of_wrong_disks(const chosen_disk &disk, const arguments &args)
{
    if (disk.is_logical)
        warn("the path has the number 0 for " + disk.name + ", a logical partition",
             "Firmware that goes by the number does not find it.");
    if (args.full)
        return;
    for (const chosen_disk &other : twins_of(disk))
        warn(other.name + ", /dev/" + printable(other.kernel_name) + ", has the same " +
                 (disk.partuuid.empty() ? "MBR signature" : "PARTUUID") + " as " + disk.name,
             std::string("The firmware may take either.") +
                 (args.disk ? " With --full the path leads to one of them alone." : ""));
}

} // namespace

std::optional<bytes> given_optional_data(const arguments &args)
{
    if (args.optional_data_file)
        return contents(*args.optional_data_file);
    if (args.optional_data_text)
        return stored(to_ucs2(*args.optional_data_text).value());
    return std::nullopt;
}

chosen_disk given_disk(const arguments &args, const std::string &name)
{
    chosen_disk disk = find_disk(name);
    if (!args.json)
        fprintf(stderr, "%s\n", disk.told_of(name).c_str());
    return disk;
}

given_path given_devices(device_paths &paths, const arguments &args, const std::optional<std::string> &file)
{
    // Names of the tree, which have no path, are left to the library.
    const bool names_disk =
        args.disk || (is_device_name(*args.device_text) && !args.device_text->starts_with("/devices/"));
    if (!names_disk)
        return {paths.encode(*args.device_text, file)};
    const chosen_disk disk = given_disk(args, args.disk ? *args.disk : *args.device_text);
    const bytes packed = paths.encode_disk(disk.name, file, args.full);
    // The library looks the name up once more, and disks may come and go meanwhile.
    const byte_view node = first_hard_drive(packed);
    if (!std::equal(node.begin(), node.end(), disk.node.begin(), disk.node.end()))
        throw failure("the disks changed: " + disk.name + " is another one now",
                      "Nothing was written. Try again.");
    warn_of_wrong_disks(disk, args);
    return {packed, disk.members()};
}

} // namespace tool
