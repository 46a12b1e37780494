// SPDX-License-Identifier: MIT
/*
 * Says in the file of a library that it loads libblkid, where the tools of distributions look for it
 * (https://uapi-group.org/specifications/specs/elf_dlopen_metadata). It stands in each library that reads
 * media.
 */
#include <cstdint>

#include "platform/machine/blkid.h"

namespace {

constexpr char text[] =
    R"([{"feature":"media","description":"Partition tables of disks","priority":"required",)"
    R"("soname":[")" HWPLAT_BLKID_SONAME R"("]}])";

struct dlopen_note {
    std::uint32_t name_size;
    std::uint32_t text_size;
    std::uint32_t type;
    char name[4];
    alignas(4) char contents[sizeof text];
};

template <typename note>
constexpr note make_note()
{
    note made = {4, sizeof text, 0x407c0c0a, "FDO", {}};
    for (unsigned i = 0; i < sizeof text; ++i)
        made.contents[i] = text[i];
    return made;
}

// The alignment is said, or the compiler would choose a larger one than a note may have.
alignas(4)
    [[gnu::used,
      gnu::section(".note.dlopen")]] constinit const dlopen_note needs_libblkid = make_note<dlopen_note>();

} // namespace
