// SPDX-License-Identifier: MIT
// Variables in the file of a stopped machine. A writer exchanges the whole file: each request sees all of a
// change or nothing of it.
#include <cerrno>
#include <cstring>

#include "platform/machine/imagefile.h"
#include "platform/machine/place.h"

namespace machine {

namespace {

// The image was sound when it was opened: one that is not there any more is no unknown variable.
EFI_STATUS status_of_image(int error)
{
    return error == EBUSY ? EFI_ACCESS_DENIED : status_of_folder(error);
}

EFI_STATUS apply(const runtime_services &services, int folder, const std::string &file_name,
                 const new_value *value)
{
    known_image image;
    if (const int error = read_image(services.root, &image); error != 0)
        return status_of_image(error);
    if (value == nullptr && image->store->find(file_name) == nullptr)
        return EFI_NOT_FOUND;
    auto changed = image->store->with(file_name, value);
    if (!changed)
        return EFI_OUT_OF_RESOURCES;
    const int error = write_image(services.root, folder, *image, std::move(changed));
    if (error != 0)
        errno = error; // callers say why
    return status_of_image(error);
}

class in_image final : public variable_place {
public:
    int load(const runtime_services &services, const std::string &file_name,
             stored_variable *found) const override
    {
        known_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return error == ENOENT ? EIO : error;
        const image_variable *variable = image->store->find(file_name);
        if (variable == nullptr)
            return ENOENT;
        found->attributes = variable->attributes;
        found->contents.resize(sizeof variable->attributes);
        std::memcpy(found->contents.data(), &variable->attributes, sizeof variable->attributes);
        const byte_view data = image->store->data_of(*variable);
        found->contents.insert(found->contents.end(), data.begin(), data.end());
        return 0;
    }

    EFI_STATUS find(const runtime_services &services, const std::string &file_name,
                    bool *found) const override
    {
        known_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        *found = image->store->find(file_name) != nullptr;
        return EFI_SUCCESS;
    }

    int list(const runtime_services &services, const name_taking &take) const override
    {
        known_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return error;
        for (const std::string &name : image->store->file_names())
            take(name);
        return 0;
    }

    EFI_STATUS check_space(const runtime_services &services, const growth &wanted,
                           std::optional<UINT64> *) const override
    {
        known_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        return wanted.after > image->store->largest_variable() ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
    }

    EFI_STATUS write(const runtime_services &services, int folder, const std::string &file_name,
                     UINT32 attributes, std::initializer_list<byte_view> data) const override
    {
        const new_value value = {attributes, data};
        return apply(services, folder, file_name, &value);
    }

    EFI_STATUS remove(const runtime_services &services, int folder, const std::string &file_name,
                      UINT32) const override
    {
        return apply(services, folder, file_name, nullptr);
    }

    EFI_STATUS space(const runtime_services &services, variable_space *space) const override
    {
        known_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        *space = {image->store->capacity(), image->store->free_space(), image->store->largest_variable()};
        return EFI_SUCCESS;
    }
};

constinit const in_image the_place;

} // namespace

constinit const variable_place &image_place = the_place;

} // namespace machine
