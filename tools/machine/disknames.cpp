// SPDX-License-Identifier: MIT
#include "tools/machine/disknames.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <sys/sysmacros.h>
#include <vector>

#include "src/base/ascii.h"
#include "src/base/device_name.h"
#include "tools/machine/machinefiles.h"
#include "tools/machine/mounts.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/text.h"

namespace tool {

namespace {

struct tag {
    std::string_view prefix; // as fstab(5) writes it
    std::string_view folder; // of udev's links
    named_by kind;
};

constexpr size_t attribute_limit = 4096; // of sysfs

constexpr std::array<tag, 4> tags = {{{"PARTUUID=", "/dev/disk/by-partuuid/", named_by::partuuid},
                                      {"PARTLABEL=", "/dev/disk/by-partlabel/", named_by::partlabel},
                                      {"UUID=", "/dev/disk/by-uuid/", named_by::uuid},
                                      {"LABEL=", "/dev/disk/by-label/", named_by::label}}};

// udev writes most characters of a label as \x20.
std::string without_udev_escapes(std::string_view text)
{
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        const std::string_view escape = text.substr(at, 4);
        const auto byte = escape.starts_with("\\x") ? parse_hex(escape.substr(2)) : std::nullopt;
        if (byte && byte->size() == 1) {
            plain += static_cast<char>(byte->front());
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

std::optional<disk_name> tagged(const std::string &text)
{
    for (const tag &each : tags) {
        if (ovra::alike(std::string_view(text).substr(0, each.prefix.size()), each.prefix))
            return disk_name{each.kind, text.substr(each.prefix.size()), false, {}, {}};
    }
    return std::nullopt;
}

// The machine's own names, with or without their folder.
std::optional<disk_name> plain(std::string_view text)
{
    for (const std::string_view folder :
         {std::string_view(ovra::slice_folder), std::string_view(ovra::partition_folder)}) {
        if (text.starts_with(folder))
            return disk_name{named_by::name, std::string(text.substr(folder.size())), false, {}, {}};
    }
    if (text.find('/') != std::string_view::npos || text == "." || text == "..")
        return std::nullopt;
    return disk_name{named_by::name, std::string(text), false, {}, {}};
}

// The kernel's name of a mapped device, which is named in /dev by a link, or by a file of its own.
std::optional<std::string> mapped(const machine_files &files, std::string_view name)
{
    constexpr std::string_view folder = "mapper/";
    if (!name.starts_with(folder))
        return std::nullopt;
    for (const std::string &each : files.names("/sys/block")) {
        const auto known = each.starts_with("dm-")
                               ? files.text("/sys/block/" + each + "/dm/name", attribute_limit)
                               : std::nullopt;
        if (known && *known == std::string(name.substr(folder.size())) + '\n')
            return each;
    }
    return std::nullopt;
}

disk_name in_dev(const machine_files &files, const std::string &path)
{
    for (const tag &each : tags) {
        if (path.starts_with(each.folder))
            return {each.kind, without_udev_escapes(path.substr(each.folder.size())), false, {}, {}};
    }
    std::string name = path.substr(ovra::length_of(ovra::device_folder));
    return {named_by::name, mapped(files, name).value_or(name), false, {}, {}};
}

disk_name numbered(const machine_files &files, const std::string &text, const std::string &number)
{
    auto name = files.link_name("/sys/dev/block/" + number);
    if (!name)
        throw failure(in_quotes(text) + " is the device " + number + ", which this machine does not have");
    std::replace(name->begin(), name->end(), '!', '/'); // the kernel's mark for a folder below /dev
    return {named_by::name, *name, false, {}, {}};
}

// The device of a file system: its number, or the name with which it was mounted.
disk_name mounted(const machine_files &files, const std::string &device)
{
    if (!device.starts_with('/'))
        return numbered(files, device, device);
    const std::string path = files.find(device).path;
    if (!path.starts_with(ovra::device_folder))
        throw failure(in_quotes(device) + ", which is mounted, is no device");
    return in_dev(files, path);
}

disk_name on_disk(const machine_files &files, const found_file &file)
{
    const file_place place = place_of(files, file);
    disk_name name = mounted(files, place.device);
    name.of_file = true;
    name.file_system = place.file_system;
    if (!S_ISREG(file.status->st_mode))
        return name;
    if (place.path.find('\\') != std::string::npos)
        throw failure(in_quotes(place.path) + " has a backslash in its name",
                      "Firmware takes it for the end of a folder's name.");
    name.file = place.path;
    std::replace(name.file->begin(), name.file->end(), '/', '\\');
    return name;
}

} // namespace

namespace {

// A slash at the end is what a shell completes. Only that of a folder below the working folder tells it from
// the name of a disk.
std::optional<std::string> without_slashes_at_end(const std::string &text)
{
    if (text.size() < 2 || !text.ends_with('/'))
        return std::nullopt;
    const machine_files files;
    if (!text.starts_with('/') && files.is_live() && files.find(text).status)
        return std::nullopt;
    return text.substr(0, std::max<size_t>(text.find_last_not_of('/') + 1, 1));
}

} // namespace

disk_name understood(const std::string &text)
{
    if (const auto name = tagged(text))
        return *name;
    if (const auto shorter = without_slashes_at_end(text))
        return understood(*shorter);
    if (const auto name = plain(text))
        return *name;
    const machine_files files;
    const found_file file = files.find(text);
    const bool is_below_dev = file.path.starts_with(ovra::device_folder);
    if (!file.status) {
        if (is_below_dev)
            return in_dev(files, file.path);
        throw failure("there is no file " + in_quotes(text));
    }
    const mode_t mode = file.status->st_mode;
    if (files.is_live() && S_ISBLK(mode)) {
        const dev_t number = file.status->st_rdev;
        return numbered(files, text, format("%u:%u", major(number), minor(number)));
    }
    // The number of a device in a folder is that of a device of the machine that runs the command.
    if (!files.is_live() && is_below_dev && !S_ISDIR(mode))
        return in_dev(files, file.path);
    if (!S_ISDIR(mode) && !S_ISREG(mode))
        throw failure(in_quotes(text) + " is neither a disk of this machine nor a file on one",
                      "'ovra disks' shows the disks with their names.");
    return on_disk(files, file);
}

std::string lies_on(const disk_name &name)
{
    if (name.kind != named_by::name || name.value.empty())
        return {};
    const machine_files files;
    std::string folder = name.value;
    std::replace(folder.begin(), folder.end(), '/', '!');
    std::vector<std::string> below = files.names("/sys/class/block/" + folder + "/slaves");
    if (below.empty())
        below = files.names("/sys/block/" + folder + "/slaves");
    return below.empty() ? "" : "It lies on " + printable(join(below, ", ")) + ". ";
}

} // namespace tool
