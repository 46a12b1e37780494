// SPDX-License-Identifier: MIT
#include "tools/command/arguments.h"

#include <algorithm>
#include <cstdio>

#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "src/base/device_name.h"
#include "src/base/whole_number.h"
#include "tools/machine/arrays.h"
#include "tools/machine/drives.h"
#include "tools/machine/files.h"
#include "tools/machine/fullform.h"
#include "tools/machine/loaders.h"
#include "tools/machine/pathnodes.h"
#include "tools/paste/pasted.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"
#include "tools/text/nodeparse.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

using texts = std::vector<std::string>;

} // namespace

CLI::Option *add_value(CLI::App &app, const char *name, const char *shown, const char *help,
                       std::function<void(const std::string &)> take)
{
    auto *option = app.add_option(
        name,
        [take = std::move(take)](const texts &values) {
            take(values.front());
            return true;
        },
        help);
    return option->type_name(shown)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

void add_example(CLI::App &app, const char *line)
{
    app.footer(std::string("Example: ") + line + "\n\n" + app.get_footer());
}

void refuse_leading_zero(const std::string &text)
{
    const size_t sign = text.starts_with('-') ? 1 : 0;
    if (text.size() > sign + 1 && text[sign] == '0' && ovra::is_ascii_digit(text[sign + 1]))
        throw usage_error(in_quotes(text) + " has a leading zero, which may mean octal: leave it out");
}

int position_of(const std::string &text)
{
    refuse_leading_zero(text);
    const auto value = ovra::whole_number<int>(text);
    if (!value)
        throw usage_error(in_quotes(text) + " is not a position: a whole number is needed");
    return *value;
}

CLI::Option *position_argument::declare(CLI::App &app, const char *name, const char *shown, const char *help)
{
    return add_value(app, name, shown, help, [this](const std::string &text) { place = position_of(text); });
}

CLI::Option *description_argument::declare(CLI::App &app)
{
    return add_value(app, "--desc", "TEXT",
                     "description, as boot menus show it; at most 127 characters (256 bytes)",
                     [this](const std::string &value) {
                         text = typed_description(value);
                         check_description(*text);
                     });
}

CLI::Option *disk_argument::declare(CLI::App &app, const char *option, const char *help)
{
    auto *named = add_value(app, option, "DISK", help, [this](const std::string &text) { name = text; });
    add_value(app, "--part", "N", "of the disk that is named, the partition that Linux gives this number",
              [this](const std::string &text) {
                  refuse_leading_zero(text);
                  part = parse_number(text);
                  if (!part || *part == 0)
                      throw usage_error("--part: " + in_quotes(text) + " is no number of a partition");
              })
        ->needs(named);
    return named;
}

chosen_disk disk_argument::find(const general_options &general) const
{
    chosen_disk disk = find_disk(name.value(), part);
    const std::string typed = *name + (part ? format(" --part %u", *part) : "");
    if (!general.json)
        fprintf(stderr, "%s\n", broken(disk.told_of(typed), 0).c_str());
    return disk;
}

CLI::Option *path_arguments::declare_devpath(CLI::App &app)
{
    return add_value(
        app, "--devpath", "TEXT",
        "the device path as text, as /PciRoot(0)/Pci(0x1F,2)/Sata(0,0,0), or as another tool prints it",
        [this](const std::string &text) {
            if (text.empty())
                throw usage_error("--devpath: a device path is needed");
            device_text = text;
        });
}

CLI::Option *path_arguments::declare_file(CLI::App &app)
{
    return add_value(
        app, "--file", "FILE",
        "the file to boot from the device, as \\EFI\\BOOT\\BOOTX64.EFI; slashes become backslashes",
        [this](const std::string &text) {
            if (text.empty())
                throw usage_error("--file: the name of a file is needed");
            file = text;
        });
}

CLI::Option *path_arguments::declare_verbose(CLI::App &app)
{
    return app.add_flag("-v,--verbose", verbose, "say which tool's text the device path was read as");
}

namespace {

path_text file_parted(const std::string &text)
{
    try {
        return part_file(text);
    } catch (const unclear_node &why) {
        throw usage_error(why.what());
    }
}

} // namespace

void path_arguments::settle_file()
{
    if (device_text && !is_device_name(*device_text)) {
        whole_text = *device_text;
        const path_text given = file_parted(whole_text);
        if (given.file && file && firmware_file(*given.file) != firmware_file(*file))
            throw usage_error("the path names a file, " + in_quotes(*given.file) + ", and --file another");
        // Further nodes or quotes would become part of the file's name.
        const bool is_bare = given.file && whole_text.ends_with(*given.file);
        if (given.file && given.file->find_first_of(is_bare ? "()\"" : "\"") != std::string::npos)
            throw usage_error("what follows the devices is not a plain file, " + in_quotes(*given.file) +
                              "; --file takes any name");
        device_text = given.device;
        if (given.file)
            file = given.file;
    }
    if (!file || firmware_file(*file) == *file)
        return;
    file = firmware_file(*file);
    fprintf(stderr, "The file is named as firmware does, %s.\n", printable(*file).c_str());
}

bytes path_arguments::pack_text(device_paths &paths, const std::optional<std::string> &with_file) const
{
    const pasted_path packed = pack_pasted(paths, device_text.value(), with_file, whole_text);
    for (const std::string &each : packed.assumed)
        warn(printable(each));
    if (verbose)
        fprintf(stderr, "The path is read as text of %s.\n", names_of_dialects(packed.by).c_str());
    for (const std::string &each : packed.decided)
        fprintf(stderr, "%s.\n", printable(each).c_str());
    return packed.packed;
}

namespace {

// The file as the partition has it. People name it by where they see it, below the mount point.
std::string on_the_partition(const std::string &file, const chosen_disk &found,
                             const general_options &general)
{
    const mounted_loaders loaders;
    const auto below = loaders.below_mount_point(found.kernel_name, file);
    if (below && !general.json)
        fprintf(stderr, "The file on %s is %s.\n", found.both_names().c_str(), printable(*below).c_str());
    if (const auto missing = loaders.missing(found.kernel_name, below.value_or(file)))
        warn("there is no file " + printable(*missing) + " now",
             "Firmware starts nothing before it is there.");
    return below.value_or(file);
}

} // namespace

// The file that was given, else the one that was named as the disk.
std::optional<std::string> path_arguments::file_of(const chosen_disk &found,
                                                   const general_options &general) const
{
    if (file)
        return on_the_partition(*file, found, general);
    if (!found.file)
        return file;
    if (!general.json)
        fprintf(stderr, "The file is named as firmware does, %s.\n", printable(*found.file).c_str());
    if (found.file_system != "vfat" && found.file_system != "msdos")
        warn("the file system of " + found.both_names() + " is " + printable(found.file_system),
             "Firmware finds a file only on FAT, unless it has a driver for others.");
    return found.file;
}

namespace {

// Puts what leads to a drive before the path on it.
void add_hardware(device_paths &paths, const drive &drive, bytes *path, std::vector<caution> *cautions)
{
    const hardware hardware;
    *path = joined(paths.encode(hardware.text_of(drive), std::nullopt), *path);
    if (const std::string doubt = hardware.doubt_of(drive); !doubt.empty())
        cautions->push_back(
            {"the firmware may not start the path: " + doubt,
             "Without --full the path is the short form, which firmware finds on any controller."});
}

} // namespace

given_path path_arguments::encode(device_paths &paths, packs what, const general_options &general) const
{
    // Names of the tree, which have no path, are left to the library.
    const bool text_names_disk =
        device_text && is_device_name(*device_text) && !device_text->starts_with(ovra::tree_folder);
    if (!disk.name && !text_names_disk)
        return {pack_text(paths, what == packs::all ? file : std::nullopt), file};
    const chosen_disk found = (disk.name ? disk : disk_argument{device_text, std::nullopt}).find(general);
    if (disk.name)
        require_not_in_an_array(found);
    given_path given;
    given.file = file_of(found, general);
    given.packed = paths.encode_disk(found.name, what == packs::all ? given.file : std::nullopt);
    // The library looks the name up once more, and disks may come and go meanwhile.
    const byte_view node = first_hard_drive(given.packed);
    if (!std::equal(node.begin(), node.end(), found.node.begin(), found.node.end()))
        throw failure("the disks changed: " + found.both_names() + " is another one now",
                      "Nothing was written. Try again.");
    given.disk = found.members();
    if (given.file != file)
        given.disk["file"] = given.file.value();
    std::vector<caution> cautions = cautions_of_disk(found, full, disk.name.has_value());
    const drive drive = drive_of(found.name);
    for (const caution &each : cautions_of_kernel(found, drive))
        cautions.push_back(each);
    for (const caution &each : cautions_of_table(found, drive))
        cautions.push_back(each);
    given.is_removable = drive.attached.is_removable;
    if (full)
        add_hardware(paths, drive, &given.packed, &cautions);
    warn_of(cautions);
    return given;
}

} // namespace tool
