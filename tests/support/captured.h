/* SPDX-License-Identifier: MIT */
/* The captured machines of tests/data/machines, for programs linked with the target `captured`. */
#ifndef TESTS_SUPPORT_CAPTURED_H
#define TESTS_SUPPORT_CAPTURED_H

#include <filesystem>
#include <string>

namespace ovra::test {

/*
 * Puts a captured machine ("q35" or "pc"), or only what it has below `part`, into the folder `root` as root's
 * tar does: links are links, files have the modes and times of the archive, disks keep their holes, and what
 * is there already is replaced.
 */
void unpack_machine(const std::string &captured, const std::filesystem::path &root, const char *part = "");

} // namespace ovra::test

#endif
