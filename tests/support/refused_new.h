/* SPDX-License-Identifier: MIT */
/*
 * A refused operator new. A program with refused_new.cpp among its sources has an operator new that counts
 * the blocks which are not given back, and refuses some.
 */
#ifndef TESTS_SUPPORT_REFUSED_NEW_H
#define TESTS_SUPPORT_REFUSED_NEW_H

namespace ovra::test {

struct new_state {
    bool refusing = false;
    bool all_that_follow = false; /* the first refused one, and each behind it */
    long before_refusal = 0;      /* that many are given first */
    long refused = 0;
    long live = 0; /* blocks that are out */
};
extern new_state operator_new;

/* The number that the next descriptor gets: the same again when none was kept. */
int lowest_free_descriptor();

} // namespace ovra::test

#endif
