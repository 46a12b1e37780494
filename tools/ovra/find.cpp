// SPDX-License-Identifier: MIT
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/machine/drives.h"
#include "tools/machine/named.h"
#include "tools/ovra/arguments.h"
#include "tools/ovra/verb.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

// Those whose path names the disk's hard-drive node first. What cannot be read is said, as it may be one.
std::vector<uint16_t> options_on(firmware &machine, byte_view node)
{
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

class find_verb : public verb {
public:
    const char *summary() const override { return "the boot options that boot from a disk"; }
    void declare(CLI::App &app) override { disk.declare(app, "disk", disk_help)->required(); }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const chosen_disk chosen = disk.find(general);
        const std::vector<uint16_t> options = options_on(machine, chosen.node);
        if (general.json) {
            json document = chosen.members();
            document["options"] = option_names(options);
            print_json(document);
            return;
        }
        if (options.empty())
            print("no option boots from " + chosen.both_names() + '\n');
        table rows;
        for (const uint16_t number : options)
            rows.row({option_name(number), description_of(machine, number)});
        print(rows.text());
    }

private:
    disk_argument disk;
};

} // namespace

std::unique_ptr<verb> make_find()
{
    return std::make_unique<find_verb>();
}

} // namespace tool
