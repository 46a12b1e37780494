/* SPDX-License-Identifier: MIT */
// Device paths as text of any tool, packed.
#ifndef OVRA_TOOLS_PASTE_PASTED_H
#define OVRA_TOOLS_PASTE_PASTED_H

#include <optional>
#include <string>
#include <vector>

#include "tools/machine/devicepaths.h"
#include "tools/paste/dialect.h"

namespace tool {

struct pasted_path {
    bytes packed;
    dialects by = of_ovra;            // as which it was read; several, where they mean the same
    std::vector<std::string> assumed; // what the text leaves open: a sentence for each node
    std::vector<std::string> decided; // what its style decided: a sentence for each node
};

// The device path in a text, and the file at its end: a path of one instance that ends in a file is parted.
// Its end may also be a word that is no node, in a text of firmware's. Throws an unclear_node where it is not
// clear what the file is.
path_text part_file(const std::string &text);

// Packs a text, and a file at the end of its last instance. `whole` is the text as it was pasted, which tells
// the dialect. What ovra prints itself is packed as it always was. Throws a failure that points at the node
// that cannot be packed, or that says different things in different dialects.
pasted_path pack_pasted(device_paths &paths, const std::string &text, const std::optional<std::string> &file,
                        const std::string &whole);

} // namespace tool

#endif
