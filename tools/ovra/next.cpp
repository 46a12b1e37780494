// SPDX-License-Identifier: MIT
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/ovra/verbs.h"

namespace tool {

void run_next(firmware &machine, const arguments &args)
{
    if (args.options.empty() && !args.clear) {
        print_named_option(machine, args, "next", &firmware::next,
                           "BootNext is not set: the machine boots by BootOrder");
        return;
    }
    const machine_lock lock(machine, args);
    changes changes(machine, args);
    if (args.clear) {
        if (machine.exists_global("BootNext"))
            changes.make(deletes("BootNext"));
    } else {
        const uint16_t number = args.options.front();
        if (!args.force)
            machine.require_sound_option(number);
        changes.make(
            writes("BootNext", stored(args.options), option_name(number), {{"option", option_name(number)}}));
    }
    changes.report();
}

} // namespace tool
