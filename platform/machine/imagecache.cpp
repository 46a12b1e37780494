// SPDX-License-Identifier: MIT
// What files of variables hold, between one request and the next. A store of many options is searched for
// each of them several times, and reading it takes as long as all of these searches.
#include <algorithm>
#include <ctime>

#include <linux/magic.h>
#include <sys/vfs.h>

#include "platform/machine/imagefile.h"
#include "platform/machine/lock.h"
#include "platform/machine/process.h"

namespace machine {

namespace {

constexpr std::size_t most_versions = 4;
constexpr std::size_t most_bytes = 2 * largest_image_store; // of their stores together

// The latest is the last. Under lock_process_state(). Never destroyed: an exit handler or another thread may
// still use it.
std::vector<known_image> &kept_versions()
{
    static auto &only = *new std::vector<known_image>;
    return only;
}

// A write that follows another one at once may leave the file's times as they are. How far these advance
// depends on the file system: by ticks of the system's clock, or (FAT) by whole seconds, two at most.
bool is_settled(const file_version &version, const timespec &now)
{
    constexpr long long second = 1'000'000'000;
    constexpr long long several_ticks = second / 10;
    constexpr long long several_seconds = 3 * second;
    constexpr time_t long_ago = 10;
    const file_time last = std::max(version.modified, version.changed);
    if (last.seconds > now.tv_sec)
        return false;
    if (last.seconds < now.tv_sec - long_ago)
        return true;
    const bool whole_seconds = version.modified.nanoseconds == 0 && version.changed.nanoseconds == 0;
    return (now.tv_sec - last.seconds) * second + now.tv_nsec - last.nanoseconds >
           (whole_seconds ? several_seconds : several_ticks);
}

// Whether the file's times may be those of another system's clock, or known here with a delay.
bool may_be_far_away(int file)
{
    struct statfs info = {};
    if (fstatfs(file, &info) != 0)
        return true;
    // statfs(2): f_type is a signed long, the magic numbers have 32 bits.
    switch (static_cast<std::uint32_t>(info.f_type)) {
    case NFS_SUPER_MAGIC:
    case SMB_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC:
    case AFS_SUPER_MAGIC:
    case AFS_FS_MAGIC:
    case CEPH_SUPER_MAGIC:
    case V9FS_MAGIC:
    case FUSE_SUPER_MAGIC:
        return true;
    default:
        return false;
    }
}

void keep_for_all(const known_image &read)
{
    const auto guard = lock_process_state();
    std::vector<known_image> &kept = kept_versions();
    std::erase_if(kept, [&](const known_image &each) { return each->version.file == read->version.file; });
    kept.push_back(read);
    std::size_t size = 0;
    for (const known_image &each : kept)
        size += each->store->contents().size();
    while (kept.size() > most_versions || size > most_bytes) {
        size -= kept.front()->store->contents().size();
        kept.erase(kept.begin());
    }
}

} // namespace

file_version version_of(const struct stat &info)
{
    return {{info.st_dev, info.st_ino},
            info.st_size,
            {info.st_mtim.tv_sec, info.st_mtim.tv_nsec},
            {info.st_ctim.tv_sec, info.st_ctim.tv_nsec}};
}

known_image known_version(const machine_root &root, const file_version &version)
{
    {
        const auto guard = lock_process_state();
        for (const known_image &each : kept_versions()) {
            if (each->version == version)
                return each;
        }
    }
    const locked_knowledge *locked = knowledge_of(root);
    return locked != nullptr && locked->image && locked->image->version == version ? locked->image : nullptr;
}

void keep_version(const machine_root &root, int file, const timespec &begun, const known_image &read)
{
    if (locked_knowledge *locked = knowledge_of(root))
        locked->image = read;
    if (is_settled(read->version, begun) && !may_be_far_away(file))
        keep_for_all(read);
}

} // namespace machine
