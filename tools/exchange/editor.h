/* SPDX-License-Identifier: MIT */
// A text in a person's editor.
#ifndef OVRA_TOOLS_EXCHANGE_EDITOR_H
#define OVRA_TOOLS_EXCHANGE_EDITOR_H

#include <string>

namespace tool {

// A text in a temporary file of its own, which is removed at the end unless it is kept.
class edited_file {
public:
    explicit edited_file(const std::string &text);
    ~edited_file();
    edited_file(const edited_file &) = delete;
    edited_file &operator=(const edited_file &) = delete;

    // Has it edited by what VISUAL or EDITOR names; what came of it. Throws a failure when the editor cannot
    // be started or fails.
    std::string edit();

    // The file stays. A line that names it.
    std::string keep();

private:
    std::string name;
    bool stays = false;
};

} // namespace tool

#endif
