// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/machine/bootorder.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/ovra/verbs.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

void show_order(firmware &machine, const arguments &args)
{
    const std::vector<uint16_t> order = machine.order();
    if (args.json) {
        print_json({{"order", option_names(order)}});
        return;
    }
    if (order.empty()) {
        print("BootOrder is not set\n");
        return;
    }
    table rows;
    for (size_t position = 0; position < order.size(); ++position)
        rows.row({std::to_string(position), option_name(order[position]),
                  description_of(machine, order[position])});
    print(rows.text());
}

void require_options(firmware &machine, const arguments &args)
{
    for (const uint16_t number : args.options) {
        if (!args.force)
            machine.require_sound_option(number);
    }
}

// Options of the present order that the new one leaves out.
void say_what_is_dropped(firmware &machine, const std::vector<uint16_t> &order, changes *changes)
{
    std::vector<uint16_t> dropped;
    try {
        dropped = machine.order();
    } catch (const damaged &) {
        return;
    }
    for (const uint16_t number : order)
        dropped = without(std::move(dropped), number);
    std::vector<uint16_t> once;
    std::string text;
    for (const uint16_t number : dropped) {
        if (std::find(once.begin(), once.end(), number) != once.end())
            continue;
        once.push_back(number);
        text += (text.empty() ? "" : "\n") + std::string("no longer in BootOrder: ") + option_name(number) +
                "  " + description_of(machine, number);
    }
    if (!once.empty())
        changes->remark(text, "dropped", option_names(once));
}

} // namespace

void run_order(firmware &machine, const arguments &args)
{
    using enum arguments::order_action;
    if (args.order == show) {
        show_order(machine, args);
        return;
    }
    const machine_lock lock(machine, args);
    changes changes(machine, args);
    if (args.order == set) {
        require_options(machine, args);
        say_what_is_dropped(machine, args.options, &changes);
        changes.make(writes_order(args.options));
    } else if (args.order == insert) {
        require_options(machine, args);
        const uint16_t number = args.options.front();
        changes.make(writes_order(with_inserted(machine.order(), number, args.position.value_or(-1))));
    } else {
        const uint16_t number = args.options.front();
        const std::vector<uint16_t> before = machine.order();
        const std::vector<uint16_t> after = without(before, number);
        if (after == before)
            throw failure(option_name(number) + " is not in BootOrder", "'ovra order' shows what is.");
        changes.make(writes_order(after));
    }
    changes.report();
}

} // namespace tool
