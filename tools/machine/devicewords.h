/* SPDX-License-Identifier: MIT */
// Where load options lead, in a few words for people.
#ifndef OVRA_TOOLS_DEVICEWORDS_H
#define OVRA_TOOLS_DEVICEWORDS_H

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/machine/devicepaths.h"
#include "tools/machine/leading.h"

namespace tool {

class device_words {
public:
    // With the names of the slices and partitions of these drives, which were read with their media.
    explicit device_words(const std::vector<drive> &drives);

    // "sda1 \EFI\debian\shimx64.efi", "network MAC 52:54:00:12:34:56", "firmware volume"; of hardware without
    // such words its text. What leads to no partition of this machine is named as the path has it.
    std::string of(byte_view option_path);

private:
    struct named_volume {
        std::string drive;
        std::string kernel_name;
    };

    std::string of_volume(const hard_drive_place &place);
    std::string of_drive(byte_view nodes, const char *otherwise);
    std::string text_of(byte_view nodes);
    drives_by_hardware::way way_of(byte_view nodes);

    std::unordered_map<std::string, std::vector<named_volume>> volumes; // by what firmware goes by
    std::unordered_map<std::string, std::string> drives;                // Linux's names
    std::optional<drives_by_hardware> hardware;                         // once an option asked for it
    std::optional<device_paths> paths;                                  // the same
    bool is_hardware_known = true;
};

} // namespace tool

#endif
