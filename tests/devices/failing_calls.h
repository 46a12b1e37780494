/* SPDX-License-Identifier: MIT */
/*
 * System calls that fail once. In a child process of its own every call is stopped at the kernel's door,
 * whichever library makes it, libblkid and the insides of the C library included. Allocations of libblkid,
 * which are none of the model's, can fail too.
 */
#ifndef TESTS_DEVICES_FAILING_CALLS_H
#define TESTS_DEVICES_FAILING_CALLS_H

#include <functional>
#include <string>

namespace devices_test {

/* What a call of the library gave: 0 or an errno value (-1: an error that has none), and what it said. */
struct outcome {
    int error = 0;
    std::string text;
    bool operator==(const outcome &) const = default;
};

/* Whether an outcome is right for a call during which one system call failed with `injected`. */
using judgement = std::function<bool(const outcome &found, const outcome &undisturbed, int injected)>;

/* The undisturbed outcome, or an error. */
bool same_or_error(const outcome &found, const outcome &undisturbed, int injected);

/* The undisturbed outcome, or the very error. */
bool same_or_that_error(const outcome &found, const outcome &undisturbed, int injected);

/*
 * Calls `body` once for each of its system calls and each of EIO, EMFILE, ENOMEM and EACCES, with that call
 * failing, and expects that each outcome is right. Of the first `of_tree` calls, which are tried in all ways
 * elsewhere, each fourth fails, in one way. Says on standard output how many calls of which kind there were.
 */
void expect_each_failure_told(const std::string &name, const std::function<outcome()> &body,
                              const judgement &is_right = same_or_error, long of_tree = 0);

/*
 * The same for the first time that a process calls `body`, with a process for each failure, behind the first
 * `skipped` calls. Returns how many calls there were.
 */
long expect_each_first_failure_told(const std::string &name, const std::function<outcome()> &body,
                                    const judgement &is_right, long skipped);

/* How many calls `body` makes, and how many of them open a file or folder. */
long calls_of(const std::function<outcome()> &body);
long opens_of(const std::function<outcome()> &body);

} // namespace devices_test

#endif
