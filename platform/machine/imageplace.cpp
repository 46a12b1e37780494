// SPDX-License-Identifier: MIT
// Variables in the file of a stopped machine. It is read for each request: a writer exchanges the whole file,
// so that each request sees all of a change or nothing of it.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/machine/debug.h"
#include "platform/machine/imagefile.h"
#include "platform/machine/place.h"

namespace machine {

namespace {

// The image was sound when it was opened: one that is not there any more is no unknown variable.
EFI_STATUS status_of_image(int error)
{
    return error == EBUSY ? EFI_ACCESS_DENIED : status_of_folder(error);
}

EFI_STATUS apply(const runtime_services &services, const std::string &file_name, const new_value *value)
{
    opened_image image;
    if (const int error = read_image(services.root, &image); error != 0)
        return status_of_image(error);
    if (value == nullptr && image.store->find(file_name) == nullptr)
        return EFI_NOT_FOUND;
    if (!image.store->change(file_name, value))
        return EFI_OUT_OF_RESOURCES;
    return status_of_image(write_image(services.root, image));
}

class in_image final : public variable_place {
public:
    int load(const runtime_services &services, const std::string &file_name,
             stored_variable *found) const override
    {
        opened_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return error == ENOENT ? EIO : error;
        const image_variable *variable = image.store->find(file_name);
        if (variable == nullptr)
            return ENOENT;
        found->attributes = variable->attributes;
        found->contents.resize(sizeof variable->attributes);
        std::memcpy(found->contents.data(), &variable->attributes, sizeof variable->attributes);
        found->contents.insert(found->contents.end(), variable->data.begin(), variable->data.end());
        return 0;
    }

    EFI_STATUS find(const runtime_services &services, const std::string &file_name,
                    bool *found) const override
    {
        opened_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        *found = image.store->find(file_name) != nullptr;
        return EFI_SUCCESS;
    }

    int list(const runtime_services &services, std::vector<std::string> *file_names) const override
    {
        opened_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return error;
        std::vector<std::string> names;
        for (const image_variable &each : image.store->variables()) {
            if (each.file_name.empty())
                debug("skipped a variable at byte %zu of the store: its name cannot be a file's", each.begin);
            else if (image.store->find(each.file_name) != nullptr)
                names.push_back(each.file_name);
        }
        // Of two with one name the first counts.
        std::ranges::sort(names);
        names.erase(std::unique(names.begin(), names.end()), names.end());
        *file_names = std::move(names);
        return 0;
    }

    EFI_STATUS check_space(const runtime_services &services, const growth &wanted,
                           std::optional<UINT64> *) const override
    {
        opened_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        return wanted.after > image.store->largest_variable() ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
    }

    EFI_STATUS write(const runtime_services &services, int, const std::string &file_name, UINT32 attributes,
                     std::initializer_list<byte_view> data) const override
    {
        const new_value value = {attributes, data};
        return apply(services, file_name, &value);
    }

    EFI_STATUS remove(const runtime_services &services, int, const std::string &file_name,
                      UINT32) const override
    {
        return apply(services, file_name, nullptr);
    }

    EFI_STATUS space(const runtime_services &services, variable_space *space) const override
    {
        opened_image image;
        if (const int error = read_image(services.root, &image); error != 0)
            return status_of_image(error);
        *space = {image.store->capacity(), image.store->free_space(), image.store->largest_variable()};
        return EFI_SUCCESS;
    }
};

constinit const in_image the_place;

} // namespace

constinit const variable_place &image_place = the_place;

} // namespace machine
