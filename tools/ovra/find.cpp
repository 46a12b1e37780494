// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/disknames.h"
#include "tools/machine/diskoptions.h"
#include "tools/machine/drives.h"
#include "tools/machine/fullform.h"
#include "tools/machine/named.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/table.h"

namespace tool {

namespace {

constexpr char find_help[] =
    "a disk, or a slice or partition of it: c0t0d0, c0t0d0s0, sda, sda1, /dev/..., PARTUUID=..., UUID=..., "
    "LABEL=..., PARTLABEL=..., or a mount point or file on it";

// "c0t0d0s0" and "c0t0d0p1": the names of drives end in d and a number.
bool names_volume(const std::string &name)
{
    const size_t letter = name.find_last_not_of("0123456789");
    return name.starts_with('c') && letter != std::string::npos &&
           (name[letter] == 's' || name[letter] == 'p') && ovra::is_ascii_digit(name[letter - 1]);
}

// The drive that a name stands for as a whole. An array without partitions is none: firmware sees its
// members.
std::optional<drive> whole_drive(const disk_name &wanted)
{
    // A drive is not looked for where there cannot be one: the machine is read for it.
    if (wanted.kind != named_by::name || names_volume(wanted.value))
        return std::nullopt;
    const auto is_meant = [&wanted](const drive &drive) {
        return drive.name == wanted.value || drive.kernel_name == wanted.value;
    };
    std::vector<drive> drives = read_drives({.media = is_meant, .attachments = is_meant});
    const auto found = std::find_if(drives.begin(), drives.end(), is_meant);
    if (found == drives.end() || (found->path.starts_with("/md@") && found->volumes.empty()))
        return std::nullopt;
    return std::move(*found);
}

class find_verb : public verb {
public:
    const char *summary() const override { return "the boot options that boot from a disk"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, false);
        disk.declare(app, "disk", find_help)->required();
        add_example(app, "ovra find /dev/sda1");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        require_machine();
        const disk_name wanted = understood(disk.name.value());
        const std::optional<drive> whole = disk.part ? std::nullopt : whole_drive(wanted);
        const chosen_disk chosen = whole ? taken(*whole, wanted, general) : disk.find(general);
        drive_marks marks = {chosen.drive, {}, {chosen.node}};
        if (whole) {
            device_paths paths;
            marks = marks_of(*whole, hardware(), paths);
        }
        const disk_options known(machine, &marks);
        const std::vector<found_option> options =
            whole ? known.of_drive(marks) : known.of_volume(chosen.node, chosen.drive);
        if (general.json) {
            json document = chosen.members();
            document["options"] = option_names(machine.kind(), numbers_of(options));
            document["remarks"] = remarks_of(machine.kind(), options);
            print_json(document);
            return;
        }
        if (options.empty())
            print("no option boots from " + chosen.both_names() + '\n');
        table rows;
        for (const found_option &each : options)
            rows.row({machine.name_of(each.number), description_of(machine, each.number), each.remark()});
        print(rows.text());
    }

private:
    // A whole disk, reported as a slice or partition is.
    chosen_disk taken(const drive &drive, const disk_name &wanted, const general_options &general) const
    {
        chosen_disk chosen;
        chosen.of_file = wanted.of_file;
        chosen.name = drive.name;
        chosen.kernel_name = drive.kernel_name;
        if (drive.signature)
            chosen.signature = format("%08x", *drive.signature);
        if (!general.json)
            fprintf(stderr, "%s\n", broken(chosen.told_of(*disk.name), 0).c_str());
        if (drive.error != 0)
            warn("cannot read /dev/" + printable(drive.kernel_name) + ": " + strerror(drive.error),
                 "Options that boot from its partitions are not known.");
        return chosen;
    }

    kind_argument kind;
    disk_argument disk;
};

} // namespace

std::unique_ptr<verb> make_find()
{
    return std::make_unique<find_verb>();
}

} // namespace tool
