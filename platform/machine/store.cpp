// SPDX-License-Identifier: MIT
#include "platform/machine/store.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/efivarfs.h"
#include "platform/machine/names.h"
#include "platform/machine/state.h"

namespace machine {

namespace {

bool may_hold_variable(const struct stat &file)
{
    return S_ISREG(file.st_mode) && file.st_size > static_cast<off_t>(sizeof(UINT32)) &&
           file.st_size <= static_cast<off_t>(largest_variable_file);
}

// The size of a variable's file; 0 when it is absent, damaged or without data. Returns 0 or an errno value.
int variable_file_size(const runtime_services &services, const char *file_name, std::size_t *found)
{
    struct stat info = {};
    *found = 0;
    if (fstatat(services.variables.get(), file_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT)
            return 0;
        debug("cannot look at variable '%s': %s", file_name, std::strerror(errno));
        return errno;
    }
    if (may_hold_variable(info))
        *found = static_cast<std::size_t>(info.st_size);
    else
        debug("skipped variable '%s': damaged, or without data", file_name);
    return 0;
}

// Whatever comes of a write: what was counted before is not what there is.
void forget_space_used(const runtime_services &services)
{
    if (locked_knowledge *known = knowledge_of(services.root))
        known->space_used.reset();
}

void keep_space_used(const runtime_services &services, UINT64 used)
{
    if (locked_knowledge *known = knowledge_of(services.root))
        known->space_used = used;
}

int load_file(const runtime_services &services, const std::string &file_name, stored_variable *found)
{
    bytes contents;
    const int error =
        read_file(services.variables.get(), file_name.c_str(), largest_variable_file, &contents);
    if (error != 0)
        return error;
    UINT32 attributes = 0;
    const bool never_written = services.kind == store_kind::efivarfs && contents.empty();
    if (never_written || contents.size() == sizeof attributes)
        return ENOENT;
    if (contents.size() < sizeof attributes)
        return EBADMSG;
    std::memcpy(&attributes, contents.data(), sizeof attributes);
    found->attributes = attributes;
    found->contents = std::move(contents);
    return 0;
}

// What both have that show variables as files.
class in_files : public variable_place {
public:
    int load(const runtime_services &services, const std::string &file_name,
             stored_variable *found) const override
    {
        return load_file(services, file_name, found);
    }

    EFI_STATUS find(const runtime_services &services, const std::string &file_name,
                    bool *found) const override
    {
        std::size_t size = 0;
        const int error = variable_file_size(services, file_name.c_str(), &size);
        *found = size != 0;
        return status_of(error);
    }

    int list(const runtime_services &services, const name_taking &take) const override
    {
        return visit_folder(services.variables.get(), take);
    }

protected:
    ~in_files() = default;

    static bytes file_contents(UINT32 attributes, std::initializer_list<byte_view> data)
    {
        bytes contents(sizeof attributes);
        std::memcpy(contents.data(), &attributes, sizeof attributes);
        for (byte_view part : data)
            contents.insert(contents.end(), part.begin(), part.end());
        return contents;
    }
};

class in_folder final : public in_files {
public:
    EFI_STATUS check_space(const runtime_services &services, const growth &wanted,
                           std::optional<UINT64> *total) const override
    {
        capacity limits;
        if (const EFI_STATUS status = capacity_of(services, &limits); status != EFI_SUCCESS)
            return status;
        if (wanted.after > limits.variable)
            return EFI_INVALID_PARAMETER;
        const UINT64 before = wanted.before != 0 ? space_taken(wanted.name_units, wanted.before) : 0;
        const UINT64 after = space_taken(wanted.name_units, wanted.after);
        if (after <= before)
            return EFI_SUCCESS;
        UINT64 used = 0;
        const EFI_STATUS status = space_used(services, stopped_writers::clean_up, &used);
        if (status != EFI_SUCCESS)
            return status;
        *total = used - before + after;
        return **total <= limits.store ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
    }

    EFI_STATUS write(const runtime_services &, int folder, const std::string &file_name, UINT32 attributes,
                     std::initializer_list<byte_view> data) const override
    {
        return status_of_folder(replace_file(folder, file_name.c_str(), file_contents(attributes, data)));
    }

    EFI_STATUS remove(const runtime_services &, int folder, const std::string &file_name,
                      UINT32) const override
    {
        const int error = remove_file(folder, file_name.c_str());
        // A folder in a variable's place is damage, not a matter of permission.
        return error == EISDIR ? EFI_DEVICE_ERROR : status_of(error);
    }

    EFI_STATUS space(const runtime_services &services, variable_space *space) const override
    {
        capacity limits;
        if (const EFI_STATUS status = capacity_of(services, &limits); status != EFI_SUCCESS)
            return status;
        UINT64 used = 0;
        if (const EFI_STATUS status = space_used(services, stopped_writers::leave, &used);
            status != EFI_SUCCESS)
            return status;
        *space = {limits.store, used < limits.store ? limits.store - used : 0, limits.variable};
        return EFI_SUCCESS;
    }
};

class on_efivarfs final : public in_files {
public:
    EFI_STATUS check_space(const runtime_services &, const growth &, std::optional<UINT64> *) const override
    {
        return EFI_SUCCESS; // the firmware decides
    }

