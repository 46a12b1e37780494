/* SPDX-License-Identifier: MIT */
// The files of the machine by its own names. Those of a folder machine stand below its folder, and links in
// it lead nowhere else.
#ifndef OVRA_TOOLS_MACHINEFILES_H
#define OVRA_TOOLS_MACHINEFILES_H

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace tool {

struct found_file {
    std::string path;                  // from the machine's root; no links and no ".." in it
    std::optional<struct stat> status; // nothing when there is no such file
};

class machine_files {
public:
    // Of the folder in HWPLAT_ROOT, else of the machine that runs the command.
    machine_files();

    bool is_live() const { return live; }

    // What a path leads to. A relative one starts at the working folder, and is refused for a folder machine.
    // Throws a failure when a folder on the way cannot be looked into, or links go in circles.
    found_file find(const std::string &path) const;

    // Where the host has the file of such a path.
    std::string on_host(const std::string &path) const { return root + path; }

    // The last name in the path that a link leads to, as sysfs names devices; nothing without the link.
    std::optional<std::string> link_name(const std::string &path) const;

    // The text of a file of at most `limit` bytes; nothing when it is absent. Throws a failure.
    std::optional<std::string> text(const std::string &path, size_t limit) const;

    // The names in a folder, sorted; none when it is absent or cannot be read.
    std::vector<std::string> names(const std::string &path) const;

private:
    std::string root; // without a slash at its end; empty: "/"
    bool live = true;
};

} // namespace tool

#endif
