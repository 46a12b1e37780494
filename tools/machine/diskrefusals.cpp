// SPDX-License-Identifier: MIT
#include "tools/machine/diskrefusals.h"

#include "src/base/device_name.h"
#include "tools/machine/contents.h"
#include "tools/machine/machinefiles.h"
#include "tools/text/failure.h"

namespace tool {

bool begins_with_name(const std::string &wanted, const std::string &drive)
{
    return !drive.empty() && wanted.size() > drive.size() && wanted.starts_with(drive);
}

bool is_volume_of(const std::string &wanted, const std::string &drive)
{
    if (!begins_with_name(wanted, drive))
        return false;
    std::string_view rest = std::string_view(wanted).substr(drive.size());
    if (rest[0] == 'p' || rest[0] == 's')
        rest.remove_prefix(1);
    return !rest.empty() && rest.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string in_dev_folder(const std::string &name)
{
    return ovra::device_folder + name;
}

void refuse_without_table(const std::string &text, const drive &drive)
{
    const auto all = read_contents(true);
    const auto found = all.find(drive.name);
    if (found == all.end() || found->second.kind != "file-system")
        return;
    throw failure(in_quotes(text) + " is the whole disk " + both_names(drive.name, drive.kernel_name) +
                      ", which has a " + found->second.text(),
                  "Without a table a path cannot name it by a partition: firmware finds it by its hardware "
                  "alone, as a rule on removable media. A partition table gives it a lasting name.");
}

void refuse_whole_file_system(const std::vector<drive> &drives, const disk_name &wanted,
                              const std::string &text)
{
    if (wanted.kind != named_by::uuid && wanted.kind != named_by::label)
        return;
    const std::string folder = wanted.kind == named_by::uuid ? "disk/by-uuid/" : "disk/by-label/";
    if (wanted.value.empty() || wanted.value.find('/') != std::string::npos)
        return;
    const auto name = machine_files().link_name(in_dev_folder(folder + wanted.value));
    for (const drive &drive : drives) {
        if (name == drive.kernel_name)
            refuse_without_table(text, drive);
    }
}

void refuse_former_partition(const std::vector<drive> &drives, const disk_name &wanted,
                             const std::string &text)
{
    for (const drive &drive : drives) {
        const bool is_former =
            wanted.kind == named_by::name && drive.has_medium &&
            is_volume_of(wanted.value, drive.kernel_name) &&
            machine_files()
                .find("/sys/block/" + drive.kernel_name + '/' + wanted.value + "/partition")
                .status.has_value();
        if (is_former)
            throw failure("the partition table of " + both_names(drive.name, drive.kernel_name) + " has no " +
                              in_quotes(text) + " any more",
                          "The kernel still has it. 'blockdev --rereadpt' has it read the table again.");
    }
}

} // namespace tool
