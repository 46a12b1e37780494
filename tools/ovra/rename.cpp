// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/newoption.h"
#include "tools/text/description.h"

namespace tool {

namespace {

class rename_verb : public verb {
public:
    const char *summary() const override { return "give a boot option another description"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, true);
        option.declare(app, option_help)->required();
        add_value(app, "description", "TEXT", "the new description", [this](const std::string &text) {
            description = typed_description(text);
            check_description(description);
        })->required();
        add_example(app, "ovra rename Boot0003 'Debian 12'");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        const machine_lock lock(machine, general);
        const uint16_t number = option.find(machine);
        const load_option before = changeable_option(machine, number);
        load_option renamed = before;
        renamed.description = description;
        changes changes(machine, general);
        change_option(machine, number, before, renamed, &changes);
        changes.report();
    }

private:
    kind_argument kind;
    option_argument option;
    std::string description;
};

} // namespace

std::unique_ptr<verb> make_rename()
{
    return std::make_unique<rename_verb>();
}

} // namespace tool
