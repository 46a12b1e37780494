// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/ovra/bootorder.h"
#include "tools/ovra/changes.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/fields.h"
#include "tools/ovra/lock.h"
#include "tools/ovra/named.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

void check_path(const std::string &what, const bytes &path, bool force)
{
    const auto error = path_error(path);
    if (error && (path.size() > UINT16_MAX || !force))
        throw failure(what + " is no packed device path: " + *error,
                      path.size() > UINT16_MAX ? "" : "--force stores it all the same.");
}

// The variables that still name an option, which may be gone.
struct names {
    std::vector<uint16_t> order;
    std::optional<uint16_t> next;
    std::optional<uint16_t> current;

    explicit names(firmware &machine)
        : order(machine.order()), next(named_or_none(machine, &firmware::next)),
          current(named_or_none(machine, &firmware::current))
    {}

    bool in_order(uint16_t number) const
    {
        return std::find(order.begin(), order.end(), number) != order.end();
    }
    // The first of them; null when none does.
    const char *of(uint16_t number) const
    {
        if (next == number)
            return "BootNext";
        if (in_order(number))
            return "BootOrder";
        return current == number ? "BootCurrent" : nullptr;
    }
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

uint16_t number_for(firmware &machine, const arguments &args, const names &names, changes *changes)
{
    if (!args.number)
        return free_number(machine, names);
    const uint16_t number = *args.number;
    const std::string name = option_name(number);
    const bool exists = machine.option_exists(number);
    if (!args.force && exists)
        throw failure(name + " exists",
                      "Without --number the lowest free number is taken; --force overwrites it.");
    if (const char *by = names.of(number); by && !args.force)
        throw failure(name + " does not exist, but " + by + " still names it",
                      "The new option would be taken for the one that had this number. Without\n"
                      "--number the lowest free number is taken; --force takes this one all the same.");
    if (names.next == number)
        changes->remark("BootNext names " + name + ": the machine boots it at the next start.", "next", name);
    if (names.current == number)
        changes->remark("BootCurrent names " + name + ", for the option that was booted under this number.",
                        "current", name);
    if (names.in_order(number) && !exists)
        changes->remark("BootOrder named " + name + " already.", "ordered", name);
    return number;
}

// An option that is overwritten keeps its place unless another one is given.
std::vector<uint16_t> order_with(const names &names, uint16_t number, std::optional<int> position)
{
    if (!position && names.in_order(number))
        return names.order;
    return with_inserted(names.order, number, position.value_or(-1));
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
        if (!reason.done_anyway)
            return name + " stays: taking it back failed as well, " + reason.what() +
                   ".\n'ovra order insert " + name + "' puts it into BootOrder, 'ovra remove " + name +
                   "' removes it.";
    } catch (const failure &reason) {
        return "Whether " + name + " could be taken back is not known: " + reason.what();
    }
    return existed ? name + " is what it was before." : name + " is taken back: no option was made.";
}

} // namespace

void run_create(firmware &machine, const arguments &args)
{
    changes changes(machine, args);
    load_option option;
    option.description = *args.description;
    if (args.path) {
        option.path = *args.path;
    } else {
        device_paths paths;
        const given_path given = given_devices(paths, args, args.file);
        option.path = given.packed;
        for (const auto &[name, value] : given.disk.items())
            changes.remark({}, name, value);
    }
    check_path(args.path ? "--path-hex" : "the path", option.path, args.force);
    option.optional_data = given_optional_data(args).value_or(bytes{});
    check_size(option);

    const machine_lock lock(machine, args);
    const names names(machine);
    const uint16_t number = number_for(machine, args, names, &changes);
    const std::vector<uint16_t> order = order_with(names, number, args.position);
    const variable before = machine.read_global(option_name(number));
    std::vector<change> all = {writes_option(number, option)};
    if (order != names.order)
        all.push_back(writes_order(order));
    changes.prepare(all);
    try {
        for (const change &next : all)
            changes.attempt(next);
    } catch (not_changed &reason) {
        const bool order_stands = reason.done_anyway && machine.order() == order;
        const variable now = machine.read_global(option_name(number));
        const bool option_stands = now.status != before.status || now.data != before.data;
        if (!args.dry_run && option_stands && !order_stands)
            reason.advise(take_back(machine, option_name(number), before));
        throw;
    }
    for (change &made : all)
        changes.record(std::move(made));
    changes.report();
}

} // namespace tool
