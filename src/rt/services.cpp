// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fcntl.h>

#include "platform/include/devns.h"
#include "src/base/cancel.h"
#include "src/rt/rt.h"

int ovra_common(ovra_hdl_t hdl, int command, void *record)
{
    const ovra::uncancelled asking;
    if (hdl && hdl->ovra_fd != -1)
        return devns_ioctl(hdl->ovra_fd, command, record) == -1 ? -1 : 0;

    // Without a handle of its own, or in test-file mode, a call opens the driver for itself.
    const int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    if (fd == -1)
        return -1;
    const int result = devns_ioctl(fd, command, record);
    const int error = errno;
    devns_close(fd);
    errno = error;
    return result == -1 ? -1 : 0;
}

int ovra_get_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 *attributes, UINTN *data_size,
                      void *data, EFI_STATUS *status)
{
    ovra_variable_args_t args = {name, guid, attributes, data_size, data, status, unicode_strlen(name)};
    return ovra_common(hdl, OVRA_GET_VARIABLE, &args);
}

int ovra_set_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 attributes, UINTN data_size,
                      void *data, EFI_STATUS *status)
{
    ovra_variable_args_t args = {name, guid, &attributes, &data_size, data, status, unicode_strlen(name)};
    return ovra_common(hdl, OVRA_SET_VARIABLE, &args);
}

int ovra_get_next_variable_name(ovra_hdl_t hdl, UINTN *name_size, CHAR16 *name, EFI_GUID *guid,
                                EFI_STATUS *status)
{
    ovra_get_next_variable_name_args_t args = {name_size, name, guid, status};
    return ovra_common(hdl, OVRA_GET_NEXT_VARIABLE_NAME, &args);
}

int ovra_query_variable_info(ovra_hdl_t hdl, UINT32 attributes, UINT64 *max_storage,
                             UINT64 *remaining_storage, UINT64 *max_size, EFI_STATUS *status)
{
    ovra_query_variable_info_args_t args = {attributes, max_storage, remaining_storage, max_size, status};
    return ovra_common(hdl, OVRA_QUERY_VARIABLE_INFO, &args);
}

int ovra_get_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities, EFI_STATUS *status)
{
    ovra_get_time_args_t args = {time, capabilities, status};
    return ovra_common(hdl, OVRA_GET_TIME, &args);
}

int ovra_set_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_STATUS *status)
{
    ovra_set_time_args_t args = {time, status};
    return ovra_common(hdl, OVRA_SET_TIME, &args);
}

int ovra_get_wakeup_time(ovra_hdl_t hdl, BOOLEAN *enabled, BOOLEAN *pending, EFI_TIME *time,
                         EFI_STATUS *status)
{
    ovra_get_wakeup_time_args_t args = {enabled, pending, time, status};
    return ovra_common(hdl, OVRA_GET_WAKEUP_TIME, &args);
}

int ovra_set_wakeup_time(ovra_hdl_t hdl, BOOLEAN enable, EFI_TIME *time, EFI_STATUS *status)
{
    ovra_set_wakeup_time_args_t args = {time, status, enable};
    return ovra_common(hdl, OVRA_SET_WAKEUP_TIME, &args);
}

int ovra_reset_system(ovra_hdl_t hdl, EFI_RESET_TYPE type, EFI_STATUS status, UINTN data_size, void *data)
{
    ovra_reset_system_args_t args = {data_size, status, data, type};
    return ovra_common(hdl, OVRA_RESET_SYSTEM, &args);
}

int ovra_get_next_high_monotonic_count(ovra_hdl_t hdl, UINT32 *high_count, EFI_STATUS *status)
{
    ovra_get_next_high_monotonic_count_args_t args = {high_count, status};
    return ovra_common(hdl, OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args);
}
