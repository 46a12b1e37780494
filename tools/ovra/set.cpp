// SPDX-License-Identifier: MIT
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/machine/changes.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/lock.h"
#include "tools/machine/pathnodes.h"
#include "tools/ovra/arguments.h"
#include "tools/ovra/verb.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// The library cuts long descriptions and finds optional data by a 16-bit offset: what it returned is written
// back only if it is what the variable holds.
void require_kept(uint16_t number, const variable &stored_option, const load_option &read,
                  bool keeps_description, bool keeps_optional_data)
{
    const std::string cannot = "cannot change " + option_name(number) + ": ";
    const auto parts = split(stored_option.data);
    if (!parts)
        throw failure(cannot + "it is damaged");
    const auto differs = [](byte_view is, const bytes &returned) {
        return !std::equal(is.begin(), is.end(), returned.begin(), returned.end());
    };
    if (keeps_description) {
        const auto text = to_ucs2(read.description);
        if (!text || differs(parts->description, stored(*text)))
            throw failure(cannot + "its description would not stay as it is",
                          "It is longer than can be read back, or has characters that are no text. Give\n"
                          "--desc as well.");
    }
    if (differs(parts->path, read.path))
        throw failure(cannot + "its path would not stay as it is");
    if (keeps_optional_data && differs(parts->optional_data, read.optional_data))
        throw failure(cannot + "its optional data would not stay as it is",
                      "It begins further in than can be read back. Give the optional data as well.");
}

class set_verb : public verb {
public:
    const char *summary() const override { return "change fields of a boot option"; }
    void declare(CLI::App &app) override;
    void check() override;
    void run(const general_options &general) override;

private:
    bool changes_path() const { return path.device_text || path.disk.name || path.file; }
    bytes changed_path(bytes before, const general_options &general, changes *changes) const;

    option_argument option;
    description_argument description;
    path_arguments path;
    std::optional<uint32_t> attributes;
    std::optional<bool> active;
    optional_data_arguments optional_data;
    bool no_optional_data = false;
};

void set_verb::declare(CLI::App &app)
{
    option.declare(app, option_help);
    description.declare(app);
    auto *devices = path.declare_devpath(app);
    path.declare_verbose(app)->needs(devices);
    auto *disk = path.disk.declare(app, "--disk", disk_help)->excludes(devices);
    app.add_flag("--full", path.full, "with --disk: the path begins with the hardware that leads to the disk")
        ->needs(disk);
    path.declare_file(app);
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
    optional_data.declare(app);
    app.add_flag("--no-optdata", no_optional_data, "remove the optional data")
        ->excludes(app.get_option("--optdata-text"))
        ->excludes(app.get_option("--optdata-file"));
}

void set_verb::check()
{
    option.require();
    if (!description.text && !changes_path() && !attributes && !active && !optional_data.given() &&
        !no_optional_data)
        throw usage_error("set: nothing to change is given");
    path.settle_file();
}

// Text does not carry all of a path: only what is new goes through it.
bytes set_verb::changed_path(bytes before, const general_options &general, changes *changes) const
{
    device_paths paths;
    std::optional<std::string> file = path.file;
    if (path.disk.name || (path.device_text && !path.device_text->empty())) { // empty: it was all a file
        const given_path devices = path.encode(paths, packs::devices, general);
        require_devices(devices.packed);
        before = with_devices(before, devices.packed);
        file = devices.file;
        for (const auto &[name, value] : devices.disk.items())
            changes->remark({}, name, value);
    }
    if (file)
        before = with_file(before, paths.encode("", file));
    return before;
}

void set_verb::run(const general_options &general)
{
    firmware machine(general.folder());
    const std::optional<bytes> data = no_optional_data ? bytes{} : optional_data.read();
    const machine_lock lock(machine, general);
    const uint16_t number = option.find(machine);
    machine.require_option(number);
    load_option changed = machine.read_option(number);
    const variable before = machine.read_global(option_name(number));
    require_kept(number, before, changed, !description.text, !data);

    if (description.text)
        changed.description = *description.text;
    if (attributes)
        changed.attributes = *attributes;
    if (active)
        changed.attributes =
            *active ? changed.attributes | LOAD_OPTION_ACTIVE : changed.attributes & ~LOAD_OPTION_ACTIVE;
    if (data)
        changed.optional_data = *data;
    changes changes(machine, general);
    if (changes_path())
        changed.path = changed_path(changed.path, general, &changes);
    check_size(changed);

    if (as_stored(changed) != before.data)
        changes.make(writes_option(number, changed));
    changes.report();
}

} // namespace

std::unique_ptr<verb> make_set()
{
    return std::make_unique<set_verb>();
}

} // namespace tool
