// SPDX-License-Identifier: MIT
#include "tools/machine/findings.h"

#include <algorithm>

#include "tools/machine/drives.h"
#include "tools/machine/health.h"
#include "tools/machine/loaders.h"
#include "tools/machine/named.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// Below it Linux soon refuses to write: it keeps 5 KiB of the store free.
constexpr uint64_t nearly_full = 8192;

class look {
public:
    explicit look(firmware &looked_at) : machine(looked_at) {}

    findings run();

private:
    void add(const char *kind, std::optional<uint16_t> option, const std::string &text,
             bool can_be_fixed = false)
    {
        result.all.push_back({kind, option, text, can_be_fixed});
    }
    void look_at_order();
    void look_at_option(uint16_t number);
    void add_stale(uint16_t number, byte_view path);
    void look_at_path(uint16_t number, const load_option &option);
    void look_at_next();
    bool is_left_out(uint16_t number, const load_option &option) const;
    void look_at_store();

    firmware &machine;
    findings result;
    seen_options seen;
    present_partitions partitions;
    mounted_loaders loaders;
    std::vector<uint16_t> order;
    std::vector<bool> ordered = std::vector<bool>(UINT16_MAX + 1);
    std::optional<uint16_t> next;
    std::optional<uint16_t> current;
};

void look::look_at_order()
{
    try {
        order = machine.order();
    } catch (const damaged &reason) {
        result.order_is_damaged = true;
        add("damaged", std::nullopt, std::string(reason.what()) + ": 'ovra order set' writes a new one");
        return;
    }
    std::vector<bool> repeated(UINT16_MAX + 1);
    for (const uint16_t number : order) {
        if (!ordered[number] && !machine.option_exists(number))
            add("missing", number, "BootOrder names it, but it does not exist", true);
        if (ordered[number] && !repeated[number]) {
            add("repeated", number, "BootOrder names it more than once", true);
            repeated[number] = true;
        }
        ordered[number] = true;
    }
}

void look::look_at_path(uint16_t number, const load_option &option)
{
    if (paths_of(option.path).size() > 1)
        add("second_path", number, "it holds more than one path; firmware boots the first");
    const byte_view node = first_hard_drive(option.path);
    const auto partition = node.empty() ? std::nullopt : partitions.linux_name(node);
    const std::string file = file_in(option.path);
    if (!partition || file.empty())
        return;
    if (const auto absent = loaders.missing(*partition, file))
        add("missing_file", number, "there is no file " + *absent);
}

bool look::is_left_out(uint16_t number, const load_option &option) const
{
    constexpr uint32_t category = 0x1f00; // other than 0: not booted by itself (UEFI 2.10, 3.1.3)
    return !result.order_is_damaged && !ordered[number] && option.active() &&
           (option.attributes & (LOAD_OPTION_HIDDEN | category)) == 0;
}

void look::add_stale(uint16_t number, byte_view path)
{
    if (!says_where_its_disks_are(path)) {
        add("stale", number,
            "no disk has its partition; its path does not say where the disk was: 'ovra remove " +
                option_name(number) + "' removes it unless the disk was only pulled out");
        return;
    }
    add("stale", number, "no disk has its partition", true);
    result.to_remove.push_back(number);
}

void look::look_at_option(uint16_t number)
{
    load_option option;
    try {
        option = machine.read_option(number);
    } catch (const unreadable &reason) {
        if (reason.is_gone)
            return;
        add(reason.why == "damaged" ? "damaged" : "unreadable", number, "it cannot be read: " + reason.why);
        return;
    }
    const auto same = seen.same_as(number, option);
    if (same && number != next) {
        add("duplicate", number, "it has the path, file and data of " + option_name(*same), true);
        result.to_remove.push_back(number);
    } else if (number != current && partitions.are_gone(option.path)) {
        add_stale(number, option.path);
    } else if (is_left_out(number, option)) {
        add("unordered", number, "it is active but not in BootOrder");
    }
    look_at_path(number, option);
}

void look::look_at_next()
{
    try {
        next = machine.next();
        if (!next)
            return;
        if (!machine.option_exists(*next))
            add("missing", next, "BootNext names it, but it does not exist");
        else if (!machine.read_option(*next).active())
            add("inactive_next", next, "BootNext names it, but it is inactive");
    } catch (const unreadable &) {
        return; // said of the option
    } catch (const damaged &reason) {
        add("damaged", std::nullopt, std::string(reason.what()) + ": 'ovra next --clear' deletes it");
    }
}

void look::look_at_store()
{
    const auto room = machine.store();
    if (room && room->left < nearly_full)
        add("nearly_full", std::nullopt, "variables have only " + size_text(room->left) + " left");
}

findings look::run()
{
    look_at_order();
    look_at_next();
    current = named_or_none(machine, &firmware::current);
    std::vector<uint16_t> options = machine.options();
    if (!result.order_is_damaged)
        options = in_boot_order(machine);
    for (const uint16_t number : options)
        look_at_option(number);
    look_at_store();
    if (!partitions.doubt().empty())
        result.not_known = "which options are stale: " + partitions.doubt();
    return std::move(result);
}

} // namespace

findings look_at(firmware &machine)
{
    return look(machine).run();
}

} // namespace tool
