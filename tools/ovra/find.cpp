// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>

#include "src/base/device_name.h"
#include "tools/machine/diskoptions.h"
#include "tools/machine/drives.h"
#include "tools/machine/fullform.h"
#include "tools/machine/named.h"
#include "tools/ovra/arguments.h"
#include "tools/ovra/verb.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

// The drive that a name stands for as a whole.
std::optional<drive> whole_drive(const std::string &text)
{
    std::string_view name = text;
    for (const std::string_view folder :
         {std::string_view(ovra::slice_folder), std::string_view(ovra::device_folder)}) {
        if (name.starts_with(folder)) {
            name.remove_prefix(folder.size());
            break;
        }
    }
    const auto is_meant = [name](const drive &drive) {
        return drive.name == name || drive.kernel_name == name;
    };
    std::vector<drive> drives = read_drives(is_meant);
    const auto found = std::find_if(drives.begin(), drives.end(), is_meant);
    return found == drives.end() ? std::nullopt : std::optional(std::move(*found));
}

class find_verb : public verb {
public:
    const char *summary() const override { return "the boot options that boot from a disk"; }
    void declare(CLI::App &app) override
    {
        disk.declare(
                app, "disk",
                "a disk, or a slice or partition of it, by its name (c0t0d0, c0t0d0s0), Linux's (/dev/sda, "
                "/dev/sda1) or PARTUUID=...")
            ->required();
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const std::optional<drive> whole = whole_drive(disk.name.value());
        const chosen_disk chosen = whole ? taken(*whole, general) : disk.find(general);
        const disk_options known(machine);
        std::vector<uint16_t> options;
        if (whole) {
            device_paths paths;
            options = known.of_drive(marks_of(*whole, hardware(), paths));
        } else {
            options = known.of_volume(chosen.node);
        }
        if (general.json) {
            json document = chosen.members();
            document["options"] = option_names(options);
            print_json(document);
            return;
        }
        if (options.empty())
            print("no option boots from " + printable(chosen.name) + '\n');
        table rows;
        for (const uint16_t number : options)
            rows.row({option_name(number), description_of(machine, number)});
        print(rows.text());
    }

private:
    // A whole disk, reported as a slice or partition is.
    chosen_disk taken(const drive &drive, const general_options &general) const
    {
        chosen_disk chosen;
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

    disk_argument disk;
};

} // namespace

std::unique_ptr<verb> make_find()
{
    return std::make_unique<find_verb>();
}

} // namespace tool
