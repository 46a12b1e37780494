// SPDX-License-Identifier: MIT
#include "platform/machine/blkid.h"

#include <atomic>
#include <cerrno>
#include <memory>

#include <dlfcn.h>

#include "platform/machine/debug.h"
#include "platform/machine/failure.h"

namespace machine {

namespace {

constinit std::atomic<const blkid_library *> loaded = nullptr;

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
    auto library = std::make_unique<blkid_library>();
    errno = 0;
    void *handle = dlopen(HWPLAT_BLKID_SONAME, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
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
