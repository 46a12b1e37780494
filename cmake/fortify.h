/* SPDX-License-Identifier: MIT */
/* Included before every source: calls of the C library look at the sizes that the compiler knows. */
#if defined __OPTIMIZE__ && !defined _FORTIFY_SOURCE
#define _FORTIFY_SOURCE 2
#endif
