// SPDX-License-Identifier: MIT
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/drives.h"
#include "tools/machine/lock.h"
#include "tools/machine/networkpath.h"
#include "tools/machine/newoption.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/startable.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// More text behind that of an option, which is UCS-2 or ASCII; a terminator stays behind it.
bytes appended(const bytes &before, const std::string &more)
{
    if (before.empty())
        return stored(to_ucs2(more).value());
    if (!tool::as_text(before))
        throw failure("the optional data is no text that more can be appended to",
                      "--optdata-text or --optdata-file gives all of it.");
    const bool is_ucs2 = before.size() % 2 == 0 && before[1] == 0;
    bytes added = is_ucs2 ? stored(to_ucs2(more).value()) : bytes(more.begin(), more.end());
    const size_t unit = is_ucs2 ? 2 : 1;
    const bool terminated = std::all_of(before.end() - static_cast<ptrdiff_t>(unit), before.end(),
                                        [](uint8_t byte) { return byte == 0; });
    if (is_ucs2)
        added.resize(added.size() - unit); // its terminator: that of the old text stays
    else if (std::any_of(added.begin(), added.end(), [](uint8_t byte) { return byte >= 0x80; }))
        throw failure("the optional data is ASCII, and what is to be appended is not");
    bytes all = before;
    all.insert(all.end() - static_cast<ptrdiff_t>(terminated ? unit : 0), added.begin(), added.end());
    return all;
}

class set_verb : public verb {
public:
    const char *summary() const override { return "change fields of a boot option"; }
    void declare(CLI::App &app) override;
    void check() override;
    void run(const general_options &general) override;

private:
    bool changes_path() const
    {
        return path.device_text || path.disk.name || path.file || network.given() || other_disk.name;
    }
    void declare_data(CLI::App &app);
    bytes changed_path(bytes before, const general_options &general, changes *changes) const;

    kind_argument kind;
    option_argument option;
    description_argument description;
    path_arguments path;
    network_arguments network;
    disk_argument other_disk;
    std::optional<std::string> more_data;
    std::optional<uint32_t> attributes;
    std::optional<bool> active;
    optional_data_arguments optional_data;
    bool no_optional_data = false;
};

void set_verb::declare(CLI::App &app)
{
    kind.declare(app, true);
    option.declare(app, option_help);
    description.declare(app);
    auto *devices = path.declare_devpath(app);
    path.declare_verbose(app)->needs(devices);
    auto *disk = path.disk.declare(app, "--disk", disk_help)->excludes(devices);
    app.add_flag("--full", path.full, "with --disk: the path begins with the hardware that leads to the disk")
        ->needs(disk);
    auto *file = path.declare_file(app);
    network.declare(app, {disk, file});
    add_value(app, "--replace-disk", "DISK", "put this partition in the place of the one in the path",
              [this](const std::string &text) { other_disk.name = text; })
        ->excludes(devices)
        ->excludes(disk)
        ->excludes(app.get_option("--mac"))
        ->excludes(app.get_option("--uri"));
    auto *number = add_value(app, "--attr", "N", "attributes: the whole 32-bit number, as 0x1",
                             [this](const std::string &text) {
                                 refuse_leading_zero(text);
                                 attributes = parse_number(text);
                                 if (!attributes)
                                     throw usage_error("--attr: " + in_quotes(text) + " is no 32-bit number");
                             });
    auto *yes = app.add_flag_callback(
        "--active", [this] { active = true; }, "make it active");
    auto *no = app.add_flag_callback(
        "--inactive", [this] { active = false; }, "make it inactive");
    number->excludes(yes)->excludes(no);
    yes->excludes(no);
    declare_data(app);
    add_example(app, "ovra set Debian --append-optdata ' quiet'");
}

void set_verb::declare_data(CLI::App &app)
{
    optional_data.declare(app);
    auto *none = app.add_flag("--no-optdata", no_optional_data, "remove the optional data");
    auto *more = add_value(app, "--append-optdata", "TEXT", "put TEXT behind the text in the optional data",
                           [this](const std::string &text) {
                               if (!to_ucs2(text))
                                   throw usage_error("--append-optdata: " + in_quotes(text) +
                                                     " is no UTF-8 text of characters up to U+FFFF");
                               more_data = text;
                           });
    more->excludes(none);
    for (const char *all : {"--optdata-text", "--optdata-file", "--optdata-ascii"}) {
        none->excludes(app.get_option(all));
        more->excludes(app.get_option(all));
    }
}

void set_verb::check()
{
    option.require();
    if (!description.text && !changes_path() && !attributes && !active && !optional_data.given() &&
        !no_optional_data && !more_data)
        throw usage_error("set: nothing to change is given");
    path.settle_file();
}

// Text does not carry all of a path: only what is new goes through it.
bytes set_verb::changed_path(bytes before, const general_options &general, changes *changes) const
{
    device_paths paths;
    if (network.given())
        return network.encode(path, paths, general);
    if (other_disk.name) {
        const chosen_disk found = other_disk.find(general);
        warn_of(cautions_of_disk(found, false, false));
        warn_of(cautions_of_table(found, drive_of(found.name)));
        const json document = found.members();
        for (const auto &[name, value] : document.items())
            changes->remark({}, name, value);
        before = with_hard_drive(before, found.node);
    }
    std::optional<std::string> file = path.file;
    if (path.disk.name || (path.device_text && !path.device_text->empty())) { // empty: it was all a file
        const given_path devices = path.encode(paths, packs::devices, general);
        require_devices(devices.packed);
        before = with_devices(before, devices.packed);
        file = devices.file;
        for (const auto &[name, value] : devices.disk.items())
            changes->remark({}, name, value);
    }
    if (file && has_uri(before))
        throw failure("the option boots what a URI names, which has no file",
                      "--uri names another; --disk or --devpath beside --file boots from a disk.");
    if (file)
        before = with_file(before, paths.encode("", file));
    return before;
}

void set_verb::run(const general_options &general)
{
    firmware machine(general.folder(), *kind.kind);
    const std::optional<bytes> data = no_optional_data ? bytes{} : optional_data.read();
    const machine_lock lock(machine, general);
    const uint16_t number = option.find(machine);
    const load_option before = changeable_option(machine, number);
    load_option changed = before;
    if (description.text)
        changed.description = *description.text;
    if (attributes)
        changed.attributes = *attributes;
    if (active)
        changed.attributes =
            *active ? changed.attributes | LOAD_OPTION_ACTIVE : changed.attributes & ~LOAD_OPTION_ACTIVE;
    if (data)
        changed.optional_data = *data;
    if (more_data)
        changed.optional_data = appended(changed.optional_data, *more_data);
    changes changes(machine, general);
    if (changes_path())
        changed.path = changed_path(changed.path, general, &changes);
    change_option(machine, number, before, changed, &changes);
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_set()
{
    return std::make_unique<set_verb>();
}

} // namespace tool
