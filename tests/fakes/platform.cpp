// SPDX-License-Identifier: MIT
#include "tests/fakes/platform.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_set>

#include "tests/fakes/disks.h"
#include "tests/fakes/tree.h"

namespace fakes {

namespace {

struct call_state {
    std::mutex lock;
    unsigned calls = 0;
    bool is_failing = false;
    bool failed = false;
    unsigned until_failure = 0;
    failing how = failing::error;
    std::unordered_set<const void *> out;
};

call_state &current()
{
    static call_state state;
    return state;
}

} // namespace

void reset_platform()
{
    {
        const std::lock_guard guard(current().lock);
        current().calls = 0;
        current().is_failing = false;
    }
    tree() = tree_node{.name = "hwplat"};
    drives().clear();
}

unsigned platform_calls()
{
    const std::lock_guard guard(current().lock);
    return current().calls;
}

void fail_platform_call(unsigned n, failing how)
{
    const std::lock_guard guard(current().lock);
    current().is_failing = true;
    current().failed = false;
    current().until_failure = n;
    current().how = how;
}

bool stop_failing()
{
    const std::lock_guard guard(current().lock);
    current().is_failing = false;
    return current().failed;
}

size_t platform_objects()
{
    const std::lock_guard guard(current().lock);
    return current().out.size();
}

std::optional<failing> next_call()
{
    const std::lock_guard guard(current().lock);
    call_state &state = current();
    ++state.calls;
    if (!state.is_failing || state.failed || state.until_failure-- != 0)
        return std::nullopt;
    state.failed = true;
    return state.how;
}

void handed_out(const void *object)
{
    const std::lock_guard guard(current().lock);
    if (!current().out.insert(object).second)
        misused("handed out twice");
}

void taken_back(const void *object)
{
    const std::lock_guard guard(current().lock);
    if (current().out.erase(object) == 0)
        misused("released, but not out");
}

void must_be_out(const void *object)
{
    const std::lock_guard guard(current().lock);
    if (!current().out.contains(object))
        misused("used, but not out");
}

void misused(const char *how)
{
    fprintf(stdout, "fakes: %s\n", how);
    fflush(stdout);
    abort();
}

} // namespace fakes
