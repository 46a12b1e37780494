// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

class next_verb : public verb {
public:
    const char *summary() const override { return "show or set the option to boot once, at the next start"; }
    void declare(CLI::App &app) override
    {
        auto *named = option.declare(app, option_help);
        app.add_flag("--clear", clear, "boot by BootOrder again")
            ->excludes(named)
            ->excludes(app.get_option("--path"));
        app.add_flag("--force", force, "also an option that does not exist");
        add_example(app, "ovra next Debian");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        if (!option.given() && !clear)
            print_named_option(machine, general, "next", &firmware::next,
                               "BootNext is not set: the machine boots by BootOrder");
        else
            change_it(machine, general);
    }

private:
    void change_it(firmware &machine, const general_options &general) const
    {
        const machine_lock lock(machine, general);
        changes changes(machine, general);
        if (clear) {
            if (machine.exists_global("BootNext"))
                changes.make(deletes("BootNext"));
        } else {
            const uint16_t number = option.find(machine);
            if (!force)
                machine.require_sound_option(number);
            changes.make(writes("BootNext", stored(std::vector{number}), boot_options.name(number), [number] {
                return json{{"option", boot_options.name(number)}};
            }));
        }
        changes.report();
    }

    option_argument option;
    bool clear = false;
    bool force = false;
};

} // namespace

std::unique_ptr<verb> make_next()
{
    return std::make_unique<next_verb>();
}

} // namespace tool
