// SPDX-License-Identifier: MIT
#include "platform/machine/blkid.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/stat.h>

#include "platform/machine/debug.h"
#include "platform/machine/failure.h"
#include "platform/machine/files.h"

namespace machine {

namespace {

constinit std::atomic<const blkid_library *> loaded = nullptr;

// Read-locked while a thread loads; a fork waits for it: a child that began in the middle would have the
// dynamic linker's lists half changed. Threads that load do not wait for each other, as one may do so in a
// constructor, with the linker's own lock.
constinit pthread_rwlock_t loading = PTHREAD_RWLOCK_INITIALIZER;

class loading_turn {
public:
    loading_turn() { pthread_rwlock_rdlock(&loading); }
    loading_turn(const loading_turn &) = delete;
    loading_turn &operator=(const loading_turn &) = delete;
    ~loading_turn() { pthread_rwlock_unlock(&loading); }
};

void stop_loading()
{
    pthread_rwlock_wrlock(&loading);
}

void go_on_loading()
{
    pthread_rwlock_unlock(&loading);
}

void load_in_child()
{
    // Anew: a lock for writing belongs to a thread, which has another number in the child.
    loading = PTHREAD_RWLOCK_INITIALIZER;
}

std::optional<file_identity> root_now()
{
    struct stat root = {};
    return stat("/", &root) == 0 ? std::optional(file_identity{root.st_dev, root.st_ino}) : std::nullopt;
}

constinit bool waits_at_forks = false;
constinit std::optional<file_identity> first_root;

// When the library is loaded, before there is a thread that loads and another that forks.
[[gnu::constructor]] void prepare()
{
    waits_at_forks = pthread_atfork(stop_loading, go_on_loading, load_in_child) == 0;
    first_root = root_now();
}

[[noreturn]] void fail()
{
    const int error = errno;
    const char *reason = dlerror();
    debug("%s", reason != nullptr ? reason : HWPLAT_BLKID_SONAME);
    // The dynamic linker goes on to the next folder after most errors, and the last one may be anything.
    throw read_failure{is_shortage(error) ? error : ELIBACC};
}

template <typename call>
void find(void *library, const char *name, call *found)
{
    void *address = dlsym(library, name);
    if (address == nullptr)
        fail();
    *found = reinterpret_cast<call>(address);
}

std::unique_ptr<blkid_library> load()
{
    if (!waits_at_forks)
        throw read_failure{ENOMEM};
    auto library = std::make_unique<blkid_library>();
    // After a chroot the name stands for code of another system, perhaps of one that is to be examined, which
    // must not run here. What the program has loaded before is its own.
    const auto root = root_now();
    const int nothing_new = root && root == first_root ? 0 : RTLD_NOLOAD;
    const loading_turn turn;
    errno = 0;
    void *handle = dlopen(HWPLAT_BLKID_SONAME, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE | nothing_new);
    if (handle == nullptr)
        fail();
#define HWPLAT_BLKID_FIND(name) find(handle, "blkid_" #name, &library->name);
    HWPLAT_BLKID_CALLS(HWPLAT_BLKID_FIND)
#undef HWPLAT_BLKID_FIND
    return library;
}

} // namespace

const blkid_library &blkid()
{
    const blkid_library *known = loaded.load();
    if (known == nullptr) {
        auto library = load();
        // Another thread may have loaded it meanwhile: the first result stays.
        if (loaded.compare_exchange_strong(known, library.get()))
            known = library.release();
    }
    return *known;
}

} // namespace machine
