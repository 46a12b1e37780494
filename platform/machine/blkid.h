/* SPDX-License-Identifier: MIT */
/*
 * libblkid, which reads partition tables and file systems. It is loaded when a medium is first read: to bind
 * it takes a third of a program's start, and most programs read variables alone. The note in blkid_note.cpp
 * tells distributions of it.
 */
#ifndef HWPLAT_MACHINE_BLKID_H
#define HWPLAT_MACHINE_BLKID_H

#include <memory>
#include <type_traits>

#include <blkid/blkid.h>

namespace machine {

#define HWPLAT_BLKID_SONAME "libblkid.so.1"

/* The calls that are made, without the beginning of their names. */
#define HWPLAT_BLKID_CALLS(call)                                                                             \
    call(new_probe) call(free_probe) call(probe_set_device) call(probe_set_sectorsize)                       \
        call(probe_enable_superblocks) call(probe_enable_partitions) call(probe_set_partitions_flags)        \
            call(probe_get_partitions) call(partlist_get_table) call(partlist_numof_partitions)              \
                call(partlist_get_partition) call(parttable_get_type) call(parttable_get_id)                 \
                    call(partition_get_table) call(partition_get_partno) call(partition_get_start)           \
                        call(partition_get_size) call(partition_get_uuid) call(partition_get_name)           \
                            call(partition_get_flags) call(probe_set_superblocks_flags) call(do_safeprobe)   \
                                call(probe_lookup_value)

struct blkid_library {
#define HWPLAT_BLKID_MEMBER(name) decltype(&blkid_##name) name = nullptr;
    HWPLAT_BLKID_CALLS(HWPLAT_BLKID_MEMBER)
#undef HWPLAT_BLKID_MEMBER
};

/*
 * Loads it at the first call of the process, and keeps it. A fork in another thread waits meanwhile. When the
 * process has another root than at its start, what it has already loaded is taken alone. Throws read_failure:
 * a shortage, or ELIBACC.
 */
const blkid_library &blkid();

struct probe_freeing {
    void operator()(blkid_probe probe) const { blkid().free_probe(probe); }
};
using probe_owner = std::unique_ptr<std::remove_pointer_t<blkid_probe>, probe_freeing>;

} // namespace machine

#endif
