/* SPDX-License-Identifier: MIT */
// Which of the readings of a node holds.
#ifndef OVRA_TOOLS_PASTE_CHOICE_H
#define OVRA_TOOLS_PASTE_CHOICE_H

#include "tools/paste/reading.h"

namespace tool {

struct chosen_reading {
    reading read;
    dialects by = 0;     // those of the text's style that read it so
    std::string decided; // set: other dialects read it in another way
};

// Takes the reading of the dialects in which the text is written. `own` is ovra's; dialects without a reading
// of their own share it. Throws an unclear_node where the style leaves several that differ, or the one that
// holds is none.
chosen_reading choose(const std::string &node, const std::vector<reading> &readings,
                      const std::optional<bytes> &own, const style &style);

} // namespace tool

#endif
