// SPDX-License-Identifier: MIT
#include "tools/machine/optionmarks.h"

#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace tool {

option_marker::option_marker(std::optional<uint16_t> booted, bool reads_disks) : booted_option(booted)
{
    std::vector<drive> drives;
    try {
        if (reads_disks)
            drives = partitions.emplace().drives();
    } catch (const failure &reason) {
        warn(printable(reason.what()), reason.advice); // the options are worth showing without the disks
    }
    devices.emplace(drives);
}

void option_marker::put_marks(uint16_t number, const load_option &option, option_marks *marks)
{
    marks->same = seen.same_as(number, option);
    marks->is_stale = partitions && number != booted_option && partitions->are_gone(option.path);
    devices->put(option.path, &marks->device);
}

} // namespace tool
