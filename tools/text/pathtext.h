/* SPDX-License-Identifier: MIT */
// The text of a device path and of the file on it.
#ifndef OVRA_TOOLS_PATHTEXT_H
#define OVRA_TOOLS_PATHTEXT_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/text/output.h"

namespace tool {

struct path_text {
    std::string device; // may be empty
    std::optional<std::string> file;
    // What the UEFI specification calls all of it; empty where the two texts say as much.
    std::string uefi = {};
};

struct decoded_path {
    std::vector<path_text> instances;
    size_t bytes_after_end = 0; // what no text shows, here and of the paths that follow
    bool ends_plainly = true;   // what no text shows either
    std::string error;          // why it cannot be shown as text; empty if it can
    std::string messages;       // what libovra said about that

    std::vector<decoded_path> further; // the paths that follow its END node, when more than one is stored
};

// Whether the library takes a text for the name of a device of the operating system.
bool is_device_name(const std::string &text);

// A text that may end in a file, as firmware writes it: HD(...)/\EFI\a.efi, also without the
// slash, or as other programs do: HD(...)/File(\EFI\a.efi).
path_text split_file(const std::string &text);

// The name of a file with the separators of firmware.
std::string firmware_file(std::string file);

struct text_range {
    size_t begin = 0;
    size_t end = 0;
};

// Where the nodes of a text stand, split as the library splits it: a run of slashes counts as one, and one
// more at the very end leaves an empty node.
std::vector<text_range> nodes_of(const std::string &text);

// The text, with a mark below a part of it.
std::string pointer_at(const std::string &text, text_range part);

// A path's texts.
json as_json(const decoded_path &path);
void put_members(json_members &to, const decoded_path &path);

// Rows with the texts of all instances.
std::vector<std::vector<std::string>> as_rows(const decoded_path &path);

} // namespace tool

#endif
