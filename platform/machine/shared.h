/* SPDX-License-Identifier: MIT */
/*
 * State that the platform libraries share. Each library has its own hidden copy of the model; what all must
 * agree on is in libdevns's copy, unless libdevns is a replacement.
 */
#ifndef HWPLAT_MACHINE_SHARED_H
#define HWPLAT_MACHINE_SHARED_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace machine {

class picture;

/* Where a relative HWPLAT_ROOT led when it was first read. Never changed or released. */
struct resolved_root {
    std::string value;
    std::string path;
    const resolved_root *before;
};

/*
 * A thread's picture of the machine, between devns_begin and devns_end. It has no destructor: the C library
 * ends a process that has no memory to register one.
 */
struct thread_picture {
    unsigned depth;
    int cancellation; /* the thread's cancellation state before the first begin */
    std::shared_ptr<picture> *kept;
    unsigned long whole; /* the number of the services whose files were still open; 0: not looked yet */
};

struct shared_state {
    std::atomic<const resolved_root *> roots;
    thread_picture *(*of_this_thread)();
};

/* This library's own state. libdevns gives its own to the others. */
shared_state &own_shared_state();

/* The state that all libraries use; this library's own without a common one. */
shared_state &common_state();

/* Differs between libraries whose models differ, as after an update of one of them. */
extern const unsigned long layout_of_shared_state;

/* devns_begin and devns_end */
void begin_picture();
void end_picture();

/* Whether this thread is between the two. */
bool is_picture_kept();

/*
 * Whether services are still open on their files, as `look` says; between begin_picture and end_picture it is
 * asked once for the same services. For libdevns. `number` is not 0, and of no other services.
 */
template <typename asking>
bool is_whole_in_picture(thread_picture &mine, unsigned long number, asking look)
{
    if (mine.depth != 0 && mine.whole == number)
        return true;
    if (!look())
        return false;
    mine.whole = number;
    return true;
}

} // namespace machine

#endif
