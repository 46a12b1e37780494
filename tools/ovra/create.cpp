// SPDX-License-Identifier: MIT
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/newoption.h"
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

class create_verb : public verb {
public:
    const char *summary() const override { return "make a boot option and put it into BootOrder"; }
    void declare(CLI::App &app) override;
    void check() override;
    void run(const general_options &general) override;

private:
    given_path path_to_store(const general_options &general) const;
    load_option option_to_make(const general_options &general, changes *changes) const;

    kind_argument kind;
    description_argument description;
    std::optional<bytes> packed; // the path
    path_arguments path;
    network_arguments network;
    optional_data_arguments optional_data;
    number_argument number;
    place_arguments place;
    bool inactive = false;
    bool if_absent = false;
    bool force = false;
};

void create_verb::declare(CLI::App &app)
{
    kind.declare(app, true);
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
    auto *file = path.declare_file(app)->excludes(digits);
    network.declare(app, {digits, disk, file});
    path.declare_verbose(app)->needs(devices);
    app.add_flag("--full", path.full, "with --disk: the path begins with the hardware that leads to the disk")
        ->needs(disk);
    optional_data.declare(app);
    number.declare(app, kind);
    place.declare(app);
    app.add_flag("--inactive", inactive, "firmware does not boot it by itself");
    app.add_flag("--if-absent", if_absent,
                 "only when there is no option with this path, file and data; else say which that is");
    app.add_flag("--force", force,
                 "overwrite an option that --number names, take a path that is not well-formed");
    add_example(app, "ovra create --desc Debian --disk sda1 --file '\\EFI\\debian\\shimx64.efi'");
}

void create_verb::check()
{
    if (!packed && !path.device_text && !path.disk.name && !network.given())
        throw usage_error("create: one of --path-hex, --devpath, --disk, --uri and --mac is required");
    path.settle_file();
    // An option that is read only here would be of little use to those who boot it.
    if (const std::string why = description_obstacle(description.text.value()); !why.empty())
        throw usage_error("--desc: " + why + ": programs that use the library could not read it");
}

given_path create_verb::path_to_store(const general_options &general) const
{
    if (packed)
        return {*packed};
    device_paths paths;
    if (network.given())
        return {network.encode(path, paths, general)};
    return path.encode(paths, packs::all, general);
}

load_option create_verb::option_to_make(const general_options &general, changes *changes) const
{
    load_option option;
    option.attributes = inactive ? 0 : LOAD_OPTION_ACTIVE;
    option.description = description.text.value();
    const given_path given = path_to_store(general);
    option.path = given.packed;
    check_path(packed ? "--path-hex" : "the path", option.path, force);
    if (!given.disk.contains("disk")) // else it has been said of the disk
        warn_of(cautions_of_number(option.path));
    if (!given.is_removable)
        warn_of(cautions_of_no_file(option.path));
    warn_of(cautions_of_network(option.path));
    for (const auto &[name, value] : given.disk.items())
        changes->remark({}, name, value);
    option.optional_data = optional_data.read().value_or(bytes{});
    check_size(option);
    return option;
}

// It may be there, but not start.
void tell_of_like(firmware &machine, uint16_t number, changes *changes)
{
    const bool active = (machine.read_option(number).attributes & LOAD_OPTION_ACTIVE) != 0;
    const std::vector<uint16_t> order = machine.order();
    const bool in_order = std::find(order.begin(), order.end(), number) != order.end();
    const std::string name = machine.name_of(number);
    std::string but = active ? "" : ", but is inactive";
    if (!in_order)
        but += but.empty() ? ", but is not in BootOrder" : " and not in BootOrder";
    changes->remark(name + " is there already, with this path, file and data" + but + ".", "option", name);
    changes->remark({}, "active", active);
    changes->remark({}, "in_order", in_order);
}

void create_verb::run(const general_options &general)
{
    firmware machine(general.folder(), *kind.kind);
    changes changes(machine, general);
    const load_option option = option_to_make(general, &changes);

    const machine_lock lock(machine, general);
    const auto like = if_absent ? option_like(machine, option) : std::nullopt;
    if (like)
        tell_of_like(machine, *like, &changes);
    else
        make_option(machine, {option, number.value, place.place, force}, general, &changes);
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_create()
{
    return std::make_unique<create_verb>();
}

} // namespace tool
