/* SPDX-License-Identifier: MIT */
/*
 * Machines as text: each file of tests/machines is a machine's sysfs and disks, and what must be shown of
 * them. docs/testing.md has the form. For programs linked with the target `machine_texts`.
 */
#ifndef TESTS_SUPPORT_MACHINE_TEXT_H
#define TESTS_SUPPORT_MACHINE_TEXT_H

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ovra::test {

struct machine_text {
    std::string name; /* of the file, without its ending */
    std::filesystem::path file;
    std::string entries; /* the lines before the first section */
    std::map<std::string, std::string>
        expected; /* sections by name: "disks", "tree", "short", "full", "firmware" */
};

/* All of tests/machines, by name. They live as long as the program. */
const std::vector<machine_text> &machine_texts();

/* Makes the files, links and images in the folder `root`. Throws std::runtime_error at a line in error. */
void lay_out(const machine_text &machine, const std::filesystem::path &root);

/* The lines of a section, as words. */
std::vector<std::vector<std::string>> words_of_lines(const std::string &section);

} // namespace ovra::test

#endif
