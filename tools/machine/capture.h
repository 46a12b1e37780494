/* SPDX-License-Identifier: MIT */
// What libovra says during a call, kept until it is known whether the call failed.
#ifndef OVRA_TOOLS_CAPTURE_H
#define OVRA_TOOLS_CAPTURE_H

#include <string>

namespace tool {

// Collects the library's errors while it exists, one at a time in a thread. Where the user asked for
// messages, the library's or the platform libraries', they are left alone: they then appear as they are
// written.
class error_capture {
public:
    error_capture();
    ~error_capture();
    error_capture(const error_capture &) = delete;
    error_capture &operator=(const error_capture &) = delete;

    std::string errors;
};

} // namespace tool

#endif
