/* SPDX-License-Identifier: MIT */
/*
 * The machine's lock, under which everything that changes it is done: by one thread of one process at a time.
 * It is the lock (flock) of a file that only those can open who may write the machine:
 *   - of the live machine /run/ovra.lock;
 *   - of any other <root>/var/lib/hwplat/lock.
 * The system gives it back when the process ends, however that happens.
 */
#ifndef HWPLAT_MACHINE_LOCK_H
#define HWPLAT_MACHINE_LOCK_H

#include <chrono>

#include <sys/types.h>

#include <ovra/uefi.h>

namespace machine {

struct machine_root;

/* How long the services wait for it. */
inline constexpr std::chrono::seconds lock_patience{30};

/*
 * Takes the lock for the calling thread, or takes it once more where that thread has it. 0 or an errno value:
 * ETIMEDOUT when another has had it for all of `patience`, and then *holder (which may be null) is that
 * process, 0 where the system does not tell; EPERM when the file is not one that the lock can be trusted to.
 * Throws std::bad_alloc.
 *
 * A thread that ends gives back what it has. A child made by fork has none of its parent's locks, and does
 * not keep them from being given back.
 */
int take_lock(const machine_root &root, std::chrono::milliseconds patience, pid_t *holder);

/* Gives back what one take_lock of the calling thread took. 0, or EPERM when it has nothing to give back. */
int give_lock(const machine_root &root);

/* Holds the lock while it lives, unless it could not be taken: error() is then an errno value. */
class held_lock {
public:
    explicit held_lock(const machine_root &machine)
        : root(machine), failure(take_lock(root, lock_patience, nullptr))
    {}
    held_lock(const held_lock &) = delete;
    held_lock &operator=(const held_lock &) = delete;
    ~held_lock()
    {
        if (failure == 0)
            give_lock(root);
    }
    [[nodiscard]] int error() const { return failure; }
    [[nodiscard]] EFI_STATUS status() const;

private:
    const machine_root &root;
    int failure;
};

/* For a child made by fork, under lock_process_state(): closes what it got of its parent's locks. */
void forget_locks();

} // namespace machine

#endif
