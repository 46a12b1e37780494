// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/machine/devicepaths.h"
#include "tools/machine/named.h"
#include "tools/ovra/fields.h"
#include "tools/ovra/verbs.h"
#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace tool {

namespace {

// Those whose path names the disk's hard-drive node first. What cannot be read is said, as it may be one.
std::vector<uint16_t> options_on(firmware &machine, const std::string &disk)
{
    device_paths paths;
    const bytes path = paths.encode_disk(disk, std::nullopt, false);
    const byte_view node = first_hard_drive(path);
    std::vector<uint16_t> found;
    for (const uint16_t number : machine.options()) {
        try {
            const load_option option = machine.read_option(number);
            const byte_view names = first_hard_drive(option.path);
            if (!names.empty() && std::equal(names.begin(), names.end(), node.begin(), node.end()))
                found.push_back(number);
        } catch (const unreadable &reason) {
            warn_of_unreadable(reason);
        }
    }
    return found;
}

} // namespace

void run_find(firmware &machine, const arguments &args)
{
    const chosen_disk disk = given_disk(args, *args.disk);
    const std::vector<uint16_t> options = options_on(machine, disk.name);
    if (args.json) {
        json document = disk.members();
        document["options"] = option_names(options);
        print_json(document);
        return;
    }
    if (options.empty())
        print("no option boots from " + printable(disk.name) + '\n');
    table rows;
    for (const uint16_t number : options)
        rows.row({option_name(number), description_of(machine, number)});
    print(rows.text());
}

} // namespace tool
