#include "tools/ovra/bootorder.h"
#include "tools/ovra/changes.h"
#include "tools/ovra/named.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

std::vector<uint16_t> distinct(const std::vector<uint16_t> &options)
{
    std::vector<uint16_t> once;
    for (const uint16_t number : options) {
        if (without(once, number) == once)
            once.push_back(number);
    }
    return once;
}

} // namespace

void run_remove(firmware &machine, const arguments &args)
{
    const std::vector<uint16_t> options = distinct(args.options);
    for (const uint16_t number : options)
        machine.require_option(number); // nothing is removed unless everything can be

    std::vector<uint16_t> order = machine.order();
    const std::optional<uint16_t> next = named_or_none(machine, &firmware::next);
    changes changes(args);
    for (const uint16_t number : options) {
        changes.make(deletes(option_name(number)), [&] { machine.remove_option(number); });
        const std::vector<uint16_t> rest = without(order, number);
        if (rest != order)
            changes.make(writes_order(rest), [] {}); // done by the removal
        order = rest;
        if (next == number)
            changes.remark("BootNext still names " + option_name(number) + "; 'ovra next --clear' clears it.",
                           "next", option_name(number));
    }
    changes.report();
}

} // namespace tool
