// SPDX-License-Identifier: MIT
#include "tools/machine/removal.h"

#include <utility>

#include "tools/machine/bootorder.h"
#include "tools/machine/named.h"
#include "tools/text/numbers.h"

namespace tool {

using numbers = std::vector<uint16_t>;

removal::removal(firmware &changed, const numbers &named, const general_options &general, bool repairs)
    : machine(changed), result(changed, general), options(distinct(named)), repairs_order(repairs)
{}

void removal::remark(const std::string &text, const std::string &key, json value)
{
    result.remark(text, key, std::move(value));
}

// BootOrder without these, and repaired where that is asked for.
numbers removal::order_without(const numbers &gone) const
{
    const numbers left = without_all(order, gone);
    return repairs_order ? distinct(without_all(left, missing)) : left;
}

void removal::run()
{
    for (const uint16_t number : options) { // nothing is removed unless everything can be
        if (!machine.option_exists(number))
            throw failure("no such option: " + machine.name_of(number), "Nothing is removed. 'ovra list" +
                                                                            machine.kind().in_advice() +
                                                                            "' shows the options.");
    }
    order = machine.order();
    for (const uint16_t number : distinct(order)) {
        if (repairs_order && !machine.option_exists(number))
            missing.push_back(number);
    }
    ordered = order_without(options) != order;
    next = named_or_none(machine, &firmware::next);
    if (next && without(options, *next) == options)
        next.reset();
    take_out_of_order();
    clear_next();
    delete_options();
    write_order_after_all();
    if (next) {
        result.record(deletes("BootNext"));
        result.remark("BootNext named " + machine.name_of(*next) + ": the machine boots by BootOrder.",
                      "next", machine.name_of(*next));
    }
}

void removal::prepare()
{
    std::vector<change> all;
    for (const uint16_t number : options)
        all.push_back(deletes(machine.name_of(number)));
    if (next)
        all.push_back(deletes("BootNext"));
    result.prepare(all);
    // By itself: it is written before they give their room back.
    if (ordered)
        result.prepare({writes_order(machine.kind(), order_without(options))});
}

// Before anything is removed. Without room for it the order is left as it is: removing may make some.
void removal::take_out_of_order()
{
    try {
        prepare();
        if (ordered)
            result.attempt(writes_order(machine.kind(), order_without(options)));
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

void removal::delete_options()
{
    for (const uint16_t number : options) {
        const change change = deletes(machine.name_of(number));
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

void removal::tell_removed(failure *reason) const
{
    for (const uint16_t number : removed)
        reason->done.push_back(told(deletes(machine.name_of(number))));
}

// Those that could not be removed get their places back.
void removal::stop(not_changed reason)
{
    reason.done.clear();
    tell_removed(&reason);
    if (order_is_written) {
        try {
            result.attempt(writes_order(machine.kind(), order_without(removed)));
        } catch (const failure &second) {
            reason.done.push_back(told(writes_order(machine.kind(), order_without(options))));
            reason.advise(machine.order_name() +
                          " is without them now; writing it back failed as well: " + second.what());
        }
    }
    if (next_is_cleared && without(removed, *next) == removed) {
        try {
            result.attempt(writes("BootNext", stored(numbers{*next}), machine.name_of(*next)));
        } catch (const failure &second) {
            reason.done.push_back(told(deletes("BootNext")));
            reason.advise(std::string("BootNext is deleted; writing it back failed as well: ") +
                          second.what());
        }
    }
    if (!removed.empty())
        reason.advise("Removed before that: " + machine.kind().names(removed));
    if (const numbers rest = without_all(options, removed); !rest.empty())
        reason.advise("Not touched: " + machine.kind().names(rest));
    throw not_changed(reason);
}

void removal::write_order_after_all()
{
    if (!ordered)
        return;
    const change change = writes_order(machine.kind(), order_without(options));
    if (!order_is_written) {
        try {
            result.attempt(change);
        } catch (not_changed &reason) {
            if (reason.done_anyway || removed.empty()) {
                tell_removed(&reason);
                throw;
            }
            const bool one = options.size() == 1;
            std::string advice = reason.advice + "\nThe firmware skips entries of " + machine.order_name() +
                                 " without an option.";
            for (const uint16_t number : options)
                advice += "\n'ovra order remove" + machine.kind().in_advice() + ' ' +
                          machine.name_of(number) + "' takes it out.";
            failure left(machine.kind().names(removed) + (one ? " is" : " are") + " removed, but " +
                             machine.order_name() + " still names " + (one ? "it" : "them") +
                             (reason.no_room ? ": no room to write it" : ""),
                         advice, reason.messages);
            left.failed = reason.failed;
            tell_removed(&left);
            throw failure(left);
        }
    }
    result.record(change);
}

} // namespace tool
