#include "platform/machine/machine.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <mutex>

#include <sys/stat.h>

namespace machine {

namespace {

constexpr std::size_t none = SIZE_MAX;

/*
 * The walk's order. It is kept between calls, as a caller may well open the machine anew for each of them,
 * and belongs to one folder at a time.
 */
struct snapshot {
    dev_t device = 0;
    ino_t inode = 0;
    bool filled = false;
    bool settled = false; // a later change of the folder shows in its time
    timespec modified = {};
    std::vector<std::string> file_names; // sorted
    std::size_t last = none;             // the one that was given out last
};

struct shared_snapshot {
    std::mutex mutex;
    snapshot current;
};

/* Never destroyed: an exit handler or another thread may still ask. */
shared_snapshot &shared()
{
    static auto &only = *new shared_snapshot;
    return only;
}

/* Whether the folder's time of change lies so far back that its clock has gone on since. */
bool is_settled(const timespec &modified)
{
    constexpr auto coarsest_clock = std::chrono::milliseconds(50);
    auto changed = std::chrono::seconds(modified.tv_sec) + std::chrono::nanoseconds(modified.tv_nsec);
    return std::chrono::system_clock::now().time_since_epoch() > changed + coarsest_clock;
}

EFI_STATUS take_snapshot(const firmware &machine, const struct stat &folder, snapshot *out)
{
    // An efivarfs does not say when it changed.
    bool settled = machine.kind == store_kind::folder && is_settled(folder.st_mtim);
    std::vector<std::string> names;
    if (int error = list_folder(machine.variables.get(), &names); error != 0)
        return status_of(error);
    std::erase_if(names, [](const std::string &name) {
        bool skip = !identity_of(name);
        if (skip)
            debug("skipped '%s': not named like a variable", name.c_str());
        return skip;
    });
    std::ranges::sort(names);
    *out = {folder.st_dev, folder.st_ino, true, settled, folder.st_mtim, std::move(names), none};
    return EFI_SUCCESS;
}

/*
 * Whether the list must be made anew for this step. A walk keeps its list, or deleting on the way would cost
 * a reading of the folder for each step; who begins in the middle gets one that is up to date.
 */
bool needs_snapshot(const snapshot &order, const firmware &machine, const struct stat &folder,
                    const std::string &previous)
{
    if (previous.empty() || !order.filled || order.device != folder.st_dev || order.inode != folder.st_ino)
        return true;
    if (order.last != none && order.file_names[order.last] == previous)
        return false;
    bool unchanged = order.settled && order.modified.tv_sec == folder.st_mtim.tv_sec &&
                     order.modified.tv_nsec == folder.st_mtim.tv_nsec;
    return !unchanged && is_variable(machine, previous);
}

EFI_STATUS hand_over(const std::string &file_name, UINTN *size, CHAR16 *name, EFI_GUID *guid)
{
    auto identity = identity_of(file_name);
    if (!identity)
        return EFI_DEVICE_ERROR;
    std::size_t needed = (identity->name.size() + 1) * sizeof(CHAR16);
    bool fits = needed <= *size;
    *size = needed;
    if (!fits)
        return EFI_BUFFER_TOO_SMALL;
    std::ranges::copy(identity->name, name);
    name[identity->name.size()] = 0;
    *guid = identity->guid;
    return EFI_SUCCESS;
}

EFI_STATUS next_in(snapshot &order, const firmware &machine, const std::string &previous, UINTN *size,
                   CHAR16 *name, EFI_GUID *guid)
{
    auto next = std::ranges::upper_bound(order.file_names, previous);
    bool listed = next != order.file_names.begin() && *(next - 1) == previous;
    if (!previous.empty() && !listed && !is_variable(machine, previous))
        return EFI_INVALID_PARAMETER;
    next = std::find_if(next, order.file_names.end(),
                        [&](const std::string &candidate) { return is_variable(machine, candidate); });
    if (next == order.file_names.end())
        return EFI_NOT_FOUND;
    EFI_STATUS status = hand_over(*next, size, name, guid);
    if (status == EFI_SUCCESS)
        order.last = static_cast<std::size_t>(next - order.file_names.begin());
    return status;
}

} // namespace

EFI_STATUS next_variable(const firmware &machine, UINTN *size, CHAR16 *name, EFI_GUID *guid)
{
    auto previous = terminated_name(name, *size);
    if (!previous)
        return EFI_INVALID_PARAMETER;
    std::string previous_file;
    if (!previous->empty()) {
        auto file_name = file_name_of(*previous, *guid);
        if (!file_name)
            return EFI_INVALID_PARAMETER;
        previous_file = std::move(*file_name);
    }
    struct stat folder = {};
    if (fstat(machine.variables.get(), &folder) != 0)
        return status_of(errno);

    shared_snapshot &kept = shared();
    std::lock_guard guard(kept.mutex);
    snapshot &order = kept.current;
    if (needs_snapshot(order, machine, folder, previous_file)) {
        if (EFI_STATUS status = take_snapshot(machine, folder, &order); status != EFI_SUCCESS)
            return status;
    }
    return next_in(order, machine, previous_file, size, name, guid);
}

} // namespace machine
