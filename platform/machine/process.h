/* SPDX-License-Identifier: MIT */
/*
 * What a process keeps for all of its threads, across a fork. A child has the forking thread alone: a mutex
 * that another thread held would never be given back there.
 */
#ifndef HWPLAT_MACHINE_PROCESS_H
#define HWPLAT_MACHINE_PROCESS_H

#include <mutex>

namespace machine {

/*
 * The one mutex of all that is shared in the process. Held for moments, never while waiting; fork waits for
 * it, so that a child finds it free and what it guards whole. Not to be taken twice.
 */
[[nodiscard]] std::unique_lock<std::mutex> lock_process_state();

/* Whether fork is looked after, as it is once the library is loaded unless memory was lacking. */
bool follows_forks();

} // namespace machine

#endif
