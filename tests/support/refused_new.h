/* SPDX-License-Identifier: MIT */
/*
 * A refused operator new. A program with refused_new.cpp among its sources has an operator new that counts
 * the blocks which are not given back, and refuses some.
 */
#ifndef TESTS_SUPPORT_REFUSED_NEW_H
#define TESTS_SUPPORT_REFUSED_NEW_H

#include <functional>

namespace ovra::test {

/*
 * Calls `body` once freely, and then with each of its allocations refused in turn, alone and with all later
 * ones, until none is refused any more. What `body` allocates it must free, and of errno keep what it wants
 * to look at later. Fails the test if blocks or descriptors are left, or if there was nothing to refuse.
 * `before_each` makes the state before each call. `check` looks at the outcome: `n` allocations were given
 * before the first refused one. What these two allocate is not counted.
 */
void for_each_refused_new(const std::function<void()> &before_each, const std::function<void()> &body,
                          const std::function<void(long n, bool refused)> &check);

} // namespace ovra::test

#endif
