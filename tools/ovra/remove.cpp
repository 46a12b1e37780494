// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/health.h"
#include "tools/machine/lock.h"
#include "tools/machine/removal.h"

namespace tool {

namespace {

class remove_verb : public verb {
public:
    const char *summary() const override { return "remove boot options, also from their order"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, true);
        options.declare(app, option_help);
        app.add_flag("--stale", stale, "those whose partitions are on none of this machine's disks");
        app.add_flag("--duplicates", duplicates,
                     "those with the path, file, data and attributes of an option before them in boot order");
        add_example(app, "ovra remove Boot0003 'Windows Boot Manager'");
    }

    void check() override
    {
        if (!stale && !duplicates)
            options.require();
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        const machine_lock lock(machine, general);
        removal removal(machine, chosen(machine), general);
        removal.run();
        removal.report();
    }

private:
    std::vector<uint16_t> chosen(firmware &machine) const
    {
        std::vector<uint16_t> all = options.find(machine);
        const auto add = [&all](const std::vector<uint16_t> &more) {
            all.insert(all.end(), more.begin(), more.end());
        };
        if (stale)
            add(stale_options(machine));
        if (duplicates)
            add(duplicate_options(machine));
        return all;
    }

    kind_argument kind;
    options_argument options;
    bool stale = false;
    bool duplicates = false;
};

} // namespace

std::unique_ptr<verb> make_remove()
{
    return std::make_unique<remove_verb>();
}

} // namespace tool
