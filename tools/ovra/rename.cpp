// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/newoption.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

class rename_verb : public verb {
public:
    const char *summary() const override { return "give a boot option another description"; }
    void declare(CLI::App &app) override
    {
        option.declare(app, option_help)->required();
        add_value(app, "description", "TEXT", "the new description", [this](const std::string &text) {
            check_description(text);
            description = text;
        })->required();
        add_example(app, "ovra rename Boot0003 'Debian 12'");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const machine_lock lock(machine, general);
        const uint16_t number = option.find(machine);
        load_option renamed = changeable_option(machine, number, false, true);
        renamed.description = description;
        check_size(renamed);
        changes changes(machine, general);
        if (as_stored(renamed) != machine.read_global(option_name(number)).data) {
            changes.make(writes_option(number, renamed));
            warn_of(cautions_of_mark(renamed.optional_data));
        }
        changes.report();
    }

private:
    option_argument option;
    std::string description;
};

} // namespace

std::unique_ptr<verb> make_rename()
{
    return std::make_unique<rename_verb>();
}

} // namespace tool
