#include "tools/ovra/bootorder.h"
#include "tools/ovra/changes.h"
#include "tools/ovra/devicepaths.h"
#include "tools/ovra/drives.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/fields.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

bytes given_path(const arguments &args, changes *changes)
{
    if (args.path)
        return *args.path;
    device_paths paths;
    if (args.device_text) {
        bytes path = paths.encode(*args.device_text, args.file);
        require_one_instance(path);
        return path;
    }
    return paths.encode_disk(disk_argument(*args.disk, changes), args.file, args.full);
}

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
    option.path = given_path(args, &changes);
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
