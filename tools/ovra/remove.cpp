// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/machine/bootorder.h"
#include "tools/machine/changes.h"
#include "tools/machine/health.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/ovra/arguments.h"
#include "tools/ovra/verb.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

using numbers = std::vector<uint16_t>;

// One removal of several options. BootOrder and BootNext are changed first: while they name an option that is
// gone, a new one could come to stand in its place.
class removal {
public:
    removal(firmware &changed, const numbers &named, const general_options &general)
        : machine(changed), result(changed, general), options(distinct(named))
    {}

    void run();

private:
    void prepare();
    void take_out_of_order();
    void clear_next();
    void remove_options();
    void write_order_after_all();
    [[noreturn]] void stop(not_changed reason);

    firmware &machine;
    changes result;
    numbers options;
    numbers removed;
    numbers order;
    std::optional<uint16_t> next; // one of them that BootNext names
    bool next_is_cleared = false;
    bool ordered = false; // BootOrder names some of them
    bool order_is_written = false;
};

void removal::run()
{
    for (const uint16_t number : options) { // nothing is removed unless everything can be
        if (!machine.option_exists(number))
            throw failure("no such option: " + option_name(number),
                          "Nothing is removed. 'ovra list' shows the options.");
    }
    order = machine.order();
    ordered = without_all(order, options) != order;
    next = named_or_none(machine, &firmware::next);
    if (next && without(options, *next) == options)
        next.reset();
    take_out_of_order();
    clear_next();
    remove_options();
    write_order_after_all();
    if (next) {
        result.record(deletes("BootNext"));
        result.remark("BootNext named " + option_name(*next) + ": the machine boots by BootOrder.", "next",
                      option_name(*next));
    }
    result.report();
}

void removal::prepare()
{
    std::vector<change> all;
    for (const uint16_t number : options)
        all.push_back(deletes(option_name(number)));
    if (next)
        all.push_back(deletes("BootNext"));
    result.prepare(all);
    // By itself: it is written before they give their room back.
    if (ordered)
        result.prepare({writes_order(without_all(order, options))});
}

// Before anything is removed. Without room for it the order is left as it is: removing may make some.
void removal::take_out_of_order()
{
    try {
        prepare();
        if (ordered)
            result.attempt(writes_order(without_all(order, options)));
        order_is_written = ordered;
    } catch (not_changed &reason) {
        if (reason.no_room)
            return;
        reason.advise(reason.done_anyway ? "The options themselves are still there: remove them again."
                                         : "Nothing is removed.");
        throw;
    }
}

void removal::clear_next()
{
    if (!next)
        return;
    try {
        result.attempt(deletes("BootNext"));
        next_is_cleared = true;
    } catch (const not_changed &reason) {
        stop(reason);
    }
}

void removal::remove_options()
{
    for (const uint16_t number : options) {
        const change change = deletes(option_name(number));
        try {
            result.attempt(change);
        } catch (const not_changed &reason) {
            if (reason.done_anyway)
                removed.push_back(number);
            stop(reason);
        }
        removed.push_back(number);
        result.record(change);
    }
}

// Those that could not be removed get their places back.
void removal::stop(not_changed reason)
{
    if (order_is_written) {
        try {
            result.attempt(writes_order(without_all(order, removed)));
        } catch (const failure &second) {
            reason.advise(std::string("BootOrder is without them now; writing it back failed as well: ") +
                          second.what());
        }
    }
    if (next_is_cleared && without(removed, *next) == removed) {
        try {
            result.attempt(writes("BootNext", stored(numbers{*next}), option_name(*next)));
        } catch (const failure &second) {
            reason.advise(std::string("BootNext is deleted; writing it back failed as well: ") +
                          second.what());
        }
    }
    if (!removed.empty())
        reason.advise("Removed before that: " + names_of(removed));
    if (const numbers rest = without_all(options, removed); !rest.empty())
        reason.advise("Not touched: " + names_of(rest));
    throw not_changed(reason);
}

void removal::write_order_after_all()
{
    if (!ordered)
        return;
    const change change = writes_order(without_all(order, options));
    if (!order_is_written) {
        try {
            result.attempt(change);
        } catch (not_changed &reason) {
            if (reason.done_anyway)
                throw;
            const bool one = options.size() == 1;
            std::string advice =
                reason.advice + "\nThe firmware skips entries of BootOrder without an option.";
            for (const uint16_t number : options)
                advice += "\n'ovra order remove " + option_name(number) + "' takes it out.";
            throw failure(names_of(removed) + (one ? " is" : " are") +
                              " removed, but BootOrder still names " + (one ? "it" : "them") +
                              (reason.no_room ? ": no room to write it" : ""),
                          advice, reason.messages);
        }
    }
    result.record(change);
}

class remove_verb : public verb {
public:
    const char *summary() const override { return "remove boot options, also from BootOrder"; }
    void declare(CLI::App &app) override
    {
        options.declare(app, option_help);
        app.add_flag("--stale", stale, "those whose partitions are on none of this machine's disks");
        app.add_flag("--duplicates", duplicates,
                     "those with the path, file, data and attributes of an option before them in boot order");
        add_example(app, "ovra remove Boot0003 'Windows Boot Manager'");
    }

    void check() override
    {
        if (!stale && !duplicates)
            options.require();
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const machine_lock lock(machine, general);
        removal(machine, chosen(machine), general).run();
    }

private:
    numbers chosen(firmware &machine) const
    {
        numbers all = options.find(machine);
        const auto add = [&all](const numbers &more) { all.insert(all.end(), more.begin(), more.end()); };
        if (stale)
            add(stale_options(machine));
        if (duplicates)
            add(duplicate_options(machine));
        return all;
    }

    options_argument options;
    bool stale = false;
    bool duplicates = false;
};

} // namespace

std::unique_ptr<verb> make_remove()
{
    return std::make_unique<remove_verb>();
}

} // namespace tool
