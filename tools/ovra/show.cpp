// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <map>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/contents.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/drives.h"
#include "tools/machine/firmware.h"
#include "tools/machine/leading.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/table.h"

namespace tool {

namespace {

struct shown_option {
    std::string name;
    load_option option;
    decoded_path path;
    std::vector<std::string> disks;
    std::vector<std::string> kernel_names;      // of these
    std::vector<std::string> other_extent;      // those of them that have other blocks than the path says
    std::map<std::string, std::string> remarks; // on these
    std::optional<size_t> position;             // in BootOrder
    std::string order_name;
    std::string why_no_order; // why it cannot be read
};

// Adds the slices and partitions that a path names.
void add_volumes(const std::vector<drive> &drives, drives_by_hardware *hardware, shown_option *all)
{
    for (const led_volume &each : volumes_of(all->option.path, drives, hardware)) {
        all->disks.push_back(each.name);
        if (each.other_extent)
            all->other_extent.push_back(each.name);
        if (const std::string what = remark_on(each.other_extent, each.doubt); !what.empty())
            all->remarks[each.name] = what;
    }
    if (!all->disks.empty())
        return;
    // One that cannot be read may be it.
    for (const drive &drive : drives) {
        if (drive.error != 0)
            warn("cannot read /dev/" + printable(drive.kernel_name) + ": " + strerror(drive.error),
                 "The option may boot from it.");
    }
}

// Adds the disks that it leads to by their hardware alone, as the firmware's own options do.
void add_whole_disks(drives_by_hardware &hardware, shown_option *all)
{
    for (std::string &drive : drives_of(all->option.path, hardware)) {
        const bool has_volume =
            std::any_of(all->disks.begin(), all->disks.end(), [&drive](const std::string &volume) {
                return volume.starts_with(drive + 's') || volume.starts_with(drive + 'p');
            });
        if (!has_volume)
            all->disks.push_back(std::move(drive));
    }
}

void add_disks(shown_option *all)
{
    const parts_of_drives wanted = parts_to_follow(all->option.path);
    if (!wanted.media && !wanted.attachments)
        return;
    try {
        const one_moment of_all;
        const std::vector<drive> drives = read_drives(wanted);
        std::optional<drives_by_hardware> hardware;
        if (wanted.attachments)
            hardware.emplace(drives);
        if (wanted.media)
            add_volumes(drives, hardware ? &*hardware : nullptr, all);
        if (hardware)
            add_whole_disks(*hardware, all);
        for (const std::string &disk : all->disks)
            all->kernel_names.push_back(kernel_name_of(drives, disk));
    } catch (const failure &reason) {
        warn(printable(reason.what()), reason.advice);
        all->kernel_names.resize(all->disks.size());
    }
}

shown_option read_shown(firmware &machine, uint16_t number)
{
    machine.require_option(number);
    shown_option all;
    all.name = machine.name_of(number);
    all.option = machine.read_option(number);
    all.order_name = machine.order_name();
    try {
        const std::vector<uint16_t> order = machine.order();
        const auto found = std::find(order.begin(), order.end(), number);
        if (found != order.end())
            all.position = static_cast<size_t>(found - order.begin());
    } catch (const failure &reason) {
        all.why_no_order = reason.what();
        warn(printable(all.why_no_order), reason.advice);
    }
    device_paths paths;
    all.path = paths.decode(all.option.path);
    add_disks(&all);
    return all;
}

json to_json(const shown_option &all)
{
    json fields = {{"option", all.name}, {"position", all.position ? json(*all.position) : json(nullptr)}};
    fields.update(as_json(all.option));
    fields.update(as_json(all.path));
    fields["disks"] = all.disks;
    fields["kernel_names"] = all.kernel_names;
    fields["other_extent"] = all.other_extent;
    fields["remarks"] = all.remarks;
    return fields;
}

std::string position_text(const shown_option &all)
{
    if (!all.why_no_order.empty())
        return '(' + printable(all.why_no_order) + ')';
    return all.position ? std::to_string(*all.position) : "not in " + all.order_name;
}

std::string after_comma(const shown_option &all, const std::string &disk)
{
    const auto remark = all.remarks.find(disk);
    return remark == all.remarks.end() ? "" : ", " + remark->second;
}

std::string as_text(const shown_option &all)
{
    const load_option &option = all.option;
    table rows;
    rows.row({"Option", all.name});
    rows.row({"Description", shown_description(option.description) +
                                 (is_damaged_text(option.description) ? " (damaged text)" : "")});
    rows.row({"Attributes", attribute_text(option.attributes)});
    rows.row({"Position", position_text(all)});
    rows.row({"Path", hex(option.path) + format(" (%zu bytes)", option.path.size())});
    for (auto &row : as_rows(all.path))
        rows.row(row);
    for (size_t at = 0; at < all.disks.size(); ++at)
        rows.row({"Disk", both_names(printable(all.disks[at]), all.kernel_names.at(at)) +
                              after_comma(all, all.disks[at])});
    rows.row(
        {"Optional data", option.optional_data.empty() ? "none" : optional_data_text(option.optional_data)});
    return rows.text();
}

class show_verb : public verb {
public:
    const char *summary() const override { return "one boot option"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, false);
        option.declare(app, option_help);
        add_example(app, "ovra show Boot0003");
    }
    void check() override { option.require(); }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        const shown_option all = read_shown(machine, option.find(machine));
        if (general.json)
            print_json(to_json(all));
        else
            print(as_text(all));
    }

private:
    kind_argument kind;
    option_argument option;
};

} // namespace

std::unique_ptr<verb> make_show()
{
    return std::make_unique<show_verb>();
}

} // namespace tool
