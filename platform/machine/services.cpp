// SPDX-License-Identifier: MIT
#include "platform/machine/services.h"

#include <cerrno>
#include <cstring>

#include <linux/magic.h>
#include <sys/vfs.h>

#include "platform/machine/debug.h"
#include "platform/machine/imagefile.h"

namespace machine {

store_kind kind_of_filesystem(std::uint64_t type)
{
    switch (type) {
    case EFIVARFS_MAGIC:
        return store_kind::efivarfs;
    case SYSFS_MAGIC:
        return store_kind::none;
    default:
        return store_kind::folder;
    }
}

bool has_folder(const runtime_services &services)
{
    return file_identity_of(services.variables.get()) == services.folder;
}

namespace {

bool open_variables_in_image(runtime_services *services)
{
    known_image image;
    if (const int error = read_image(services->root, &image); error != 0) {
        errno = error;
        return false;
    }
    services->kind = store_kind::image;
    services->variables = open_below(services->root.folder.get(), {"."}, missing_folders::fail);
    const auto folder = file_identity_of(services->variables.get());
    services->folder = folder.value_or(file_identity{});
    return folder.has_value();
}

} // namespace

std::unique_ptr<runtime_services> open_services()
{
    auto services = std::make_unique<runtime_services>();
    services->root = open_root_of_variables();
    if (!services->root.folder)
        return nullptr;
    if (!services->root.image.empty())
        return open_variables_in_image(services.get()) ? std::move(services) : nullptr;
    services->variables =
        open_below(services->root.folder.get(), {"sys", "firmware", "efi", "efivars"}, missing_folders::fail);
    if (!services->variables) {
        debug("no firmware variables: sys/firmware/efi/efivars: %s", std::strerror(errno));
        if (errno == ENOTDIR)
            errno = ENOENT;
        return nullptr;
    }
    const auto folder = file_identity_of(services->variables.get());
    struct statfs info = {};
    if (!folder || fstatfs(services->variables.get(), &info) != 0)
        return nullptr;
    services->folder = *folder;
    // statfs(2): f_type is a signed long, the magic numbers have 32 bits.
    services->kind = kind_of_filesystem(static_cast<std::uint32_t>(info.f_type));
    if (services->kind == store_kind::none) {
        debug("no firmware variables: efivarfs is not mounted at sys/firmware/efi/efivars");
        errno = ENOENT;
        return nullptr;
    }
    return services;
}

} // namespace machine
