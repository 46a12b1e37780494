#include "tools/ovra/bootorder.h"
#include "tools/ovra/changes.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/fields.h"
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

uint16_t number_for(firmware &machine, const arguments &args)
{
    if (!args.number)
        return machine.unused_option();
    if (!args.force && machine.option_exists(*args.number))
        throw failure(option_name(*args.number) + " exists",
                      "Without --number the lowest free number is taken; --force overwrites the option.");
    return *args.number;
}

} // namespace

void run_create(firmware &machine, const arguments &args)
{
    changes changes(args);
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
    const uint16_t number = number_for(machine, args);
    const std::vector<uint16_t> order = with_inserted(machine.order(), number, args.position);

    changes.make(writes_option(number, option), [&] { machine.write_option(number, option); });
    try {
        changes.make(writes_order(order), [&] { machine.insert_into_order(number, args.position); });
    } catch (failure &reason) {
        reason.advice += "\nBootOrder is as it was. 'ovra order insert " + option_name(number) +
                         "' puts the option into it, 'ovra remove " + option_name(number) +
                         "' takes it back.";
        throw;
    }
    changes.report();
}

} // namespace tool
