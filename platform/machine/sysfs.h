/* SPDX-License-Identifier: MIT */
/*
 * The only reader of a machine's sysfs. Everything is looked up below the machine's root, folder by folder.
 * No link is followed and none leads out; link() gives the target of one as text. The size of every file and
 * folder is limited here.
 *
 * Only what is absent is passed over. What cannot be read, such as a link in the place of a file, is a
 * read_failure. Contents that make no sense are no failure.
 */
#ifndef HWPLAT_MACHINE_SYSFS_H
#define HWPLAT_MACHINE_SYSFS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

class sysfs {
public:
    /* `root` is the machine's folder and outlives this. */
    explicit sysfs(int root) : folder(root) {}

    /*
     * The contents of a file without its line end. Nothing when the file is absent, not regular or longer
     * than sysfs files are. Paths here are relative to the root, such as "sys/block/sda/size".
     */
    [[nodiscard]] std::optional<std::string> text(const std::string &path) const;

    /* The number that a file contains, decimal or "0x" and hexadecimal. Nothing for any other contents. */
    [[nodiscard]] std::optional<std::uint64_t> number(const std::string &path) const;

    /* The target of a symbolic link, relative to the root. Nothing without a link, or when it leads out. */
    [[nodiscard]] std::optional<std::string> link(const std::string &path) const;

    /* The names in a folder, sorted; empty for an absent folder. Too many names are cut off. */
    [[nodiscard]] std::vector<std::string> names(const std::string &path) const;

private:
    int folder;
};

/* The number that a text is as a whole, without a sign. Nothing for any other text, or an empty one. */
std::optional<std::uint64_t> parse_number(std::string_view text, int base);

} // namespace machine

#endif
