// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/newoption.h"
#include "tools/machine/startable.h"

namespace tool {

namespace {

class copy_verb : public verb {
public:
    const char *summary() const override { return "make a boot option like another one"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, true);
        option.declare(app, option_help);
        description.declare(app);
        number.declare(app, kind);
        place.declare(app);
        add_example(app, "ovra copy Debian --desc 'Debian, single user' --after Debian");
    }
    void check() override { option.require(); }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        changes changes(machine, general);
        const machine_lock lock(machine, general);
        const uint16_t copied = option.find(machine);
        load_option made = changeable_option(machine, copied);
        if (description.text)
            made.description = *description.text;
        warn_of_description(made, &changes);
        if (is_firmware_mark(made.optional_data)) {
            made.optional_data.clear(); // firmware would delete the copy
            changes.remark("The copy is without the mark of options that firmware makes itself.", "unmarked",
                           true);
        }
        make_option(machine, {made, number.value, place.place}, general, &changes);
        changes.report();
    }

private:
    kind_argument kind;
    option_argument option;
    description_argument description;
    number_argument number;
    place_arguments place;
};

} // namespace

std::unique_ptr<verb> make_copy()
{
    return std::make_unique<copy_verb>();
}

} // namespace tool
