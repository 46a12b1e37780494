/* SPDX-License-Identifier: MIT */
/*
 * The only reader of a machine's sysfs. Everything is looked up below the machine's root, folder by folder;
 * no link is followed, so that none leads out, but link() says as text what one stands for. Whatever a file
 * or a folder holds is bounded here.
 *
 * Only what is not there is passed over. What is there and cannot be read, a link in the place of a file
 * among it, is a read_failure. Contents without sense are no failure.
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
     * Paths are relative to the root, such as "sys/block/sda/size". A text is what a file holds without its
     * line end; nothing when it is not there, is no file or is longer than sysfs files are.
     */
    [[nodiscard]] std::optional<std::string> text(const std::string &path) const;

    /* A whole file of one number, decimal or "0x" hexadecimal. Nothing when it is not that. */
    [[nodiscard]] std::optional<std::uint64_t> number(const std::string &path) const;

    /* The path that a symbolic link stands for, relative to the root; nothing without a link within the root.
     */
    [[nodiscard]] std::optional<std::string> link(const std::string &path) const;

    /* The names in a folder, sorted; empty when it is not there. Folders that are too full are cut. */
    [[nodiscard]] std::vector<std::string> names(const std::string &path) const;

private:
    int folder;
};

/* The number that a whole text is, in the given base; nothing for an empty text, signs or what follows. */
std::optional<std::uint64_t> parse_number(std::string_view text, int base);

} // namespace machine

#endif
