// SPDX-License-Identifier: MIT
#include "platform/devns/runtime.h"

#include <cerrno>
#include <cstring>

#include "platform/include/devns.h"
#include "platform/machine/clock.h"
#include "platform/machine/enumerate.h"
#include "platform/machine/reset.h"
#include "platform/machine/variables.h"

namespace {

using machine::runtime_services;

template <typename... pointer>
bool any_null(const pointer *...pointers)
{
    return ((pointers == nullptr) || ...);
}

int answer(EFI_STATUS *ret, EFI_STATUS status)
{
    *ret = status;
    return 0;
}

int get_variable(const runtime_services &services, const ovra_variable_args_t &args)
{
    if (any_null(args.variable_name, args.vendor_guid, args.ret))
        return bad_address();
    const auto name = machine::terminated_name(args.variable_name, args.variable_name_size);
    if (!name)
        return answer(args.ret, EFI_INVALID_PARAMETER);
    return answer(args.ret, machine::get_variable(services, *name, *args.vendor_guid, args.attributes,
                                                  args.data_size, args.data));
}

int get_next_variable_name(const runtime_services &services, const ovra_get_next_variable_name_args_t &args)
{
    if (any_null(args.variable_name_size, args.variable_name, args.vendor_guid, args.ret))
        return bad_address();
    const EFI_STATUS status =
        machine::next_variable(services, args.variable_name_size, args.variable_name, args.vendor_guid);
    if (status != EFI_SUCCESS && !machine::has_folder(services)) {
        errno = EBADF;
        return -1;
    }
    return answer(args.ret, status);
}

int set_variable(const runtime_services &services, const ovra_variable_args_t &args)
{
    if (any_null(args.variable_name, args.vendor_guid, args.attributes, args.data_size, args.ret))
        return bad_address();
    const auto name = machine::terminated_name(args.variable_name, args.variable_name_size);
    if (!name)
        return answer(args.ret, EFI_INVALID_PARAMETER);
    return answer(args.ret, machine::set_variable(services, *name, *args.vendor_guid, *args.attributes,
                                                  *args.data_size, args.data));
}

int query_variable_info(const runtime_services &services, const ovra_query_variable_info_args_t &args)
{
    if (any_null(args.max_var_storage_size, args.remaining_var_storage_size, args.max_var_size, args.ret))
        return bad_address();
    machine::variable_space space;
    const EFI_STATUS status = machine::query_variable_info(services, args.attributes, &space);
    if (status == EFI_SUCCESS) {
        *args.max_var_storage_size = space.store;
        *args.remaining_var_storage_size = space.remaining;
        *args.max_var_size = space.variable;
    }
    return answer(args.ret, status);
}

int get_time(const runtime_services &services, const ovra_get_time_args_t &args)
{
    if (any_null(args.time, args.ret))
        return bad_address();
    return answer(args.ret, machine::get_time(services, args.time, args.capabilities));
}

int set_time(const runtime_services &services, const ovra_set_time_args_t &args)
{
    if (any_null(args.time, args.ret))
        return bad_address();
    return answer(args.ret, machine::set_time(services, *args.time));
}

int get_wakeup_time(const runtime_services &services, const ovra_get_wakeup_time_args_t &args)
{
    if (any_null(args.enabled, args.pending, args.time, args.ret))
        return bad_address();
    machine::wakeup alarm;
    const EFI_STATUS status = machine::get_wakeup_time(services, &alarm);
    if (status == EFI_SUCCESS) {
        *args.enabled = alarm.enabled ? B_TRUE : B_FALSE;
        *args.pending = alarm.pending ? B_TRUE : B_FALSE;
        *args.time = alarm.time;
    }
    return answer(args.ret, status);
}

// An enumeration of a record, where any number may be.
template <typename enumeration>
UINT32 number_of(const enumeration &field)
{
    static_assert(sizeof field == sizeof(UINT32));
    UINT32 number = 0;
    std::memcpy(&number, &field, sizeof number);
    return number;
}

int set_wakeup_time(const runtime_services &services, const ovra_set_wakeup_time_args_t &args)
{
    if (any_null(args.ret))
        return bad_address();
    return answer(args.ret, machine::set_wakeup_time(services, number_of(args.enable) != B_FALSE, args.time));
}

int reset_system(const runtime_services &services, const ovra_reset_system_args_t &args)
{
    return machine::reset_system(services, number_of(args.reset_type));
}

int get_next_high_monotonic_count(const runtime_services &services,
                                  const ovra_get_next_high_monotonic_count_args_t &args)
{
    if (any_null(args.high_count, args.ret))
        return bad_address();
    return answer(args.ret, machine::next_high_monotonic_count(services, args.high_count));
}

// Calls a command with its own kind of record.
template <typename args>
int with(int (*serve)(const runtime_services &, const args &), const runtime_services &services,
         const void *record)
{
    return record == nullptr ? bad_address() : serve(services, *static_cast<const args *>(record));
}

} // namespace

int bad_address()
{
    errno = EFAULT;
    return -1;
}

int serve_runtime_command(const runtime_services &services, int command, void *record)
{
    switch (command) {
    case OVRA_GET_VARIABLE:
        return with(get_variable, services, record);
    case OVRA_GET_NEXT_VARIABLE_NAME:
        return with(get_next_variable_name, services, record);
    case OVRA_SET_VARIABLE:
        return with(set_variable, services, record);
    case OVRA_QUERY_VARIABLE_INFO:
        return with(query_variable_info, services, record);
    case OVRA_GET_TIME:
        return with(get_time, services, record);
    case OVRA_SET_TIME:
        return with(set_time, services, record);
    case OVRA_GET_WAKEUP_TIME:
        return with(get_wakeup_time, services, record);
    case OVRA_SET_WAKEUP_TIME:
        return with(set_wakeup_time, services, record);
    case OVRA_RESET_SYSTEM:
        return with(reset_system, services, record);
    case OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT:
        return with(get_next_high_monotonic_count, services, record);
    default:
        errno = ENOTTY;
        return -1;
    }
}
