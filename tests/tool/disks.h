/* SPDX-License-Identifier: MIT */
// Captured machines with their disks, and disks beside those.
#ifndef TESTS_TOOL_DISKS_H
#define TESTS_TOOL_DISKS_H

#include <algorithm>
#include <fstream>
#include <utility>

#include "tests/support/captured.h"
#include "tests/support/gpt.h"
#include "tests/support/memory_folder.h"
#include "tests/tool/support.h"

namespace tool_test {

class disks_verb : ovra::test::folders_in_memory, public Machine {
protected:
    disks_verb() { unpack("q35"); }

    // Makes the machine a captured one, with its disks.
    void unpack(const std::string &captured) const
    {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root / "var/lib/hwplat");
        ovra::test::unpack_machine(captured, root);
    }

    // A text file of sysfs.
    void put_text(const std::string &path, const std::string &text) const
    {
        std::filesystem::create_directories((root / path).parent_path());
        std::ofstream(root / path) << text << '\n';
    }

    // A disk of 32 MiB at a place in sysfs, without an image.
    void put_disk(const std::string &name, const std::string &place) const
    {
        const std::string path = place + "/block/" + name;
        put_text(path + "/size", "65536");
        put_text(path + "/queue/logical_block_size", "512");
        std::filesystem::create_symlink(".." + path.substr(3), root / "sys/block" / name);
    }

    // The same with an image of two slices.
    void put_partitioned_disk(const std::string &name, const std::string &place) const
    {
        put_disk(name, place);
        ovra::test::write_gpt(root / "dev" / name, 65536,
                              ovra::test::make_gpt(65536, {{1, 2048, 4095}, {2, 4096, 8191}}));
    }

    // The entries in what "ovra disks" says: of a slice or partition, and of the disk that has it.
    static std::pair<json, json> volume_and_disk(const json &disks, const std::string &name)
    {
        for (const json &disk : disks["disks"]) {
            for (const json &volume : disk["volumes"]) {
                if (volume["name"] == name)
                    return {volume, disk};
            }
        }
        return {nullptr, nullptr};
    }

    static json volume(const json &disks, const std::string &name)
    {
        return volume_and_disk(disks, name).first;
    }

    static json disk_of(const json &disks, const std::string &volume)
    {
        return volume_and_disk(disks, volume).second;
    }

    // As a GUID's text stands on disk.
    static std::string bytes_of_guid(std::string text)
    {
        std::erase(text, '-');
        std::string data = from_hex(text);
        std::reverse(data.begin(), data.begin() + 4);
        std::reverse(data.begin() + 4, data.begin() + 6);
        std::reverse(data.begin() + 6, data.begin() + 8);
        return data;
    }
};

} // namespace tool_test

#endif
