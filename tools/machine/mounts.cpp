// SPDX-License-Identifier: MIT
#include "tools/machine/mounts.h"

#include <algorithm>
#include <array>
#include <linux/magic.h>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr const char *kernel_table = "/proc/self/mountinfo";
constexpr const char *old_table = "/etc/mtab";
constexpr size_t table_limit = 4 << 20;

// A line of these tables (proc(5), fstab(5)). The second has no numbers, and no folder of the file system.
struct mount {
    std::string id;
    std::string parent;
    std::string number;     // "8:1"
    std::string root = "/"; // the folder of the file system that is seen at the point
    std::string point;
    std::string type;
    std::string source;
};

std::vector<std::string_view> split_at(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (size_t end = 0; !text.empty(); text.remove_prefix(std::min(end + 1, text.size()))) {
        end = std::min(text.find(separator), text.size());
        if (end != 0)
            parts.push_back(text.substr(0, end));
    }
    return parts;
}

// Blanks and line ends stand as \040.
std::string without_octal_escapes(std::string_view text)
{
    const auto is_octal = [](char digit) { return digit >= '0' && digit <= '7'; };
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        const std::string_view digits = text.substr(std::min(at + 1, text.size()), 3);
        if (text[at] == '\\' && digits.size() == 3 && std::all_of(digits.begin(), digits.end(), is_octal)) {
            plain += static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + digits[2] - '0');
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

std::optional<mount> read_mount(std::string_view line, bool with_numbers)
{
    constexpr size_t most_before_dash = 6;
    const auto fields = split_at(line, ' ');
    mount read;
    if (!with_numbers) {
        if (fields.size() < 3)
            return std::nullopt;
        read.source = without_octal_escapes(fields[0]);
        read.point = without_octal_escapes(fields[1]);
        read.type = without_octal_escapes(fields[2]);
        return read;
    }
    if (fields.size() < most_before_dash)
        return std::nullopt;
    const auto dash = std::find(fields.begin() + most_before_dash, fields.end(), "-");
    if (fields.end() - dash < 3)
        return std::nullopt;
    read.id = fields[0];
    read.parent = fields[1];
    read.number = fields[2];
    read.root = without_octal_escapes(fields[3]);
    read.point = without_octal_escapes(fields[4]);
    read.type = without_octal_escapes(dash[1]);
    read.source = without_octal_escapes(dash[2]);
    return read;
}

class mount_table {
public:
    mount_table(std::string_view table, bool with_numbers)
    {
        std::vector<mount> mounts;
        std::set<std::string> ids;
        for (const std::string_view line : split_at(table, '\n')) {
            if (auto read = read_mount(line, with_numbers)) {
                ids.insert(read->id);
                mounts.push_back(std::move(*read));
            }
        }
        for (mount &each : mounts) {
            // What is outside of what this process sees has no line.
            const std::string below = ids.contains(each.parent) ? each.parent : "";
            by_place.insert_or_assign({below, each.point}, std::move(each));
        }
    }

    // What the kernel finds when it goes along the path: one mount hides another, and what is below that.
    const mount *of(const std::string &path) const
    {
        const mount *found = nullptr;
        for (size_t end = 0; end <= path.size(); ++end) {
            if (end != 0 && end != path.size() && path[end] != '/')
                continue;
            const std::string point = end == 0 ? "/" : path.substr(0, end);
            // The numbers may be made up to go in circles.
            for (size_t steps = 0; steps < by_place.size(); ++steps) {
                const auto next = by_place.find({found ? found->id : "", point});
                if (next == by_place.end() || &next->second == found)
                    break;
                found = &next->second;
            }
        }
        return found;
    }

private:
    std::map<std::pair<std::string, std::string>, mount> by_place; // by what it is mounted on, and where
};

// In the folder of another machine this is no file of that machine but the kernel's word on this one.
bool is_of_this_kernel(const machine_files &files, const std::string &path)
{
    struct statfs system = {};
    return !files.is_live() && statfs(files.on_host(path).c_str(), &system) == 0 &&
           system.f_type == PROC_SUPER_MAGIC;
}

mount_table known_mounts(const machine_files &files)
{
    for (const char *table : {kernel_table, old_table}) {
        const found_file found = files.find(table);
        if (!found.status || is_of_this_kernel(files, found.path))
            continue;
        return {files.text(found.path, table_limit).value_or(""), table == kernel_table};
    }
    throw failure("what is mounted where is not known",
                  files.is_live()
                      ? "'mount -t proc proc /proc' mounts what the kernel tells of it."
                      : "The machine's folder has neither proc/self/mountinfo nor etc/mtab. Name the disk.");
}

[[noreturn]] void refuse_file(const found_file &file, const mount &on)
{
    const std::string is_on = in_quotes(file.path) + " is on a file system of kind " + printable(on.type);
    if (on.source.starts_with("/dev/"))
        throw failure(is_on + ", which can be on several disks and in parts of them",
                      "Name the disk: " + printable(on.source));
    throw failure(is_on + ", which is on no disk", "'ovra disks' shows the disks with their names.");
}

bool has_several_disks(const mount &on)
{
    constexpr std::array<std::string_view, 3> kinds = {"btrfs", "bcachefs", "zfs"};
    return std::find(kinds.begin(), kinds.end(), on.type) != kinds.end();
}

} // namespace

file_place place_of(const machine_files &files, const found_file &file)
{
    // A file system that is mounted when it is first used is mounted now.
    if (files.is_live() && S_ISDIR(file.status->st_mode))
        static_cast<void>(access((file.path + "/.").c_str(), F_OK));
    const mount_table mounts = known_mounts(files);
    const mount *on = mounts.of(file.path);
    if (!on)
        throw failure("which disk has " + in_quotes(file.path) + " is not known",
                      "No file system is mounted there or above it. Name the disk.");
    const bool is_listed = !on->number.empty() && files.find("/sys/dev/block/" + on->number).status;
    if (on->number.starts_with("0:") || has_several_disks(*on) ||
        (!is_listed && !on->source.starts_with("/dev/")))
        refuse_file(file, *on);
    struct stat now = {};
    if (files.is_live() && (stat(file.path.c_str(), &now) != 0 ||
                            format("%u:%u", major(now.st_dev), minor(now.st_dev)) != on->number))
        throw failure("which disk has " + in_quotes(file.path) + " is not known",
                      "Its device is not that of the mount " + printable(on->point) + ". Name the disk.");
    if (on->root.ends_with("//deleted") && S_ISREG(file.status->st_mode)) // the kernel's mark
        throw failure(in_quotes(file.path) + " is a deleted file that is still mounted there",
                      "Firmware does not find it. Name the disk, and a file on it with --file.");
    file_place place;
    place.device = is_listed ? on->number : on->source;
    place.file_system = on->type;
    if (on->root != "/")
        place.path = on->root;
    if (on->point != "/")
        place.path += file.path.substr(on->point.size());
    else if (file.path != "/")
        place.path += file.path;
    return place;
}

} // namespace tool
