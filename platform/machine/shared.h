/* SPDX-License-Identifier: MIT */
/*
 * What the platform libraries have in common. Each holds its own hidden copy of the model; where libdevns is
 * this project's, all of them keep here, in its copy, what they must agree on.
 */
#ifndef HWPLAT_MACHINE_SHARED_H
#define HWPLAT_MACHINE_SHARED_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace machine {

class picture;

/* Where a relative HWPLAT_ROOT led when it was first looked at. Never changed nor released. */
struct resolved_root {
    std::string value;
    std::string path;
    const resolved_root *before;
};

/* A thread's picture of the machine, between devns_begin and devns_end. Without a destructor: the C library
 * ends a process that has no memory to note one. */
struct thread_picture {
    unsigned depth;
    int cancellation; /* the thread's state of it before the first begin */
    std::shared_ptr<picture> *kept;
};

struct shared_state {
    std::atomic<const resolved_root *> roots;
    thread_picture *(*of_this_thread)();
};

/* This library's own. libdevns gives it to the others. */
shared_state &own_shared_state();

/* The one that all use; this library's own where there is none. */
shared_state &common_state();

/* Tells libraries apart whose models differ, as after an update of one of them. */
extern const unsigned long layout_of_shared_state;

/* devns_begin and devns_end */
void begin_picture();
void end_picture();

/* Whether this thread is between the two. */
bool is_picture_kept();

} // namespace machine

#endif
