/* SPDX-License-Identifier: MIT */
/* The records of the runtime services, filled in and handed to libdevns. */
#ifndef TESTS_PLATFORM_DEVNS_CALLS_H
#define TESTS_PLATFORM_DEVNS_CALLS_H

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>

#include "platform/include/devns.h"
#include "tests/platform/machine_folder.h"

namespace platform_test {

/* An open runtime-services device; -1 when it could not be opened. */
class device {
public:
    device() : number(devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR)) {}
    device(const device &) = delete;
    device &operator=(const device &) = delete;
    ~device()
    {
        if (number >= 0)
            devns_close(number);
    }
    [[nodiscard]] int fd() const { return number; }

private:
    int number;
};

inline constexpr EFI_STATUS not_answered = 0x5a5a5a5a;

/* Each gives the firmware's status, or not_answered when devns_ioctl returned -1. */

inline EFI_STATUS set_variable(int fd, std::u16string_view name, UINT32 attributes, std::string_view data,
                               const EFI_GUID &guid = global_guid)
{
    std::vector<CHAR16> units = ucs2(name);
    EFI_GUID vendor = guid;
    UINTN size = data.size();
    std::string copy(data);
    EFI_STATUS status = not_answered;
    ovra_variable_args_t args = {
        units.data(), &vendor, &attributes, &size, copy.data(), &status, units.size() * sizeof(CHAR16)};
    return devns_ioctl(fd, OVRA_SET_VARIABLE, &args) == 0 ? status : not_answered;
}

struct value {
    EFI_STATUS status = not_answered;
    UINT32 attributes = 0;
    std::string data;
};

inline value get_variable(int fd, std::u16string_view name, const EFI_GUID &guid = global_guid)
{
    std::vector<CHAR16> units = ucs2(name);
    EFI_GUID vendor = guid;
    value found;
    found.data.resize(100'000);
    UINTN size = found.data.size();
    EFI_STATUS status = not_answered;
    ovra_variable_args_t args = {units.data(),
                                 &vendor,
                                 &found.attributes,
                                 &size,
                                 found.data.data(),
                                 &status,
                                 units.size() * sizeof(CHAR16)};
    if (devns_ioctl(fd, OVRA_GET_VARIABLE, &args) == 0)
        found.status = status;
    found.data.resize(found.status == EFI_SUCCESS ? static_cast<std::size_t>(size) : 0);
    return found;
}

/* A walk, one step at a time. */
struct walk {
    std::vector<CHAR16> name = std::vector<CHAR16>(512);
    EFI_GUID guid = {};

    EFI_STATUS next(int fd)
    {
        UINTN size = name.size() * sizeof(CHAR16);
        EFI_STATUS status = not_answered;
        ovra_get_next_variable_name_args_t args = {&size, name.data(), &guid, &status};
        return devns_ioctl(fd, OVRA_GET_NEXT_VARIABLE_NAME, &args) == 0 ? status : not_answered;
    }
    [[nodiscard]] std::u16string text() const
    {
        std::u16string units;
        for (CHAR16 unit : name) {
            if (unit == 0)
                break;
            units.push_back(unit);
        }
        return units;
    }
};

/* The names of all variables, in order; `*ended` gets the status that ended the walk. */
inline std::vector<std::u16string> walk_all(int fd, EFI_STATUS *ended = nullptr)
{
    std::vector<std::u16string> names;
    walk steps;
    EFI_STATUS status = EFI_SUCCESS;
    while ((status = steps.next(fd)) == EFI_SUCCESS)
        names.push_back(steps.text());
    if (ended != nullptr)
        *ended = status;
    return names;
}

inline int reset(int fd, int type)
{
    ovra_reset_system_args_t args = {};
    args.reset_type = static_cast<EFI_RESET_TYPE>(type);
    return devns_ioctl(fd, OVRA_RESET_SYSTEM, &args);
}

} // namespace platform_test

#endif
