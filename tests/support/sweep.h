/* SPDX-License-Identifier: MIT */
/*
 * Allocation failure. A test linked with the target `sweep` can refuse any call of the malloc family that the
 * core makes, count the blocks that it has not given back, and say whether realloc moves.
 */
#ifndef TESTS_SUPPORT_SWEEP_H
#define TESTS_SUPPORT_SWEEP_H

#include <functional>
#include <string>

#include <ovra/ovra.h>

namespace ovra::test {

/* From here on blocks are counted, with a count of 0. */
void count_blocks();
/* Blocks made since then and not freed. */
long live_blocks();
/* The same for allocations that were asked for, refused ones included. */
long allocations();
void stop_counting();

/*
 * Refuses allocation n from here on, counted from 0 (null, errno ENOMEM), and with `persistent` every later
 * one too. Freeing always works.
 */
void refuse_from(long n, bool persistent);
/* Ends that; returns how many were refused. */
long stop_refusing();

/* While it lives, free changes errno, as some allocators do. */
class errno_spoiled_by_free {
public:
    errno_spoiled_by_free();
    ~errno_spoiled_by_free();
    errno_spoiled_by_free(const errno_spoiled_by_free &) = delete;
    errno_spoiled_by_free &operator=(const errno_spoiled_by_free &) = delete;
};

/*
 * While it lives, a realloc of a non-null block while blocks are counted: always moves, or stays where it is
 * when the block had room enough when it was made (else it moves).
 */
enum class realloc_policy { natural, moves, stays };
class realloc_guard {
public:
    explicit realloc_guard(realloc_policy policy);
    ~realloc_guard();
    realloc_guard(const realloc_guard &) = delete;
    realloc_guard &operator=(const realloc_guard &) = delete;
};

/* One call of a body under refusal. */
struct attempt {
    long n = 0; /* the first allocation refused */
    bool persistent = false;
    long refused = 0; /* how many were; 0: all allocations of the body have had their turn */
    int result = 0;
    std::string messages; /* what the library wrote, with both switches on */
};

/*
 * Calls `body` once freely, and then with each of its allocations refused in turn, alone and with all later
 * ones, until none is refused any more. The library's messages are captured meanwhile. `body` gets a handle
 * opened before (its descriptor is the driver's, or -1 in test-file mode) and returns the result of the one
 * call that it makes; what the handle does not own it must free itself. After each call fails the test unless
 *  - the result is -1 when an allocation was refused, else 0;
 *  - the handle still tracks memory and can be finished;
 *  - no block is left then, nor a descriptor of the driver.
 * `check` looks at whatever else must hold: outputs, messages, the store.
 */
using sweep_body = std::function<int(ovra_hdl_t hdl)>;
using sweep_check = std::function<void(const attempt &attempt)>;
void for_each_refused_allocation(const sweep_body &body, const sweep_check &check = {});

/*
 * The same without the rule for the result, for a routine that has another: `check` must look at it. The
 * handle tracks so many blocks before.
 */
void for_each_refused_allocation_any_result(const sweep_body &body, const sweep_check &check,
                                            unsigned blocks_before = 0);

} // namespace ovra::test

#endif
