// SPDX-License-Identifier: MIT
#include "tools/exchange/start.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <unistd.h>
#include <vector>

#include "tools/machine/changes.h"
#include "tools/machine/drives.h"
#include "tools/machine/leading.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

struct boot_candidate {
    uint16_t number = 0;
    bool by_next = false;
    std::string passed_over; // why; empty for the one that starts
};

// Whether this machine has a partition to which the path leads.
bool leads_to_a_partition(byte_view path)
{
    const parts_of_drives wanted = parts_to_follow(path);
    const std::vector<drive> drives = read_drives(wanted);
    std::optional<drives_by_hardware> hardware;
    if (wanted.attachments)
        hardware.emplace(drives);
    const std::vector<led_volume> found = volumes_of(path, drives, hardware ? &*hardware : nullptr);
    return std::any_of(found.begin(), found.end(), [](const led_volume &volume) {
        return volume.doubt == hardware_doubt::none || volume.doubt == hardware_doubt::unknown;
    });
}

// Firmware looks for the partition of a path; without it the option starts nothing. An option of another kind
// is taken to start. What is damaged starts nothing.
std::string why_passed_over(firmware &machine, const boot_candidate &tried)
{
    if (!machine.option_exists(tried.number))
        return "there is no such option";
    const variable is = machine.read_global(boot_options.name(tried.number));
    const auto parts = split(is.data);
    if (is.status != EFI_SUCCESS || !parts)
        return "it is damaged";
    if (!tried.by_next && (parts->attributes & LOAD_OPTION_ACTIVE) == 0)
        return "it is inactive";
    if (!first_hard_drive(parts->path).empty() && !leads_to_a_partition(parts->path))
        return "its partition is on none of the machine's disks";
    return "";
}

std::vector<boot_candidate> tried_options(firmware &machine)
{
    std::vector<boot_candidate> tried;
    const auto starts = [&](uint16_t number, bool by_next) {
        boot_candidate next = {number, by_next, {}};
        next.passed_over = why_passed_over(machine, next);
        tried.push_back(next);
        return next.passed_over.empty();
    };
    try {
        const auto next = machine.next();
        if (next && starts(*next, true))
            return tried;
    } catch (const damaged &) { // as without it
    }
    for (const uint16_t number : machine.order()) {
        if (starts(number, false))
            return tried;
    }
    return tried;
}

std::string told(const std::vector<boot_candidate> &tried)
{
    std::string text;
    for (const boot_candidate &each : tried)
        text += (each.by_next ? "BootNext   " : "BootOrder  ") + boot_options.name(each.number) + "  " +
                (each.passed_over.empty() ? "starts" : each.passed_over) + '\n';
    return text;
}

json json_of(const std::vector<boot_candidate> &tried)
{
    json list = json::array();
    for (const boot_candidate &each : tried)
        list.push_back({{"option", boot_options.name(each.number)},
                        {"by", each.by_next ? "BootNext" : "BootOrder"},
                        {"passed_over", each.passed_over.empty() ? json(nullptr) : json(each.passed_over)}});
    return list;
}

// The model of a machine in a folder chooses without a look at its disks: where it would take another option,
// BootNext tells it which.
class start {
public:
    start(firmware &started, std::optional<uint16_t> option) : machine(started), chosen(option)
    {
        if (chosen && machine.booted_next() != chosen)
            next = stored(std::vector{*chosen});
    }

    void check() const
    {
        firmware::room_taken planned;
        if (!next.empty())
            machine.check_change("BootNext", next, &planned);
        machine.check_reset();
    }

    void play() const
    {
        check();
        if (!next.empty())
            machine.change_global("BootNext", next);
        machine.reset(EFI_RESET_COLD);
        // Only the firmware changes this variable, and no request can.
        const std::string file =
            machine.variables_folder() + "/BootCurrent-" + guid_text(ovra::global_variable_guid);
        if (!chosen && unlink(file.c_str()) != 0 && errno != ENOENT)
            throw failure("cannot delete " + printable(file) + ": " + strerror(errno));
    }

private:
    firmware &machine;
    std::optional<uint16_t> chosen;
    bytes next; // none where the machine chooses so by itself
};

} // namespace

void play_start(firmware &machine, const general_options &general)
{
    const std::vector<boot_candidate> tried = tried_options(machine);
    const bool any = !tried.empty() && tried.back().passed_over.empty();
    const std::optional<uint16_t> chosen = any ? std::optional(tried.back().number) : std::nullopt;
    const start next(machine, chosen);
    changes report(machine, general);
    const std::string what = chosen ? boot_options.name(*chosen) : "no option";
    report.make(
        {"start", "started", what, {{"option", chosen ? json(what) : json(nullptr)}}, {}, {}},
        [&] { next.play(); }, [&] { next.check(); });
    if (general.json)
        report.remark({}, "tried", json_of(tried));
    else
        print(told(tried));
    report.report();
}

} // namespace tool
