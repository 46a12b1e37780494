/* SPDX-License-Identifier: MIT */
// How a verb ends early: an exception that main() turns into the messages and the exit status.
#ifndef OVRA_TOOLS_FAILURE_H
#define OVRA_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace tool {

// What was asked for could not be done: exit status 1.
struct failure : std::runtime_error {
    explicit failure(const std::string &what, std::string what_to_do = {}, std::string from_library = {})
        : std::runtime_error(what), advice(std::move(what_to_do)), messages(std::move(from_library))
    {}

    // Adds to what to do about it; nothing when there is nothing to add.
    void advise(const std::string &line)
    {
        if (!line.empty())
            advice += (advice.empty() ? "" : "\n") + line;
    }

    std::string advice;   // what to do about it; lines
    std::string messages; // what libovra wrote meanwhile; lines
};

// A variable is there but cannot be made sense of; much can still be done.
struct damaged : failure {
    using failure::failure;
};

// A boot option is there but cannot be read.
struct unreadable : failure {
    unreadable(const std::string &what, std::string what_to_do, std::string from_library, std::string reason)
        : failure(what, std::move(what_to_do), std::move(from_library)), why(std::move(reason))
    {}

    std::string why;      // "damaged", "no permission": for lists
    std::string damage;   // what is damaged; empty when nothing is
    bool is_gone = false; // it was there, and is no more
};

// A variable could not be changed as was asked.
struct not_changed : failure {
    using failure::failure;

    bool no_room = false;     // in the firmware's store
    bool done_anyway = false; // the variable holds what it should; only the success was not confirmed
};

// Whoever read standard output has gone, as in "ovra list | head -1".
struct nobody_reads : failure {
    using failure::failure;
};

// What was found has been printed: the exit status alone says that there is something.
struct already_told : failure {
    using failure::failure;
};

// The command line is wrong: exit status 2.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace tool

#endif
