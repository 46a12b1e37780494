/* SPDX-License-Identifier: MIT */
/* Counts the calls of the malloc family, of the program and of every library in it. */
#ifndef BENCH_ALLOCATIONS_H
#define BENCH_ALLOCATIONS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Allocations, resizing ones included, since the program began. */
size_t allocations(void);

#ifdef __cplusplus
}
#endif

#endif
