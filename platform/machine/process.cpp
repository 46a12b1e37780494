// SPDX-License-Identifier: MIT
#include "platform/machine/process.h"

#include <pthread.h>

#include "platform/machine/lock.h"

namespace machine {

namespace {

// Never destroyed: threads may still run while the process ends.
constinit std::mutex only;
static_assert(std::is_trivially_destructible_v<std::mutex>);

bool registered = false;

void before_fork()
{
    only.lock();
}

void after_fork()
{
    only.unlock();
}

void after_fork_in_child()
{
    forget_locks();
    only.unlock();
}

// When the library is loaded: at a first use another thread could fork in between.
[[gnu::constructor]] void follow_forks()
{
    registered = pthread_atfork(before_fork, after_fork, after_fork_in_child) == 0;
}

} // namespace

std::unique_lock<std::mutex> lock_process_state()
{
    return std::unique_lock(only);
}

bool follows_forks()
{
    return registered;
}

} // namespace machine
