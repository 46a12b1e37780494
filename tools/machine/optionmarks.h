/* SPDX-License-Identifier: MIT */
// What the other options and the disks say of one.
#ifndef OVRA_TOOLS_OPTIONMARKS_H
#define OVRA_TOOLS_OPTIONMARKS_H

#include <optional>
#include <string>

#include "tools/machine/devicewords.h"
#include "tools/machine/health.h"

namespace tool {

struct option_marks {
    std::optional<uint16_t> same = {}; // an option before it
    bool is_stale = false;
    std::string device = {}; // in words
};

class option_marker {
public:
    // The option that was booted is never called stale, and without `reads_disks` none is. A warning says
    // that the disks cannot be read.
    option_marker(std::optional<uint16_t> booted, bool reads_disks);

    // Into `*marks`, whose memory is used again.
    void put_marks(uint16_t number, const load_option &option, option_marks *marks);

private:
    std::optional<uint16_t> booted_option;
    seen_options seen;
    std::optional<present_partitions> partitions;
    std::optional<device_words> devices;
};

} // namespace tool

#endif
