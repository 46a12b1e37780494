// SPDX-License-Identifier: MIT
// The calls of libdevns, served from the state of the driver.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/include/devns.h"
#include "tests/fakes/driver_state.h"

namespace fakes {

namespace {

EFI_STATUS get_variable(driver_state &driver, const ovra_variable_args_t &args, const request &seen)
{
    if (!args.variable_name || !args.vendor_guid || !args.data_size)
        return EFI_INVALID_PARAMETER;
    const auto found = driver.index.find(key_of(seen.name, *args.vendor_guid));
    if (found == driver.index.end())
        return EFI_NOT_FOUND;
    const stored &variable = *found->second;
    const bool fits = *args.data_size >= variable.data.size();
    *args.data_size = variable.data.size();
    if (!fits)
        return EFI_BUFFER_TOO_SMALL;
    if (args.attributes)
        *args.attributes = variable.attributes;
    if (!args.data && !variable.data.empty())
        return EFI_INVALID_PARAMETER;
    std::copy(variable.data.begin(), variable.data.end(), static_cast<uint8_t *>(args.data));
    return EFI_SUCCESS;
}

EFI_STATUS set_variable(driver_state &driver, const ovra_variable_args_t &args, const request &seen)
{
    if (!args.variable_name || !args.vendor_guid || !args.data_size || !args.attributes)
        return EFI_INVALID_PARAMETER;
    if (seen.name.empty() || (!args.data && *args.data_size != 0))
        return EFI_INVALID_PARAMETER;
    const uint32_t attributes = *args.attributes & ~EFI_VARIABLE_APPEND_WRITE;
    const bool append = (*args.attributes & EFI_VARIABLE_APPEND_WRITE) != 0;
    if ((attributes & EFI_VARIABLE_RUNTIME_ACCESS) != 0 &&
        (attributes & EFI_VARIABLE_BOOTSERVICE_ACCESS) == 0)
        return EFI_INVALID_PARAMETER;
    const auto found = driver.index.find(key_of(seen.name, *args.vendor_guid));
    const bool exists = found != driver.index.end();
    if (attributes == 0 || (*args.data_size == 0 && !append)) {
        if (!exists)
            return EFI_NOT_FOUND;
        erase_variable(driver, found);
        return EFI_SUCCESS;
    }
    if (exists && found->second->attributes != attributes)
        return EFI_INVALID_PARAMETER;
    const uint64_t old_size = exists ? found->second->data.size() : 0;
    bytes data = append && exists ? found->second->data : bytes();
    data.insert(data.end(), seen.data.begin(), seen.data.end());
    if (data.size() > driver.single_capacity ||
        driver.store_size - old_size + data.size() > driver.store_capacity)
        return EFI_OUT_OF_RESOURCES;
    put_variable(seen.name, data, attributes, *args.vendor_guid);
    return EFI_SUCCESS;
}

EFI_STATUS give_name(const ovra_get_next_variable_name_args_t &args, const std::u16string &name,
                     const EFI_GUID &guid)
{
    const UINTN needed = (name.size() + 1) * sizeof(CHAR16);
    const bool fits = *args.variable_name_size >= needed;
    *args.variable_name_size = needed;
    if (!fits)
        return EFI_BUFFER_TOO_SMALL;
    std::copy(name.begin(), name.end(), args.variable_name);
    args.variable_name[name.size()] = 0;
    *args.vendor_guid = guid;
    return EFI_SUCCESS;
}

EFI_STATUS next_variable_name(driver_state &driver, const ovra_get_next_variable_name_args_t &args,
                              const request &seen)
{
    if (!args.variable_name_size || !args.variable_name || !args.vendor_guid)
        return EFI_INVALID_PARAMETER;
    auto next = driver.store.begin();
    if (!seen.name.empty()) {
        const auto found = driver.index.find(key_of(seen.name, *args.vendor_guid));
        if (found == driver.index.end())
            return EFI_INVALID_PARAMETER;
        next = std::next(found->second);
    }
    if (next == driver.store.end())
        return EFI_NOT_FOUND;
    return give_name(args, next->name, next->guid);
}

// Whether the script had a step for this call; `answer` stays empty when the step is a failed ioctl.
bool scripted(driver_state &driver, const ovra_get_next_variable_name_args_t &args,
              std::optional<EFI_STATUS> &answer)
{
    if (!driver.script)
        return false;
    if (driver.script_position == driver.script->size()) {
        if (!driver.repeat_last || driver.script->empty()) {
            answer = EFI_NOT_FOUND;
            return true;
        }
        --driver.script_position;
    }
    const enumeration_step &step = (*driver.script)[driver.script_position++];
    if (step.error != 0) {
        errno = step.error;
        return true;
    }
    answer = step.status;
    if (step.status == EFI_SUCCESS) {
        answer = give_name(args, step.name, step.guid);
        if (*answer != EFI_SUCCESS)
            --driver.script_position;
    }
    if (step.size)
        *args.variable_name_size = *step.size;
    return true;
}

EFI_STATUS query_info(const storage_info &info, const ovra_query_variable_info_args_t &args)
{
    *args.max_var_storage_size = info.max_storage;
    *args.remaining_var_storage_size = info.remaining_storage;
    *args.max_var_size = info.max_size;
    return EFI_SUCCESS;
}

bool applies(rule &rule, const request &seen)
{
    if (rule.command != any_command && rule.command != seen.command)
        return false;
    if (rule.name && *rule.name != seen.name)
        return false;
    if (rule.skip > 0) {
        --rule.skip;
        return false;
    }
    if (rule.times == 0)
        return false;
    if (rule.times != forever)
        --rule.times;
    return true;
}

// The rule that decides; each counts, whichever does.
const rule *deciding_rule(driver_state &driver, const request &seen)
{
    const rule *decides = nullptr;
    for (rule &candidate : driver.rules)
        if (applies(candidate, seen))
            decides = &candidate;
    return decides;
}

// Carries the request out. Empty: the ioctl failed, errno says why.
std::optional<EFI_STATUS> serve(driver_state &driver, const request &seen, void *record)
{
    if (const rule *decides = deciding_rule(driver, seen)) {
        if (decides->error == 0)
            return decides->status;
        errno = decides->error;
        return std::nullopt;
    }
    switch (seen.command) {
    case OVRA_GET_VARIABLE:
        return get_variable(driver, copy_of<ovra_variable_args_t>(record), seen);
    case OVRA_SET_VARIABLE:
        return set_variable(driver, copy_of<ovra_variable_args_t>(record), seen);
    case OVRA_GET_NEXT_VARIABLE_NAME: {
        const auto args = copy_of<ovra_get_next_variable_name_args_t>(record);
        std::optional<EFI_STATUS> answer;
        return scripted(driver, args, answer) ? answer : next_variable_name(driver, args, seen);
    }
    case OVRA_QUERY_VARIABLE_INFO:
        return query_info(driver.info, copy_of<ovra_query_variable_info_args_t>(record));
    case OVRA_GET_TIME: {
        const auto args = copy_of<ovra_get_time_args_t>(record);
        *args.time = driver.clock;
        if (args.capabilities)
            *args.capabilities = driver.capabilities;
        return EFI_SUCCESS;
    }
    case OVRA_SET_TIME:
        if (!seen.time)
            return EFI_INVALID_PARAMETER;
        driver.clock = *seen.time;
        return EFI_SUCCESS;
    case OVRA_GET_WAKEUP_TIME: {
        const auto args = copy_of<ovra_get_wakeup_time_args_t>(record);
        *args.enabled = driver.alarm.enabled;
        *args.pending = driver.alarm.pending;
        *args.time = driver.alarm.time;
        return EFI_SUCCESS;
    }
    case OVRA_SET_WAKEUP_TIME:
        if (seen.enable == B_TRUE && !seen.time)
            return EFI_INVALID_PARAMETER;
        driver.alarm.enabled = seen.enable;
        if (seen.time)
            driver.alarm.time = *seen.time;
        return EFI_SUCCESS;
    case OVRA_RESET_SYSTEM:
        return EFI_SUCCESS;
    case OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT:
        *copy_of<ovra_get_next_high_monotonic_count_args_t>(record).high_count = driver.high_count++;
        return EFI_SUCCESS;
    default:
        errno = ENOTTY;
        return std::nullopt;
    }
}

} // namespace

} // namespace fakes

