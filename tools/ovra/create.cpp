// SPDX-License-Identifier: MIT
#include <algorithm>

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

void check_path(const std::string &what, const bytes &path, bool force)
{
    const auto error = path_error(path);
    if (error && (path.size() > UINT16_MAX || !force))
        throw failure(what + " is not a packed device path: " + *error,
                      path.size() > UINT16_MAX ? "" : "--force stores it all the same.");
}

// The variables that still name an option, which may be gone.
struct names {
    std::vector<uint16_t> order;
    std::optional<uint16_t> next;
    std::optional<uint16_t> current;

    explicit names(firmware &machine)
        : order(machine.order()), next(named_or_none(machine, &firmware::next)),
          current(named_or_none(machine, &firmware::current)), ordered(UINT16_MAX + 1)
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
            return "BootOrder";
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

class create_verb : public verb {
public:
    const char *summary() const override { return "make a boot option and put it into BootOrder"; }
    void declare(CLI::App &app) override;
    void check() override;
    void run(const general_options &general) override;

private:
    load_option option_to_make(const general_options &general, changes *changes) const;
    uint16_t number_for(firmware &machine, const names &names, changes *changes) const;

    description_argument description;
    std::optional<bytes> packed; // the path
    path_arguments path;
    optional_data_arguments optional_data;
    std::optional<uint16_t> number_given;
    position_argument position;
    bool force = false;
};

void create_verb::declare(CLI::App &app)
{
    description.declare(app)->required();
    auto *digits = add_value(app, "--path-hex", "HEX", "the packed device path, as hexadecimal digits",
                             [this](const std::string &text) {
                                 packed = parse_hex(text);
                                 if (!packed)
                                     throw usage_error("--path-hex: pairs of hexadecimal digits are needed");
                             });
    auto *devices = path.declare_devpath(app);
    auto *disk = path.disk.declare(app, "--disk", disk_help);
    digits->excludes(devices)->excludes(disk);
    devices->excludes(disk);
    path.declare_file(app)->excludes(digits);
    path.declare_verbose(app)->needs(devices);
    app.add_flag("--full", path.full, "with --disk: the path begins with the hardware that leads to the disk")
        ->needs(disk);
    optional_data.declare(app);
    add_value(app, "--number", "####", "hexadecimal number of the option; else the lowest that is not in use",
              [this](const std::string &text) { number_given = option_number(text); });
    position.declare(
        app, "--position", "N",
        "place in BootOrder: 0 is first, -1 (which is also the default) last, -2 before the last; "
        "counted before the option is taken out of its old place");
    app.add_flag("--force", force,
                 "overwrite an option that --number names, take a path that is not well-formed");
}

void create_verb::check()
{
    if (!packed && !path.device_text && !path.disk.name)
        throw usage_error("create: one of --path-hex, --devpath and --disk is required");
    path.settle_file();
}

load_option create_verb::option_to_make(const general_options &general, changes *changes) const
{
    load_option option;
    option.description = description.text.value();
    given_path given;
    if (packed) {
        given.packed = *packed;
    } else {
        device_paths paths;
        given = path.encode(paths, packs::all, general);
    }
    option.path = given.packed;
    check_path(packed ? "--path-hex" : "the path", option.path, force);
    if (!given.disk.contains("disk")) // else it has been said of the disk
        warn_of(cautions_of_number(option.path), &given.disk);
    if (!given.is_removable)
        warn_of(cautions_of_no_file(option.path), &given.disk);
    for (const auto &[name, value] : given.disk.items())
        changes->remark({}, name, value);
    option.optional_data = optional_data.read().value_or(bytes{});
    check_size(option);
    return option;
}

uint16_t create_verb::number_for(firmware &machine, const names &names, changes *changes) const
{
    if (!number_given)
        return free_number(machine, names);
    const uint16_t number = *number_given;
    const std::string name = option_name(number);
    const bool exists = machine.option_exists(number);
    if (!force && exists)
        throw failure(name + " exists",
                      "Without --number the lowest free number is taken; --force overwrites it.");
    if (const char *by = names.of(number); by && !force)
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

void create_verb::run(const general_options &general)
{
    firmware machine(general.folder());
    changes changes(machine, general);
    const load_option option = option_to_make(general, &changes);

    const machine_lock lock(machine, general);
    const names names(machine);
    const uint16_t number = number_for(machine, names, &changes);
    const std::vector<uint16_t> order = order_with(names, number, position.place);
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
        if (!general.dry_run && option_stands && !order_stands)
            reason.advise(take_back(machine, option_name(number), before));
        throw;
    }
    for (change &made : all)
        changes.record(std::move(made));
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_create()
{
    return std::make_unique<create_verb>();
}

} // namespace tool
