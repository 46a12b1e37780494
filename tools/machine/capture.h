/* SPDX-License-Identifier: MIT */
// The one way in which the command calls libovra.
#ifndef OVRA_TOOLS_CAPTURE_H
#define OVRA_TOOLS_CAPTURE_H

#include <functional>
#include <string>

namespace tool {

struct called {
    int result = 0;
    int error = 0;        // errno after it, 0 before
    std::string messages; // the library's errors
};

// Calls `function`, which calls the library, and collects the errors that this reports meanwhile. Where the
// user asked for messages, the library's or the platform libraries', they are left alone: they then appear as
// they are written. Not to be nested.
called call_library(const std::function<int()> &function);

} // namespace tool

#endif
