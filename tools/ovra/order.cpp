// SPDX-License-Identifier: MIT
#include <algorithm>
#include <set>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/bootorder.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/table.h"

namespace tool {

namespace {

void show_order(firmware &machine, const general_options &general)
{
    const std::vector<uint16_t> order = machine.order();
    if (general.json) {
        print_json({{"order", option_names(machine.kind(), order)}});
        return;
    }
    if (order.empty()) {
        print(machine.order_name() + " is not set\n");
        return;
    }
    table rows;
    for (size_t position = 0; position < order.size(); ++position)
        rows.row({std::to_string(position), machine.name_of(order[position]),
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
        text += std::string(text.empty() ? "" : "\n") + "no longer in " + machine.order_name() + ": " +
                machine.name_of(number) + "  " + description_of(machine, number);
    }
    if (!dropped.empty())
        changes->remark(text, "dropped", option_names(machine.kind(), dropped));
}

// The names in a list separated by commas.
std::vector<std::string> names_in(const std::string &list)
{
    std::vector<std::string> names;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        names.push_back(checked_name(list.substr(begin, end - begin)));
        begin = end + 1;
    }
    return names;
}

void require_distinct(const option_kind &kind, const std::vector<uint16_t> &order)
{
    std::set<uint16_t> seen;
    for (const uint16_t number : order) {
        if (!seen.insert(number).second)
            throw usage_error(kind.name(number) + " is named twice");
    }
}

class order_verb : public verb {
public:
    const char *summary() const override { return "show or change BootOrder"; }
    void declare(CLI::App &app) override;
    void check() override;
    void run(const general_options &general) override;

private:
    enum class action { show, insert, move, first, last, remove, set, clear };

    CLI::App &add_action(CLI::App &app, const char *name, const char *help, action does);
    void declare_position(CLI::App &app, const char *help);
    void declare_force(CLI::App &app) { app.add_flag("--force", force, "also options that do not exist"); }
    void require_options(firmware &machine, const std::vector<uint16_t> &named) const;
    std::vector<uint16_t> changed_order(firmware &machine, const std::vector<uint16_t> &before) const;

    action wanted = action::show;
    kind_argument kind;
    option_argument option;     // insert, move, remove
    options_argument options;   // first, last, set
    position_argument position; // insert, move
    bool force = false;
};

CLI::App &order_verb::add_action(CLI::App &app, const char *name, const char *help, action does)
{
    CLI::App &added = *app.add_subcommand(name, help);
    added.callback([this, does] { wanted = does; });
    return added;
}

void order_verb::declare_position(CLI::App &app, const char *help)
{
    option.declare(app, option_help);
    position.declare(app, "position", "POSITION", help);
}

void order_verb::declare(CLI::App &app)
{
    kind.declare(app, true);
    CLI::App &insert =
        add_action(app, "insert", "put an option into BootOrder, out of its old place", action::insert);
    declare_position(
        insert,
        "its place in the resulting order: 0 is first, -1 (which is also the default) last. Negative places "
        "are counted before the option is taken out: -2 is before the last for an option that is not in the "
        "order, and last for one that is");
    declare_force(insert);
    CLI::App &remove =
        add_action(app, "remove", "take an option out of BootOrder; the option itself stays", action::remove);
    option.declare(remove, option_help);
    CLI::App &set = add_action(app, "set", "write a whole new BootOrder", action::set);
    auto *list = set.add_option(
        "order",
        [this](const std::vector<std::string> &lists) {
            for (const std::string &each : lists) {
                const auto names = names_in(each);
                options.names.insert(options.names.end(), names.begin(), names.end());
            }
            return true;
        },
        "the options in their order, separated by commas or blanks");
    list->type_name("OPTION,...")->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    list->required();
    declare_force(set);
    declare_position(add_action(app, "move", "change the place of an option of BootOrder", action::move),
                     "its place in the resulting order: 0 is first, -1 last, -2 before the last");
    options.declare(add_action(app, "first", "put options first in BootOrder", action::first), option_help);
    options.declare(add_action(app, "last", "put options last in BootOrder", action::last), option_help);
    add_action(app, "clear", "delete BootOrder; the options themselves stay", action::clear);
    app.require_subcommand(0, 1);
    add_example(app, "ovra order first Debian");
}

void order_verb::check()
{
    if (wanted == action::insert || wanted == action::move || wanted == action::remove)
        option.require();
    if (wanted == action::first || wanted == action::last)
        options.require();
    if (wanted == action::move && !position.place)
        throw usage_error("position is required");
}

void order_verb::require_options(firmware &machine, const std::vector<uint16_t> &named) const
{
    for (const uint16_t number : named) {
        if (!force)
            machine.require_sound_option(number);
    }
}

std::vector<uint16_t> order_verb::changed_order(firmware &machine, const std::vector<uint16_t> &before) const
{
    if (wanted == action::first || wanted == action::last) {
        const std::vector<uint16_t> named = distinct(options.find(machine));
        require_options(machine, named);
        std::vector<uint16_t> order = without_all(before, named);
        order.insert(wanted == action::first ? order.begin() : order.end(), named.begin(), named.end());
        return order;
    }
    const uint16_t number = option.find(machine);
    if (wanted == action::insert) {
        require_options(machine, {number});
        return with_inserted(machine.kind(), before, number, position.place.value_or(-1));
    }
    const std::vector<uint16_t> after = without(before, number);
    if (after == before)
        throw failure(machine.name_of(number) + " is not in " + machine.order_name(),
                      "'ovra order" + machine.kind().in_advice() + "' shows what is.");
    return wanted == action::remove ? after
                                    : with_inserted(machine.kind(), after, number, position.place.value());
}

void order_verb::run(const general_options &general)
{
    firmware machine(general.folder(), *kind.kind);
    if (wanted == action::show) {
        show_order(machine, general);
        return;
    }
    const machine_lock lock(machine, general);
    changes changes(machine, general);
    if (wanted == action::clear) {
        if (machine.exists_global(machine.order_name()))
            changes.make(deletes(machine.order_name()));
    } else if (wanted == action::set) {
        const std::vector<uint16_t> order = options.find(machine);
        require_distinct(machine.kind(), order);
        require_options(machine, order);
        say_what_is_dropped(machine, order, &changes);
        changes.make(writes_order(machine.kind(), order));
    } else {
        const std::vector<uint16_t> before = machine.order();
        const std::vector<uint16_t> after = changed_order(machine, before);
        if (after != before || wanted == action::insert)
            changes.make(writes_order(machine.kind(), after));
    }
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_order()
{
    return std::make_unique<order_verb>();
}

} // namespace tool
