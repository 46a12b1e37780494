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
#include "tools/machine/machinefiles.h"

namespace tool {

struct path_parts;

class device_words {
public:
    // With the names of these drives and of their slices and partitions; they were read with their media.
    // Without drives partitions have the names that udev knows.
    explicit device_words(const std::vector<drive> &drives);

    // "sda1 \EFI\debian\shimx64.efi", "network MAC 52:54:00:12:34:56", "firmware volume"; of hardware without
    // such words its text. A partition without a name is called by its PARTUUID.
    void put(byte_view option_path, std::string *words);

private:
    struct named_volume {
        std::string drive;
        std::string kernel_name;
    };

    void put_device(byte_view nodes, const path_parts &path, std::string *words);
    void put_volume(const hard_drive_place &place, std::string *words);
    std::string of_volume(const hard_drive_place &place);
    std::string of_drive(byte_view nodes, const char *otherwise);
    std::string text_of(byte_view nodes);
    drives_by_hardware::way way_of(byte_view nodes);
    std::optional<std::string> name_by_udev(const std::string &partuuid);

    std::unordered_map<std::string, std::vector<named_volume>> volumes; // by what firmware goes by
    bytes last_volume; // options of one system follow each other
    std::string last_words;
    std::unordered_map<std::string, std::string> drives; // Linux's names
    std::optional<drives_by_hardware> hardware;          // once an option asked for it
    std::optional<device_paths> paths;                   // the same
    bool is_hardware_known = true;
    std::optional<machine_files> files; // the same
    std::unordered_map<std::string, std::string>
        links; // of udev's by PARTUUID; their names once they were read
};

} // namespace tool

#endif
