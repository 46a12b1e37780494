// SPDX-License-Identifier: MIT
#include "platform/machine/image.h"

#include <algorithm>
#include <cstring>

#include "platform/machine/names.h"

namespace machine {

const image_variable *variable_image::find(const std::string &file_name) const
{
    const auto found = std::ranges::find(live, file_name, &image_variable::file_name);
    return found != live.end() && !found->data.empty() ? &*found : nullptr;
}

std::string file_name_in_image(byte_view name, const EFI_GUID &guid)
{
    std::vector<CHAR16> units(name.size() / sizeof(CHAR16));
    if (units.empty() || name.size() % sizeof(CHAR16) != 0)
        return {};
    std::memcpy(units.data(), name.data(), name.size());
    if (units.back() != 0)
        return {};
    units.pop_back();
    return file_name_of(units, guid).value_or(std::string()); // which takes no 0 within a name
}

bytes stored_name(const std::string &file_name, EFI_GUID *guid)
{
    auto identity = identity_of(file_name);
    if (!identity)
        return {};
    *guid = identity->guid;
    identity->name.push_back(0);
    const auto stored = std::as_bytes(std::span(identity->name));
    return {stored.begin(), stored.end()};
}

} // namespace machine
