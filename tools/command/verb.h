/* SPDX-License-Identifier: MIT */
// What a verb is. Each has a file, in which it declares its options, holds their values and runs; a line of
// verbs.def names it.
#ifndef OVRA_TOOLS_VERB_H
#define OVRA_TOOLS_VERB_H

#include <memory>
#include <span>

#include "tools/machine/general.h"

namespace CLI {
class App;
}

namespace tool {

class verb {
public:
    verb() = default;
    virtual ~verb() = default;
    verb(const verb &) = delete;
    verb &operator=(const verb &) = delete;

    // What help says about it, in a line.
    [[nodiscard]] virtual const char *summary() const = 0;
    // Declares its options and positional arguments. Called when the command line has its name.
    virtual void declare(CLI::App &) {}
    // Called once all values are read. Throws a usage_error for those that do not go together.
    virtual void check() {}
    // Does it. Throws a failure.
    virtual void run(const general_options &general) = 0;
};

struct known_verb {
    const char *name;
    std::unique_ptr<verb> (*make)();
};

// All of them, in the order in which help lists them.
std::span<const known_verb> known_verbs();

} // namespace tool

#endif
