// SPDX-License-Identifier: MIT
#include "tools/machine/named.h"
#include "tools/ovra/verbs.h"

namespace tool {

void run_current(firmware &machine, const arguments &args)
{
    print_named_option(machine, args, "current", &firmware::current,
                       "BootCurrent is not set: the firmware does not say what it booted");
}

} // namespace tool
