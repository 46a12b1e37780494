// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/contents.h"
#include "tools/machine/diskoptions.h"
#include "tools/machine/drives.h"
#include "tools/machine/firmware.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/table.h"

namespace tool {

namespace {

// Which options lead to the disks.
class uses {
public:
    explicit uses(const std::string &folder);

    // Nothing when the options are not known.
    using found = std::optional<std::vector<found_option>>;
    found of(const drive &drive, const volume &volume) const;
    found of(const drive &drive);
    found of_whole(const drive &drive);
    std::string why_unknown;

private:
    const drive_marks &marks(const drive &drive);

    std::optional<disk_options> options;
    std::optional<hardware> machine_hardware;
    device_paths paths;
    std::unordered_map<std::string, drive_marks> known_marks; // by the names of drives
};

uses::uses(const std::string &folder)
{
    // Disks are shown also where the firmware cannot be asked.
    try {
        firmware machine(folder);
        options.emplace(machine);
        machine_hardware.emplace();
    } catch (const failure &reason) {
        why_unknown = reason.what();
        options.reset();
    }
}

const drive_marks &uses::marks(const drive &drive)
{
    const auto [at, is_new] = known_marks.try_emplace(drive.name);
    if (is_new)
        at->second = marks_of(drive, *machine_hardware, paths);
    return at->second;
}

uses::found uses::of(const drive &drive, const volume &volume) const
{
    return options ? found(options->of_volume(hard_drive_node(drive, volume), drive.name)) : std::nullopt;
}

uses::found uses::of(const drive &drive)
{
    return options ? found(options->of_drive(marks(drive))) : std::nullopt;
}

// Those that lead to the drive and to none of the slices or partitions that have a line of their own.
uses::found uses::of_whole(const drive &drive)
{
    return options ? found(options->of_no_volume(marks(drive))) : std::nullopt;
}

std::string signature_text(uint32_t signature)
{
    return format("%08x", signature);
}

// The tree path of the function that carries a drive.
std::string controller_of(const drive &drive)
{
    std::string path = drive.path;
    const auto cut = [&path] { path.resize(std::min(path.rfind('/'), path.size())); };
    cut();
    const std::string_view above = path;
    if (above.substr(above.rfind('/') + 1).starts_with("ide@")) // a channel of it
        cut();
    return path;
}

json names_or_null(const std::optional<std::vector<found_option>> &options)
{
    return options ? option_names(boot_options, numbers_of(*options)) : json(nullptr);
}

using all_contents = std::unordered_map<std::string, drive_contents>;

json to_json(const std::vector<drive> &drives, const all_contents &contents, uses &uses)
{
    json list = json::array();
    for (const drive &drive : drives) {
        json volumes = json::array();
        for (const volume &volume : drive.volumes) {
            const auto options = uses.of(drive, volume);
            volumes.push_back(
                {{"name", volume.name},
                 {"kernel_name", volume.kernel_name},
                 {"kind", volume.is_slice ? "slice" : "partition"},
                 {"start", volume.start},
                 {"size", volume.size},
                 {"guid", volume.is_slice ? json(guid_text(volume.guid)) : json(nullptr)},
                 {"options", names_or_null(options)},
                 {"remarks", remarks_of(boot_options, options.value_or(std::vector<found_option>()))}});
        }
        const auto options = uses.of(drive);
        const drive_contents &on = contents.at(drive.name);
        list.push_back(
            {{"drive", drive.name},
             {"kernel_name", drive.kernel_name},
             {"path", drive.path},
             {"controller", controller_of(drive)},
             {"block_size", drive.block_size},
             {"blocks", drive.blocks},
             {"medium", drive.has_medium ? json(drive.medium()) : json(nullptr)},
             {"error", drive.error != 0 ? json(strerror(drive.error)) : json(nullptr)},
             {"contents", on.kind.empty() ? json(nullptr) : json(on.kind)},
             {"contents_detail", on.detail.empty() ? json(nullptr) : json(on.detail)},
             {"first_header_damaged", on.first_header_damaged},
             {"metadata", on.metadata.empty() ? json(nullptr) : json(on.metadata)},
             {"members", on.members},
             {"signature", drive.signature ? json(signature_text(*drive.signature)) : json(nullptr)},
             {"options", names_or_null(options)},
             {"volumes", std::move(volumes)}});
    }
    return {{"disks", std::move(list)}};
}

std::string identity(const volume &volume)
{
    if (volume.is_slice)
        return "GUID " + guid_text(volume.guid);
    return volume.number == 0 ? "whole disk" : "";
}

// Names of options, as many on a line as 80 columns have room for; those of which something is said stand
// alone.
std::vector<std::string> lines_of(const std::optional<std::vector<found_option>> &options)
{
    constexpr size_t most = 3;
    if (!options)
        return {"?"};
    std::vector<std::string> lines;
    size_t on_line = most;
    for (const found_option &each : *options) {
        const std::string remark = each.remark();
        if (on_line == most || !remark.empty()) {
            lines.emplace_back();
            on_line = 0;
        }
        lines.back() += (on_line == 0 ? "" : " ") + boot_options.name(each.number) +
                        (remark.empty() ? "" : ": " + remark);
        on_line = remark.empty() ? on_line + 1 : most;
    }
    return lines.empty() ? std::vector<std::string>(1) : lines;
}

std::string as_text(const std::vector<drive> &drives, const all_contents &contents, uses &uses)
{
    if (drives.empty())
        return "no disks\n";
    std::string all;
    for (const drive &drive : drives) {
        const drive_contents &on = contents.at(drive.name);
        all += drive.name + "  " + printable(drive.kernel_name) + "  " +
               size_text(drive.blocks * drive.block_size) + "  " + on.text() +
               (drive.signature ? " " + signature_text(*drive.signature) : "") + '\n';
        all += "  Controller  " + printable(controller_of(drive)) + '\n';
        all += "  Path        " + printable(drive.path) + '\n';
        if (!on.metadata.empty())
            all += "  Members     " + on.members_text() + ", metadata " + printable(on.metadata) + '\n';
        std::string label = "  Options     ";
        for (const std::string &line : lines_of(uses.of_whole(drive))) {
            if (line.empty() || line == "?")
                break;
            all += label + line + '\n';
            label.assign(label.size(), ' ');
        }
        if (drive.volumes.empty())
            continue;
        table rows;
        rows.row({"  Name", "Linux", "Start", "Blocks", "Boot options"});
        for (const volume &volume : drive.volumes) {
            const std::vector<std::string> options = lines_of(uses.of(drive, volume));
            rows.row({"  " + volume.name, printable(volume.kernel_name), std::to_string(volume.start),
                      std::to_string(volume.size), options.front()});
            for (size_t at = 1; at < options.size(); ++at)
                rows.row({"", "", "", "", options[at]});
            if (const std::string what = identity(volume); !what.empty())
                rows.below(6, what);
        }
        all += rows.text();
    }
    if (!uses.why_unknown.empty())
        all += "Which boot options use them is not known: " + printable(uses.why_unknown) + ".\n";
    return all;
}

class disks_verb : public verb {
public:
    const char *summary() const override { return "the disks, and which boot options use them"; }
    void declare(CLI::App &app) override
    {
        add_value(app, "disk", "DISK", "only this disk, or the one that has this slice, partition or file",
                  [this](const std::string &text) { wanted = text; });
        add_example(app, "ovra disks /dev/sda");
    }

    void run(const general_options &general) override
    {
        require_sysfs(general.folder());
        std::vector<drive> drives;
        all_contents contents;
        {
            const one_moment picture;
            drives = wanted ? find_drives(*wanted)
                            : read_drives({.media = of_every_drive, .attachments = of_every_drive});
            contents = read_contents(true);
        }
        if (drives.empty())
            require_devices();
        std::erase_if(drives,
                      [&](const drive &drive) { return contents.at(drive.name).is_no_disk(drive.path); });
        uses uses(general.folder());
        if (general.json)
            print_json(to_json(drives, contents, uses));
        else
            print(as_text(drives, contents, uses));
    }

private:
    std::optional<std::string> wanted;
};

} // namespace

std::unique_ptr<verb> make_disks()
{
    return std::make_unique<disks_verb>();
}

} // namespace tool
