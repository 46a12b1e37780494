// SPDX-License-Identifier: MIT
#include "platform/machine/enumerate.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/machine/debug.h"
#include "platform/machine/failure.h"
#include "platform/machine/names.h"
#include "platform/machine/process.h"
#include "platform/machine/services.h"
#include "platform/machine/store.h"

namespace machine {

namespace {

// How many walks an opening keeps, and the process of closed ones. The least recently used is given up.
constexpr std::size_t most_walks = 16;

using name_list = std::shared_ptr<const std::vector<std::string>>;

// A walk whose services were closed on the way. Callers may open the services anew for each step; a step then
// continues a walk through the same folder.
struct left_walk {
    file_identity folder;
    std::string image; // a file of variables in that folder
    variable_walk walk;
};

// Under lock_process_state(). Never destroyed: an exit handler or another thread may still use it.
std::vector<left_walk> &left_walks()
{
    static auto &only = *new std::vector<left_walk>;
    return only;
}

bool is_at_end(const variable_walk &walk)
{
    return walk.last + 1 == walk.file_names->size();
}

bool is_at_end(const left_walk &left)
{
    return is_at_end(left.walk);
}

// A walk at its end is the first to be given up: at most one more step follows.
template <typename walk>
void keep(std::vector<walk> &walks, walk added)
{
    walks.reserve(most_walks);
    const bool at_end = is_at_end(added);
    if (walks.size() == most_walks) {
        if (at_end && !is_at_end(walks.front()))
            return;
        walks.erase(walks.begin());
    }
    walks.insert(at_end ? walks.begin() : walks.end(), std::move(added));
}

bool stands_at(const variable_walk &walk, const std::string &name)
{
    return walk.last != variable_walk::none && (*walk.file_names)[walk.last] == name;
}

// Removes and returns the latest walk that fits.
template <typename walk, typename condition>
std::optional<walk> take_latest(std::vector<walk> &walks, condition fits)
{
    auto found = std::find_if(walks.rbegin(), walks.rend(), fits);
    if (found == walks.rend())
        return std::nullopt;
    walk taken = std::move(*found);
    walks.erase(std::next(found).base());
    return taken;
}

// The walk that stands at `previous`, of these services or of closed ones.
std::optional<variable_walk> walk_at(const runtime_services &services, const std::string &previous)
{
    const auto guard = lock_process_state();
    auto own =
        take_latest(services.walks, [&](const variable_walk &walk) { return stands_at(walk, previous); });
    if (own)
        return own;
    auto left = take_latest(left_walks(), [&](const left_walk &other) {
        return other.folder == services.folder && other.image == services.root.image &&
               stands_at(other.walk, previous);
    });
    return left ? std::optional(std::move(left->walk)) : std::nullopt;
}

// The list of a walk of these services that contains `name`, wherever the walk stands.
name_list list_with(const runtime_services &services, const std::string &name)
{
    std::vector<variable_walk> walks;
    walks.reserve(most_walks);
    {
        const auto guard = lock_process_state();
        walks = services.walks;
    }
    for (auto walk = walks.rbegin(); walk != walks.rend(); ++walk) {
        if (std::ranges::binary_search(*walk->file_names, name))
            return walk->file_names;
    }
    return nullptr;
}

EFI_STATUS list_names(const runtime_services &services, name_list *out)
{
    std::vector<std::string> names;
    const auto take = [&names](std::string_view name) { names.emplace_back(name); };
    if (const int error = place_of(services.kind).list(services, take); error != 0)
        return status_of_folder(error);
    if (!has_folder(services))
        return EFI_DEVICE_ERROR;
    std::erase_if(names, [](const std::string &name) {
        const bool skip = !identity_of(name);
        if (skip)
            debug("skipped '%s': not named like a variable", name.c_str());
        return skip;
    });
    std::ranges::sort(names);
    *out = std::make_shared<const std::vector<std::string>>(std::move(names));
    return EFI_SUCCESS;
}

// The walk for the step after `previous`. A walk keeps its list: otherwise deleting on the way would cost a
// reading of the folder for each step. A walk that begins, at the start or in the middle, gets a new list;
// only a step after a deleted variable uses an older one.
EFI_STATUS find_walk(const runtime_services &services, const std::string &previous, variable_walk *walk)
{
    if (!previous.empty()) {
        if (auto going_on = walk_at(services, previous)) {
            *walk = std::move(*going_on);
            return EFI_SUCCESS;
        }
        bool exists = false;
        if (const EFI_STATUS status = find_variable(services, previous, &exists); status != EFI_SUCCESS)
            return status;
        if (!exists) {
            *walk = {list_with(services, previous), variable_walk::none};
            return walk->file_names ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
        }
    }
    walk->last = variable_walk::none;
    return list_names(services, &walk->file_names);
}

// A walk taken out for a step, and put back whatever the step gives.
class walk_under_way {
public:
    explicit walk_under_way(const runtime_services &opened) : services(opened)
    {
        const auto guard = lock_process_state();
        services.walks.reserve(most_walks); // putting back must not fail
    }
    walk_under_way(const walk_under_way &) = delete;
    walk_under_way &operator=(const walk_under_way &) = delete;
    ~walk_under_way()
    {
        if (walk.last == variable_walk::none)
            return;
        const auto guard = lock_process_state();
        keep(services.walks, std::move(walk));
    }

