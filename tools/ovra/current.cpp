// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/verb.h"
#include "tools/machine/named.h"

namespace tool {

namespace {

class current_verb : public verb {
public:
    const char *summary() const override { return "the option that was booted"; }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        print_named_option(machine, general, "current", &firmware::current,
                           "BootCurrent is not set: the firmware does not say what it booted");
    }
};

} // namespace

std::unique_ptr<verb> make_current()
{
    return std::make_unique<current_verb>();
}

} // namespace tool
