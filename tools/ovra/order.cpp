#include "tools/ovra/bootorder.h"
#include "tools/ovra/changes.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/named.h"
#include "tools/ovra/verbs.h"

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
            machine.require_option(number);
    }
}

} // namespace

void run_order(firmware &machine, const arguments &args)
{
    using enum arguments::order_action;
    if (args.order == show) {
        show_order(machine, args);
        return;
    }
    changes changes(args);
    if (args.order == set) {
        require_options(machine, args);
        changes.make(writes_order(args.options),
                     [&] { machine.write_global("BootOrder", stored(args.options)); });
    } else if (args.order == insert) {
        require_options(machine, args);
        const uint16_t number = args.options.front();
        changes.make(writes_order(with_inserted(machine.order(), number, args.position)),
                     [&] { machine.insert_into_order(number, args.position); });
    } else {
        const uint16_t number = args.options.front();
        const std::vector<uint16_t> before = machine.order();
        const std::vector<uint16_t> after = without(before, number);
        if (after == before)
            throw failure(option_name(number) + " is not in BootOrder", "'ovra order' shows what is.");
        changes.make(writes_order(after), [&] { machine.remove_from_order(number); });
    }
    changes.report();
}

} // namespace tool