    // Keeps only the end of the walk, for a caller who asks once more.
    void end(const std::string &last_name)
    {
        if (walk.last != variable_walk::none)
            walk = {std::make_shared<const std::vector<std::string>>(1, last_name), 0};
    }

    variable_walk walk;

private:
    const runtime_services &services;
};

EFI_STATUS hand_over(const std::string &file_name, UINTN *size, CHAR16 *name, EFI_GUID *guid)
{
    const auto identity = identity_of(file_name);
    if (!identity)
        return EFI_DEVICE_ERROR;
    const std::size_t needed = (identity->name.size() + 1) * sizeof(CHAR16);
    const bool fits = needed <= *size;
    *size = needed;
    if (!fits)
        return EFI_BUFFER_TOO_SMALL;
    std::ranges::copy(identity->name, name);
    name[identity->name.size()] = 0;
    *guid = identity->guid;
    return EFI_SUCCESS;
}

// Gives the next variable after `previous` in the walk's list that still exists.
EFI_STATUS step(const runtime_services &services, variable_walk *walk, const std::string &previous,
                UINTN *size, CHAR16 *name, EFI_GUID *guid)
{
    const std::vector<std::string> &names = *walk->file_names;
    // A walk that goes on is where the step before has left it.
    auto next = stands_at(*walk, previous) ? names.begin() + static_cast<std::ptrdiff_t>(walk->last) + 1
                                           : std::ranges::upper_bound(names, previous);
    // Until a step succeeds, the walk stays at `previous`.
    if (next != names.begin() && *(next - 1) == previous)
        walk->last = static_cast<std::size_t>(next - names.begin()) - 1;
    for (; next != names.end(); ++next) {
        bool exists = false;
        if (const EFI_STATUS status = find_variable(services, *next, &exists); status != EFI_SUCCESS)
            return status;
        if (exists)
            break;
        if (!has_folder(services))
            return EFI_DEVICE_ERROR;
    }
    if (next == names.end())
        return EFI_NOT_FOUND;
    const EFI_STATUS status = hand_over(*next, size, name, guid);
    if (status == EFI_SUCCESS)
        walk->last = static_cast<std::size_t>(next - names.begin());
    return status;
}

} // namespace

EFI_STATUS next_variable(const runtime_services &services, UINTN *size, CHAR16 *name, EFI_GUID *guid)
{
    const auto previous = terminated_name(name, *size);
    if (!previous)
        return EFI_INVALID_PARAMETER;
    std::string previous_file;
    if (!previous->empty()) {
        auto file_name = file_name_of(*previous, *guid);
        if (!file_name)
            return EFI_INVALID_PARAMETER;
        previous_file = std::move(*file_name);
    }
    walk_under_way own(services);
    EFI_STATUS status = find_walk(services, previous_file, &own.walk);
    if (status == EFI_SUCCESS)
        status = step(services, &own.walk, previous_file, size, name, guid);
    if (status == EFI_NOT_FOUND)
        own.end(previous_file);
    return status;
}

void leave_walks(const runtime_services &services) noexcept
{
    // Without memory the walks are lost, and the next step makes a list of its own.
    static_cast<void>(outcome_of([&] {
        const auto guard = lock_process_state();
        for (variable_walk &walk : services.walks)
            keep(left_walks(), left_walk{services.folder, services.root.image, std::move(walk)});
        services.walks.clear();
    }));
}

} // namespace machine
