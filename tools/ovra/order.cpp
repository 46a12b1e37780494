// SPDX-License-Identifier: MIT
#include <algorithm>
#include <set>

#include <CLI/CLI.hpp>

#include "tools/machine/bootorder.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/ovra/arguments.h"
#include "tools/ovra/verb.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

void show_order(firmware &machine, const general_options &general)
{
    const std::vector<uint16_t> order = machine.order();
    if (general.json) {
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

// Options of the present order that the new one leaves out.
void say_what_is_dropped(firmware &machine, const std::vector<uint16_t> &order, changes *changes)
{
    std::vector<uint16_t> dropped;
    try {
        dropped = distinct(without_all(machine.order(), order));
    } catch (const damaged &) {
        return;
    }
    std::string text;
    for (const uint16_t number : dropped) {
        text += (text.empty() ? "" : "\n") + std::string("no longer in BootOrder: ") + option_name(number) +
                "  " + description_of(machine, number);
    }
    if (!dropped.empty())
        changes->remark(text, "dropped", option_names(dropped));
}

// A list separated by commas, in any number of arguments.
std::vector<uint16_t> order_of(const std::vector<std::string> &lists)
{
    std::vector<uint16_t> order;
    std::set<uint16_t> seen;
    for (const std::string &list : lists) {
        for (size_t begin = 0; begin <= list.size();) {
            const size_t end = std::min(list.find(',', begin), list.size());
            const uint16_t number = option_number(list.substr(begin, end - begin));
            if (!seen.insert(number).second)
                throw usage_error(option_name(number) + " is named twice");
            order.push_back(number);
            begin = end + 1;
        }
    }
    return order;
}

class order_verb : public verb {
public:
    const char *summary() const override { return "show or change BootOrder"; }
    void declare(CLI::App &app) override
    {
        declare_insert(*app.add_subcommand("insert", "put an option into BootOrder, out of its old place"));
        declare_remove(
            *app.add_subcommand("remove", "take an option out of BootOrder; the option itself stays"));
        declare_set(*app.add_subcommand("set", "write a whole new BootOrder"));
        app.require_subcommand(0, 1);
    }

    void run(const general_options &general) override;

private:
    enum class action { show, insert, remove, set };

    void declare_insert(CLI::App &app);
    void declare_remove(CLI::App &app);
    void declare_set(CLI::App &app);
    void declare_force(CLI::App &app) { app.add_flag("--force", force, "also options that do not exist"); }

    void require_options(firmware &machine, const std::vector<uint16_t> &named) const
    {
        for (const uint16_t number : named) {
            if (!force)
                machine.require_sound_option(number);
        }
    }

    action wanted = action::show;
    option_argument option;      // insert, remove
    position_argument position;  // insert
    std::vector<uint16_t> order; // set
    bool force = false;
};

void order_verb::declare_insert(CLI::App &app)
{
    option.declare(app, "the option")->required();
    position.declare(
        app, "position", "POSITION",
        "its place in the resulting order: 0 is first, -1 (which is also the default) last. Negative places "
        "are counted before the option is taken out: -2 is before the last for an option that is not in the "
        "order, and last for one that is");
    declare_force(app);
    app.callback([this] { wanted = action::insert; });
}

void order_verb::declare_remove(CLI::App &app)
{
    option.declare(app, "the option")->required();
    app.callback([this] { wanted = action::remove; });
}

void order_verb::declare_set(CLI::App &app)
{
    app.add_option(
           "order",
           [this](const std::vector<std::string> &lists) {
               order = order_of(lists);
               return true;
           },
           "the options in their order, separated by commas")
        ->type_name("Boot####,...")
        ->expected(1, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->required();
    declare_force(app);
    app.callback([this] { wanted = action::set; });
}

void order_verb::run(const general_options &general)
{
    firmware machine(general.folder());
    if (wanted == action::show) {
        show_order(machine, general);
        return;
    }
    const machine_lock lock(machine, general);
    changes changes(machine, general);
    if (wanted == action::set) {
        require_options(machine, order);
        say_what_is_dropped(machine, order, &changes);
        changes.make(writes_order(order));
        changes.report();
        return;
    }
    const uint16_t number = option.number.value();
    if (wanted == action::insert) {
        require_options(machine, {number});
        changes.make(writes_order(with_inserted(machine.order(), number, position.place.value_or(-1))));
    } else {
        const std::vector<uint16_t> before = machine.order();
        const std::vector<uint16_t> after = without(before, number);
        if (after == before)
            throw failure(option_name(number) + " is not in BootOrder", "'ovra order' shows what is.");
        changes.make(writes_order(after));
    }
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_order()
{
    return std::make_unique<order_verb>();
}

} // namespace tool
