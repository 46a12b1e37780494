/* SPDX-License-Identifier: MIT */
// What the terminal that the command writes to can show. Of a file or a pipe all can be expected.
#ifndef OVRA_TOOLS_TERMINAL_H
#define OVRA_TOOLS_TERMINAL_H

#include <cstddef>

namespace tool {

// Whether standard output shows characters beyond ASCII: on a terminal as the caller's locale says.
bool shows_utf8();

// Whether standard output shows colours: a terminal, without NO_COLOR and with a TERM other than "dumb".
bool shows_colours();

// Says how far long work is, where a person watches standard error. The line is gone at the end.
class progress {
public:
    // `unit` names what is counted; a line is written after each `often` of them, if there are many more.
    progress(size_t steps, const char *unit, size_t often);
    ~progress();
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    void step();

private:
    size_t all;
    const char *unit;
    size_t often;
    size_t done = 0;
    bool shown;
};

} // namespace tool

#endif
