/* SPDX-License-Identifier: MIT */
/*
 * What a process shares among its threads, across a fork. A child has the forking thread alone: it would wait
 * for ever for a mutex that another thread held.
 */
#ifndef HWPLAT_MACHINE_PROCESS_H
#define HWPLAT_MACHINE_PROCESS_H

#include <mutex>

namespace machine {

/*
 * The mutex of everything shared in the process. Held for moments, never while waiting, and not recursive.
 * fork waits for it: a child finds it free and what it guards consistent.
 */
[[nodiscard]] std::unique_lock<std::mutex> lock_process_state();

/* Whether forks are handled. True once the library is loaded, unless memory was lacking then. */
bool follows_forks();

} // namespace machine

#endif
