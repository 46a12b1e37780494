/* SPDX-License-Identifier: MIT */
// Command lines as bash shows them to a completion, and words as bash puts them back.
#ifndef OVRA_TOOLS_BASHLINE_H
#define OVRA_TOOLS_BASHLINE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct bash_line {
    std::vector<std::string> words; // without quotes; the last is the one at the cursor, and may be empty
    std::string kept;               // the beginning of the last word that stays in the line, without quotes
    char quote = 0;                 // the quote that is open at the cursor: ' or "
};

// The line up to the cursor. `breaks` is COMP_WORDBREAKS: behind one of these that is not quoted bash has
// another word to complete. Nothing is expanded.
bash_line read_bash_line(std::string_view line, std::string_view breaks);

// What takes the place of the word at the cursor behind what is kept of it, so quoted that bash reads
// `word` and nothing else. Nothing when what is kept begins otherwise.
std::optional<std::string> bash_text(const std::string &word, const bash_line &line);

} // namespace tool

#endif
