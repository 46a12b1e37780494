/* SPDX-License-Identifier: MIT */
/* Counts the calls of the malloc family, of the program and of every library in it. */
#ifndef BENCH_ALLOCATIONS_H
#define BENCH_ALLOCATIONS_H

#include <cstddef>

namespace bench {

/* Allocations, resizing ones included, since the program began. */
std::size_t allocations();

} // namespace bench

#endif
