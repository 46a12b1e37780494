/* SPDX-License-Identifier: MIT */
/*
 * The machine's lock: one thread of one process at a time changes a machine. It is the lock (flock(2)) of a
 * file that only those can open who may write the machine: /run/ovra.lock of the live machine,
 * <root>/var/lib/hwplat/lock of any other. The system gives it back when the process ends, however that
 * happens.
 *
 * The lock of a file of variables is that file's own: nobody leaves files beside it, and only who may write
 * it can have the lock. It is both a lock of the open file (flock) and one of all its bytes (F_OFD_SETLK),
 * which emulators look for before they start a machine.
 */
#ifndef HWPLAT_MACHINE_LOCK_H
#define HWPLAT_MACHINE_LOCK_H

#include <chrono>
#include <memory>
#include <optional>

#include <sys/types.h>

#include <ovra/uefi.h>

#include "platform/machine/files.h"

namespace machine {

struct machine_root;
struct image_contents;

/* How long the services wait for the lock. */
inline constexpr std::chrono::seconds lock_patience{30};

/*
 * Takes the lock for the calling thread, once more if the thread has it already. Returns 0 or an errno value:
 * ETIMEDOUT if another has had the lock for all of `patience`, with that process in `*holder` (may be null; 0
 * if unknown); EPERM if the file cannot be trusted; EBUSY if a program of another kind, such as an emulator,
 * has a lock on the file of variables. Throws std::bad_alloc.
 *
 * A thread that ends gives back its locks. A child made by fork has none of its parent's, and does not keep
 * the parent from giving them back.
 */
int take_lock(const machine_root &root, std::chrono::milliseconds patience, pid_t *holder);

/*
 * Gives back what one take_lock of the calling thread took, of the thread's last machine if `root` has no
 * folder. 0, or EPERM when the thread does not have the lock.
 */
int give_lock(const machine_root &root);

/* What a thread that has the lock knows of its machine: nobody else changes it. */
struct locked_knowledge {
    std::optional<UINT64> space_used;            /* bytes of all variables */
    bool temporaries = false;                    /* a writer that was killed has left some */
    std::shared_ptr<const image_contents> image; /* what the file of variables holds (imagefile.h) */
    bool is_tidy = false;                        /* nothing of a killed writer is beside that file */
};

/* Null when the calling thread does not have the lock. It is forgotten when the lock is given back. */
locked_knowledge *knowledge_of(const machine_root &root);

/*
 * Gives the name of a file of variables to a new file of its folder, `made`, which has the lock from then on.
 * `read` is the file whose variables the new one has. The calling thread has the lock. 0, or an errno value
 * and nothing has changed: ESTALE when that file, or the one that has the name now, is not the locked one.
 */
int rename_locked(const machine_root &root, const char *new_name, const file_identity &made,
                  const file_identity &read);

/* Holds the lock while it lives; or error() says why it could not be taken. */
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

/* In a child made by fork, under lock_process_state(): closes the files of its parent's locks. */
void forget_locks();

} // namespace machine

#endif
