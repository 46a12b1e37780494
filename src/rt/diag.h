/* SPDX-License-Identifier: MIT */
/*
 * Messages. Each is one string literal at its call: a search for its text finds the place. The function's
 * name tells which of the two switches shows it.
 */
#ifndef SRC_RT_DIAG_H
#define SRC_RT_DIAG_H

#ifdef __cplusplus
#include <atomic>

extern "C" {
#endif

/* -1: the environment was not asked yet; 0 silent; 1 messages go to standard error. */
extern int ovra_path_eprint; /* errors, OVRA_PATH_EPRINT */
extern int ovra_path_debug;  /* traces, OVRA_PATH_DEBUG */

#ifdef __cplusplus
}

namespace ovra {

/* An error message for a function that goes on. */
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);

/* The same for one that fails: always -1, to be returned. */
[[gnu::format(printf, 1, 2)]] int fail(const char *format, ...);

/* A trace message. */
[[gnu::format(printf, 1, 2)]] void trace(const char *format, ...);

/* False when a trace message would go nowhere: where many of them stand, asking costs less than telling. */
inline bool tracing()
{
    return std::atomic_ref(ovra_path_debug).load(std::memory_order_relaxed) != 0;
}

} // namespace ovra
#endif

#endif
