// SPDX-License-Identifier: MIT
#include "platform/machine/variables.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/machine/debug.h"
#include "platform/machine/lock.h"
#include "platform/machine/store.h"
#include "src/base/guid.h"
#include "src/base/variable.h"

namespace machine {

namespace {

using ovra::authenticated;
using ovra::volatile_attributes;

constexpr UINT32 signed_attributes = authenticated | ovra::enhanced_authenticated;
constexpr UINT32 plain = ovra::boot_variable_attributes | EFI_VARIABLE_APPEND_WRITE;

// Nobody can check signatures without the firmware, which does so on an efivarfs.
EFI_STATUS check_attributes(store_kind kind, UINT32 attributes)
{
    UINT32 known = plain | authenticated;
    if (kind == store_kind::efivarfs)
        known |= ovra::hardware_error_record;
    if ((attributes & ~known) != 0 || (attributes & EFI_VARIABLE_BOOTSERVICE_ACCESS) == 0)
        return EFI_INVALID_PARAMETER;
    if (kind != store_kind::efivarfs && (attributes & authenticated) != 0)
        return EFI_UNSUPPORTED;
    return EFI_SUCCESS;
}

// One request to change a variable, once its arguments have been checked.
struct change {
    const runtime_services &services;
    int folder; // a locked_store's
    std::string file_name;
    name_view name;
    bool is_global;
    UINT32 attributes;
    byte_view data;
};

// Writes what fits: `written` are the parts of the data that the file gets, of a variable of `size` bytes
// then.
EFI_STATUS write_within(const change &request, std::size_t old_size, std::size_t size, UINT32 attributes,
                        std::initializer_list<byte_view> written)
{
    std::optional<UINT64> total;
    const EFI_STATUS status =
        place_of(request.services.kind)
            .check_space(request.services, {request.name.size(), old_size, size}, &total);
    if (status != EFI_SUCCESS)
        return status;
    return write_variable(request.services, request.folder, request.file_name, attributes, written, total);
}

// Volatile variables belong to the firmware once the system runs. Every machine that has started has
// BootCurrent; this one may not have started yet.
bool is_read_only(const change &request, bool exists, const stored_variable &old)
{
    if (request.services.kind == store_kind::efivarfs)
        return false;
    if (exists)
        return (old.attributes & EFI_VARIABLE_NON_VOLATILE) == 0;
    constexpr std::u16string_view boot_current = u"BootCurrent";
    return request.attributes == volatile_attributes && std::ranges::equal(request.name, boot_current) &&
           request.is_global;
}

// New variables that a running system cannot make.
EFI_STATUS check_new(const change &request)
{
    // The kernel takes each byte of a new file's name for one unit (fs/efivarfs/inode.c, efivarfs_create),
    // and shows "/" as "!".
    const bool writable =
        std::ranges::all_of(request.name, [](CHAR16 unit) { return unit < 0x80 && unit != u'/'; });
    if (!writable) {
        debug("refused the new variable '%s': the kernel would give it another name",
              request.file_name.c_str());
        return EFI_UNSUPPORTED;
    }
    constexpr UINT32 needed = EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_RUNTIME_ACCESS;
    if (request.services.kind != store_kind::efivarfs && (request.attributes & needed) != needed)
        return EFI_INVALID_PARAMETER;
    return EFI_SUCCESS;
}

EFI_STATUS append(const change &request, bool exists, const stored_variable &old)
{
    if (request.data.empty())
        return exists ? EFI_SUCCESS : EFI_NOT_FOUND;
    const byte_view before = exists ? old.data() : byte_view();
    const std::size_t size = before.size() + request.data.size();
    if (request.services.kind == store_kind::efivarfs) // the firmware appends
        return write_within(request, before.size(), size, request.attributes | EFI_VARIABLE_APPEND_WRITE,
                            {request.data});
    return write_within(request, before.size(), size, request.attributes, {before, request.data});
}

EFI_STATUS write(const change &request, bool exists, const stored_variable &old)
{
    return write_within(request, exists ? old.data().size() : 0, request.data.size(), request.attributes,
                        {request.data});
}

EFI_STATUS apply(change request)
{
    const bool appending = (request.attributes & EFI_VARIABLE_APPEND_WRITE) != 0;
    const bool deleting = request.attributes == 0 || (request.data.empty() && !appending);
    request.attributes &= ~EFI_VARIABLE_APPEND_WRITE;

    stored_variable old;
    const int state = load_variable(request.services, request.file_name, &old);
    if (state != 0 && state != ENOENT && state != EBADMSG)
        return status_of(state);
    const bool exists = state == 0;
    if (exists && !deleting && old.attributes != request.attributes)
        return EFI_INVALID_PARAMETER;
    if (is_read_only(request, exists, old))
        return EFI_WRITE_PROTECTED;
    // The keys of a real machine, which its firmware gives up to their holder alone.
    if (request.services.kind == store_kind::image && exists && (old.attributes & signed_attributes) != 0)
        return EFI_SECURITY_VIOLATION;
    if (deleting) // damaged variables too
        return state == ENOENT
                   ? EFI_NOT_FOUND
                   : remove_variable(request.services, request.folder, request.file_name, old.attributes);
    if (appending && state == EBADMSG)
        return EFI_DEVICE_ERROR;
    if (!exists && !(appending && request.data.empty())) {
        if (const EFI_STATUS status = check_new(request); status != EFI_SUCCESS)
            return status;
    }
    return appending ? append(request, exists, old) : write(request, exists, old);
}

} // namespace

EFI_STATUS get_variable(const runtime_services &services, name_view name, const EFI_GUID &guid,
                        UINT32 *attributes, UINTN *size, void *data)
{
    const auto file_name = file_name_of(name, guid);
    if (!file_name || size == nullptr)
        return EFI_INVALID_PARAMETER;
    if (data == nullptr && attributes == nullptr) { // only the size is asked for
        const std::size_t there = data_size_of(services, *file_name);
        if (there > *size) {
            *size = there;
            return EFI_BUFFER_TOO_SMALL;
        }
    }
    stored_variable found;
    if (const EFI_STATUS status = read_variable(services, *file_name, &found); status != EFI_SUCCESS)
        return status;
    const byte_view value = found.data();
    const bool fits = value.size() <= *size;
    if (fits && data == nullptr)
        return EFI_INVALID_PARAMETER;
    if (attributes != nullptr)
        *attributes = found.attributes;
    *size = value.size();
    if (!fits)
        return EFI_BUFFER_TOO_SMALL;
    std::memcpy(data, value.data(), value.size());
    return EFI_SUCCESS;
}

EFI_STATUS set_variable(const runtime_services &services, name_view name, const EFI_GUID &guid,
                        UINT32 attributes, UINTN size, const void *data)
{
    auto file_name = file_name_of(name, guid);
    if (!file_name || (data == nullptr && size != 0))
        return EFI_INVALID_PARAMETER;
    if (attributes != 0) {
        if (const EFI_STATUS status = check_attributes(services.kind, attributes); status != EFI_SUCCESS)
            return status;
    }
    if (size > largest_variable_file - sizeof attributes)
        return EFI_INVALID_PARAMETER;
    const locked_store store(services);
    if (store.status() != EFI_SUCCESS)
        return store.status();
    const bool is_global = ovra::same_guid(guid, ovra::global_variable_guid);
    return apply({services, store.folder(), std::move(*file_name), name, is_global, attributes,
                  byte_view(static_cast<const std::byte *>(data), static_cast<std::size_t>(size))});
}

EFI_STATUS query_variable_info(const runtime_services &services, UINT32 attributes, variable_space *space)
{
    if (const EFI_STATUS status = check_attributes(services.kind, attributes); status != EFI_SUCCESS)
        return status;
    return place_of(services.kind).space(services, space);
}

} // namespace machine
