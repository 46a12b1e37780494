/* SPDX-License-Identifier: MIT */
// Machines as text: a machine's sysfs and disks, an entry a line. docs/testing.md has the form.
#ifndef OVRA_TOOLS_LAYOUT_LAYOUT_H
#define OVRA_TOOLS_LAYOUT_LAYOUT_H

#include <filesystem>
#include <stdexcept>
#include <string>

namespace layout {

// A line that cannot be laid out, and why.
struct line_in_error : std::runtime_error {
    line_in_error(size_t number, const std::string &why) : std::runtime_error(why), line(number) {}

    size_t line; // from 1
};

// Makes the files, links and images of a text in the folder `root`, and nothing outside of it. Throws a
// line_in_error; what the lines above it say is made then.
void lay_out(const std::string &text, const std::filesystem::path &root);

} // namespace layout

#endif
