// SPDX-License-Identifier: MIT
#include "tools/machine/arrays.h"

#include <algorithm>

#include "tools/machine/contents.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

// The formats whose own data begins each member. That of 1.0 and 0.90 ends it, and others have none there.
bool begins_members(const drive_contents &array)
{
    return array.metadata == "1.1" || array.metadata == "1.2";
}

[[noreturn]] void refuse_array(const std::string &what, const drive_contents &array)
{
    throw failure(what + ", whose members begin with the array's own data (metadata " +
                      printable(array.metadata) + ")",
                  "Firmware finds no file system on " + array.members_text() +
                      ". mdadm --create --metadata=1.0 puts "
                      "that data at the end.");
}

} // namespace

std::optional<std::string> member_for_firmware(const std::string &typed, const drive &drive)
{
    if (!drive.path.starts_with("/md@"))
        return std::nullopt;
    const auto all = read_contents(true);
    const auto found = all.find(drive.name);
    if (found == all.end() || found->second.members.empty())
        return std::nullopt;
    const drive_contents &array = found->second;
    if (array.kind == "gpt" || array.kind == "mbr")
        return std::nullopt; // firmware's own RAID, whose volumes it knows, or as good as one
    if (begins_members(array))
        refuse_array(in_quotes(typed) + " is an array of " + array.members_text(), array);
    warn(
        in_quotes(typed) + " is an array of " + array.members_text() + " (metadata " +
            printable(array.metadata) + "); " + printable(array.members.front()) + " is taken",
        "Firmware knows no arrays, and reads a member as a partition of its own, since the array's data is at "
        "its end. To start when this one fails, make an option for each.");
    return array.members.front();
}

void require_not_in_an_array(const chosen_disk &disk)
{
    for (const auto &[name, array] : read_contents(false)) {
        if (!begins_members(array))
            continue;
        const bool inside = disk.name.starts_with(name + 's') || disk.name.starts_with(name + 'p');
        if (inside)
            refuse_array(disk.name + " is in an array of " + array.members_text(), array);
        if (std::find(array.members.begin(), array.members.end(), disk.kernel_name) != array.members.end())
            refuse_array(disk.name + " is a member of an array", array);
    }
}

} // namespace tool