    EFI_STATUS write(const runtime_services &services, int, const std::string &file_name, UINT32 attributes,
                     std::initializer_list<byte_view> data) const override
    {
        return write_efivarfs(services.variables.get(), file_name.c_str(), file_contents(attributes, data));
    }

    EFI_STATUS remove(const runtime_services &services, int, const std::string &file_name,
                      UINT32 attributes) const override
    {
        return remove_efivarfs(services.variables.get(), file_name.c_str(), attributes);
    }

    EFI_STATUS space(const runtime_services &services, variable_space *space) const override
    {
        return efivarfs_space(services.variables.get(), space);
    }
};

constinit const in_folder folder_place;
constinit const on_efivarfs efivarfs_place;

} // namespace

const variable_place &place_of(store_kind kind)
{
    switch (kind) {
    case store_kind::efivarfs:
        return efivarfs_place;
    case store_kind::image:
        return image_place;
    case store_kind::none:
    case store_kind::folder:
        break;
    }
    return folder_place;
}

int load_variable(const runtime_services &services, const std::string &file_name, stored_variable *found)
{
    return place_of(services.kind).load(services, file_name, found);
}

EFI_STATUS read_variable(const runtime_services &services, const std::string &file_name,
                         stored_variable *found)
{
    return status_of(load_variable(services, file_name, found));
}

std::size_t data_size_of(const runtime_services &services, const std::string &file_name)
{
    if (services.kind == store_kind::image)
        return 0;
    // As an efivarfs makes its files, and this library. Who may not read another one is told so by reading.
    constexpr mode_t for_all = S_IRUSR | S_IRGRP | S_IROTH;
    struct stat info = {};
    if (fstatat(services.variables.get(), file_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        !may_hold_variable(info) || (info.st_mode & for_all) != for_all)
        return 0;
    return static_cast<std::size_t>(info.st_size) - sizeof(UINT32);
}

EFI_STATUS find_variable(const runtime_services &services, const std::string &file_name, bool *found)
{
    return place_of(services.kind).find(services, file_name, found);
}

locked_store::locked_store(const runtime_services &services) : lock(services.root)
{
    failure = lock.status();
    if (failure != EFI_SUCCESS)
        return;
    variables = open_for_reading(services.variables.get());
    if (!variables)
        failure = status_of_folder(errno);
}

EFI_STATUS write_variable(const runtime_services &services, int folder, const std::string &file_name,
                          UINT32 attributes, std::initializer_list<byte_view> data,
                          std::optional<UINT64> total)
{
    forget_space_used(services);
    const EFI_STATUS status = place_of(services.kind).write(services, folder, file_name, attributes, data);
    if (status == EFI_SUCCESS && total)
        keep_space_used(services, *total);
    return status;
}

EFI_STATUS remove_variable(const runtime_services &services, int folder, const std::string &file_name,
                           UINT32 attributes)
{
    forget_space_used(services);
    return place_of(services.kind).remove(services, folder, file_name, attributes);
}

EFI_STATUS capacity_of(const runtime_services &services, capacity *limits)
{
    constexpr const char *file_name = "capacity";
    std::array<std::int64_t, 2> numbers = {};
    bool found = false;
    if (const EFI_STATUS status = read_state(services, file_name, numbers, &found); status != EFI_SUCCESS)
        return status;
    *limits = {};
    if (!found)
        return EFI_SUCCESS;
    for (std::int64_t number : numbers) {
        if (number < 1 || number > static_cast<std::int64_t>(largest_variable_file - sizeof(UINT32)))
            return refuse_state(file_name);
    }
    *limits = {static_cast<UINT64>(numbers[0]), static_cast<UINT64>(numbers[1])};
    return EFI_SUCCESS;
}

UINT64 space_taken(std::size_t name_units, std::size_t data_size)
{
    return sizeof(UINT32) + (name_units + 1) * sizeof(CHAR16) + data_size;
}

EFI_STATUS space_used(const runtime_services &services, stopped_writers temporaries, UINT64 *used)
{
    locked_knowledge *known = knowledge_of(services.root);
    const bool cleans_up = temporaries == stopped_writers::clean_up;
    if (known != nullptr && known->space_used && !(cleans_up && known->temporaries)) {
        *used = *known->space_used;
        return EFI_SUCCESS;
    }
    std::vector<std::string> names;
    if (const int error = list_folder(services.variables.get(), &names); error != 0)
        return status_of_folder(error);
    UINT64 total = 0;
    bool left = false;
    for (const std::string &name : names) {
        if (is_temporary(name)) {
            left = left || !cleans_up;
            if (cleans_up)
                unlinkat(services.variables.get(), name.c_str(), 0);
        }
        const auto identity = identity_of(name);
        if (!identity)
            continue;
        std::size_t size = 0;
        if (const int error = variable_file_size(services, name.c_str(), &size); error != 0)
            return status_of(error);
        if (size != 0)
            total += space_taken(identity->name.size(), size - sizeof(UINT32));
    }
    if (known != nullptr) {
        known->space_used = total;
        known->temporaries = left;
    }
    *used = total;
    return EFI_SUCCESS;
}

} // namespace machine