using fakes::the_driver;

int devns_open(const char *path, int flags)
{
    fakes::driver_state &driver = *the_driver();
    const int error = strcmp(path, DEVNS_RUNTIME_SERVICES) == 0 ? driver.absent : ENOENT;
    const int fd = error == 0 ? driver.next_descriptor++ : -1;
    driver.openings.push_back({path, flags, fd});
    if (error != 0) {
        errno = error;
        return -1;
    }
    driver.open.insert(fd);
    return fd;
}

int devns_ioctl(int fd, int command, void *record)
{
    fakes::driver_state &driver = *the_driver();
    if (!driver.open.contains(fd)) {
        ++driver.wrong_descriptors;
        errno = EBADF;
        return -1;
    }
    fakes::request seen = fakes::decode(fd, command, record);
    if (driver.hook)
        driver.hook(seen);
    seen.answer = fakes::serve(driver, seen, record);
    const int error = errno;
    if (seen.answer && seen.ret)
        memcpy(const_cast<void *>(seen.ret), &*seen.answer, sizeof(EFI_STATUS));
    driver.requests.push_back(seen);
    errno = error;
    return seen.answer ? 0 : -1;
}

int devns_close(int fd)
{
    fakes::driver_state &driver = *the_driver();
    if (driver.open.erase(fd) == 0) {
        ++driver.wrong_descriptors;
        errno = EBADF;
        return -1;
    }
    ++driver.closings;
    if (driver.errno_of_close != 0)
        errno = driver.errno_of_close;
    return 0;
}

ssize_t devns_readlink(const char *path, char *buf, size_t size)
{
    const auto found = the_driver()->links.find(path);
    if (found == the_driver()->links.end()) {
        errno = ENOENT;
        return -1;
    }
    const size_t length = std::min(size, found->second.size());
    memcpy(buf, found->second.data(), length);
    return static_cast<ssize_t>(length);
}
