// SPDX-License-Identifier: MIT
#include "tools/machine/newoption.h"

#include <algorithm>

#include "tools/machine/bootorder.h"
#include "tools/machine/health.h"
#include "tools/machine/named.h"
#include "tools/machine/optionnames.h"
#include "tools/machine/startable.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// The variables that still name an option, which may be gone.
struct names {
    std::vector<uint16_t> order;
    std::string in_order_named; // the variable
    std::optional<uint16_t> next;
    std::optional<uint16_t> current;

    explicit names(firmware &machine)
        : order(machine.order()), in_order_named(machine.order_name()),
          next(named_or_none(machine, &firmware::next)), current(named_or_none(machine, &firmware::current)),
          ordered(UINT16_MAX + 1)
    {
        for (const uint16_t number : order)
            ordered[number] = true;
    }

    bool in_order(uint16_t number) const { return ordered[number]; }
    // The first of them; null when none does.
    const char *of(uint16_t number) const
    {
        if (next == number)
            return "BootNext";
        if (in_order(number))
            return in_order_named.c_str();
        return current == number ? "BootCurrent" : nullptr;
    }

private:
    std::vector<bool> ordered; // by number
};

uint16_t free_number(firmware &machine, const names &names)
{
    for (unsigned number = 0; number < UINT16_MAX; ++number) {
        const auto candidate = static_cast<uint16_t>(number);
        // What names a removed option would name the new one.
        if (!names.of(candidate) && !machine.option_exists(candidate))
            return candidate;
    }
    throw failure("no option number is free", "Remove options that are not needed.");
}

std::vector<uint16_t> order_after(firmware &machine, const names &names, uint16_t number,
                                  const std::string &other)
{
    const uint16_t before = option_lookup(machine).named(other);
    std::vector<uint16_t> order = without(names.order, number);
    const auto found = std::find(order.begin(), order.end(), before);
    if (found == order.end())
        throw failure(machine.name_of(before) + " is not in " + machine.order_name(),
                      "'ovra order" + machine.kind().in_advice() + "' shows what is.");
    order.insert(found + 1, number);
    return order;
}

// An option that is overwritten keeps its place unless another one is given.
std::vector<uint16_t> order_with(firmware &machine, const names &names, uint16_t number,
                                 const order_place &place)
{
    if (place.none || (!place.position && !place.after && names.in_order(number)))
        return names.order;
    if (place.after)
        return order_after(machine, names, number, *place.after);
    return with_inserted(machine.kind(), names.order, number, place.position.value_or(-1));
}

// An option without its place in BootOrder would be half of what was asked for.
std::string take_back(firmware &machine, const std::string &name, const variable &before)
{
    if (is_damaged(before))
        return name + " was damaged, and is the new option now.";
    const bool existed = before.status == EFI_SUCCESS;
    try {
        machine.change_global(name, before.data);
    } catch (const not_changed &reason) {
        const std::string kind = machine.kind().in_advice() + ' ';
        if (!reason.done_anyway)
            return name + " stays: taking it back failed as well, " + reason.what() +
                   ".\n'ovra order insert" + kind + name + "' puts it into " + machine.order_name() +
                   ", 'ovra remove" + kind + name + "' removes it.";
    } catch (const failure &reason) {
        return "Whether " + name + " could be taken back is not known: " + reason.what();
    }
    return existed ? name + " is what it was before." : name + " is taken back: no option was made.";
}

uint16_t number_for(firmware &machine, const names &names, const new_option &made, changes *changes)
{
    if (!made.number)
        return free_number(machine, names);
    const uint16_t number = *made.number;
    const std::string name = machine.name_of(number);
    const bool exists = machine.option_exists(number);
    if (!made.force && exists)
        throw failure(name + " exists",
                      "Without --number the lowest free number is taken; --force overwrites it.");
    if (const char *by = names.of(number); by && !made.force)
        throw failure(name + " does not exist, but " + by + " still names it",
                      "The new option would be taken for the one that had this number. Without\n"
                      "--number the lowest free number is taken; --force takes this one all the same.");
    if (names.next == number)
        changes->remark("BootNext names " + name + ": the machine boots it at the next start.", "next", name);
    if (names.current == number)
        changes->remark("BootCurrent names " + name + ", for the option that was booted under this number.",
                        "current", name);
    if (names.in_order(number) && !exists)
        changes->remark(machine.order_name() + " named " + name + " already.", "ordered", name);
    return number;
}

} // namespace

void make_option(firmware &machine, const new_option &made, const general_options &general, changes *changes)
{
    const names names(machine);
    const uint16_t number = number_for(machine, names, made, changes);
    const std::vector<uint16_t> order = order_with(machine, names, number, made.place);
    const variable before = machine.read_global(machine.name_of(number));
    std::vector<change> all = {makes_option(machine.name_of(number), made.option)};
    if (order != names.order)
        all.push_back(writes_order(machine.kind(), order));
    changes->prepare(all);
    try {
        for (const change &next : all)
            changes->attempt(next);
    } catch (not_changed &reason) {
        const bool order_stands = reason.done_anyway && machine.order() == order;
        const auto option_stands = [&] {
            const variable now = machine.read_global(machine.name_of(number));
            return !general.dry_run && (now.status != before.status || now.data != before.data);
        };
        if (option_stands() && !order_stands)
            reason.advise(take_back(machine, machine.name_of(number), before));
        reason.done.clear();
        if (option_stands())
            reason.done.push_back(told(all.front()));
        if (order_stands && !general.dry_run && all.size() > 1)
            reason.done.push_back(told(all.back()));
        throw;
    }
    for (change &done : all)
        changes->record(std::move(done));
    changes->remark({}, "option", machine.name_of(number));
}

std::optional<uint16_t> option_like(firmware &machine, const load_option &option)
{
    for (const uint16_t number : in_boot_order(machine)) {
        const variable is = machine.read_global(machine.name_of(number));
        const auto parts = split(is.data);
        if (parts &&
            std::equal(parts->path.begin(), parts->path.end(), option.path.begin(), option.path.end()) &&
            std::equal(parts->optional_data.begin(), parts->optional_data.end(), option.optional_data.begin(),
                       option.optional_data.end()))
            return number;
    }
    return std::nullopt;
}

load_option changeable_option(firmware &machine, uint16_t number)
{
    machine.require_option(number);
    return machine.read_option(number);
}

void warn_of_description(const load_option &option, changes *changes)
{
    if (const std::string why = description_obstacle(option.description); !why.empty())
        changes->warn(why + ": programs that use the library cannot read the option");
}

void change_option(const firmware &machine, uint16_t number, const load_option &before,
                   const load_option &after, changes *changes)
{
    if (as_stored(after) == as_stored(before))
        return;
    check_size(after);
    if (after.description != before.description)
        warn_of_description(after, changes);
    changes->make(writes_option(machine.name_of(number), after));
    warn_of(cautions_of_mark(after.optional_data));
}

} // namespace tool
