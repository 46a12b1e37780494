// SPDX-License-Identifier: MIT
#include "platform/machine/shared.h"

#include <pthread.h>

#include "platform/machine/picture.h"

// Declared here too, since the model knows no face. Weak: a replacement libdevns may lack it.
// NOLINTNEXTLINE(readability-redundant-declaration): of what libdevns has
extern "C" [[gnu::weak]] void *devns_shared(unsigned long layout);

namespace machine {

namespace {

// In the block that every thread is born with: the C library ends a process that has no memory for another
// one.
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_picture mine = {};

constinit shared_state own = {{nullptr}, [] { return &mine; }};

// Increase it when the meaning of the shared state changes. A change of a size is detected.
constexpr unsigned long revision = 1;

template <typename... type>
constexpr unsigned long mixed_sizes()
{
    unsigned long mixed = revision;
    ((mixed = mixed * 1009 + sizeof(type)), ...);
    return mixed;
}

} // namespace

const unsigned long layout_of_shared_state =
    mixed_sizes<shared_state, thread_picture, resolved_root, picture, machine_root, device_tree, tree_node,
                disk, medium, partition>();

shared_state &own_shared_state()
{
    return own;
}

shared_state &common_state()
{
    void *found = devns_shared != nullptr ? devns_shared(layout_of_shared_state) : nullptr;
    return found != nullptr ? *static_cast<shared_state *>(found) : own;
}

void begin_picture()
{
    if (mine.depth++ != 0)
        return;
    mine.whole = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mine.cancellation);
}

void end_picture()
{
    if (mine.depth == 0 || --mine.depth != 0)
        return;
    delete mine.kept;
    mine.kept = nullptr;
    mine.whole = 0;
    pthread_setcancelstate(mine.cancellation, nullptr);
}

bool is_picture_kept()
{
    return common_state().of_this_thread()->depth != 0;
}

} // namespace machine
