/* SPDX-License-Identifier: MIT */
// The text of a device path, of whichever tool, cut into its nodes and files.
#ifndef OVRA_TOOLS_PASTE_CUT_H
#define OVRA_TOOLS_PASTE_CUT_H

#include <string>
#include <vector>

#include "tools/text/nodeparse.h"
#include "tools/text/pathtext.h"

namespace tool {

struct piece {
    enum kinds : unsigned char {
        node,
        file, // a bare name that begins with a backslash, or File(...)
        word  // at the very end; firmware prints the name of a file so that has no backslash in front
    };
    kinds kind = node;
    text_range place;
    std::string text; // the node, or the name of the file

    // Of a node: what stands before its parentheses, and in them.
    std::string name() const;
    std::string arguments() const;
};

struct cut_text {
    std::vector<std::vector<piece>> instances; // at least one
    bool joined = false;                       // nodes follow each other without a slash
    bool from_root = false;                    // begins with a slash
    bool open_end = false;                     // ends in one, as where efibootmgr prints nothing for a node
    bool has_gap = false;                      // nothing stands between two slashes
};

// Why a text cannot be cut.
struct misfit : unclear_node {
    misfit(const std::string &why, text_range at, bool behind_foreign)
        : unclear_node(why), place(at), foreign(behind_foreign)
    {}

    text_range place; // from there on
    bool foreign;     // what stands before it, or there, is none of ovra's nodes
};

// Throws a misfit.
cut_text cut(const std::string &text);

// efibootmgr prints an option's data right behind the name of a bare file, as text, digits or dots. Throws an
// unclear_node where something follows the suffix of a program in a name.
void require_no_data(const std::string &name);

// Firmware puts a slash between the parts of a file in several nodes: \EFI\centos/grubx64.efi. People may
// mean a backslash by it. Throws an unclear_node where `by_firmware` does not hold and both are possible, and
// where what stands there is more than a name, or is escaped.
void split_bare_files(const std::string &text, bool by_firmware, cut_text *cut);

} // namespace tool

#endif
