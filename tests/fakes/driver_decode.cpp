// SPDX-License-Identifier: MIT
// What a call of libdevns hands over.
#include "platform/include/devns.h"
#include "tests/fakes/driver_state.h"

namespace fakes {

namespace {

template <typename value>
std::optional<value> value_at(const value *pointer)
{
    return pointer ? std::optional<value>(*pointer) : std::nullopt;
}

bytes bytes_at(const void *pointer, size_t size)
{
    const auto *from = static_cast<const uint8_t *>(pointer);
    return pointer ? bytes(from, from + size) : bytes();
}

size_t record_size(int command)
{
    switch (command) {
    case OVRA_GET_VARIABLE:
    case OVRA_SET_VARIABLE:
        return sizeof(ovra_variable_args_t);
    case OVRA_GET_NEXT_VARIABLE_NAME:
        return sizeof(ovra_get_next_variable_name_args_t);
    case OVRA_QUERY_VARIABLE_INFO:
        return sizeof(ovra_query_variable_info_args_t);
    case OVRA_GET_TIME:
        return sizeof(ovra_get_time_args_t);
    case OVRA_SET_TIME:
        return sizeof(ovra_set_time_args_t);
    case OVRA_GET_WAKEUP_TIME:
        return sizeof(ovra_get_wakeup_time_args_t);
    case OVRA_SET_WAKEUP_TIME:
        return sizeof(ovra_set_wakeup_time_args_t);
    case OVRA_RESET_SYSTEM:
        return sizeof(ovra_reset_system_args_t);
    case OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT:
        return sizeof(ovra_get_next_high_monotonic_count_args_t);
    default:
        return 0;
    }
}

// The name up to its terminator, at most `size` bytes.
var_name name_at(const CHAR16 *name, UINTN size)
{
    var_name text;
    for (UINTN unit = 0; name && unit < size / sizeof(CHAR16) && name[unit] != 0; ++unit)
        text.push_back(name[unit]);
    return text;
}

void decode_variable(const ovra_variable_args_t &args, request *seen)
{
    seen->ret = args.ret;
    seen->variable_name_size = args.variable_name_size;
    seen->name_bytes = bytes_at(args.variable_name, args.variable_name_size);
    seen->name = name_at(args.variable_name, args.variable_name_size);
    seen->guid = value_at(args.vendor_guid);
    seen->attributes = value_at(args.attributes);
    seen->data_size = value_at(args.data_size);
    seen->data_address = args.data;
    if (seen->command == OVRA_SET_VARIABLE)
        seen->data = bytes_at(args.data, seen->data_size.value_or(0));
}

void decode_next_name(const ovra_get_next_variable_name_args_t &args, request *seen)
{
    seen->ret = args.ret;
    seen->variable_name_size = value_at(args.variable_name_size).value_or(0);
    seen->name = name_at(args.variable_name, seen->variable_name_size);
    seen->guid = value_at(args.vendor_guid);
}

void decode_reset(const ovra_reset_system_args_t &args, request *seen)
{
    seen->data_size = args.data_size;
    seen->data_address = args.reset_data;
    seen->data = bytes_at(args.reset_data, args.data_size);
    seen->reset_status = args.reset_status;
    seen->reset_type = args.reset_type;
}

} // namespace

request decode(int fd, int command, const void *record)
{
    request seen;
    seen.command = command;
    seen.fd = fd;
    seen.record = bytes_at(record, record_size(command));
    switch (command) {
    case OVRA_GET_VARIABLE:
    case OVRA_SET_VARIABLE:
        decode_variable(copy_of<ovra_variable_args_t>(record), &seen);
        break;
    case OVRA_GET_NEXT_VARIABLE_NAME:
        decode_next_name(copy_of<ovra_get_next_variable_name_args_t>(record), &seen);
        break;
    case OVRA_QUERY_VARIABLE_INFO: {
        const auto args = copy_of<ovra_query_variable_info_args_t>(record);
        seen.ret = args.ret;
        seen.attributes = args.attributes;
        break;
    }
    case OVRA_GET_TIME:
        seen.ret = copy_of<ovra_get_time_args_t>(record).ret;
        break;
    case OVRA_SET_TIME: {
        const auto args = copy_of<ovra_set_time_args_t>(record);
        seen.ret = args.ret;
        seen.time = value_at(args.time);
        break;
    }
    case OVRA_GET_WAKEUP_TIME:
        seen.ret = copy_of<ovra_get_wakeup_time_args_t>(record).ret;
        break;
    case OVRA_SET_WAKEUP_TIME: {
        const auto args = copy_of<ovra_set_wakeup_time_args_t>(record);
        seen.ret = args.ret;
        seen.time = value_at(args.time);
        seen.enable = args.enable;
        break;
    }
    case OVRA_RESET_SYSTEM:
        decode_reset(copy_of<ovra_reset_system_args_t>(record), &seen);
        break;
    case OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT:
        seen.ret = copy_of<ovra_get_next_high_monotonic_count_args_t>(record).ret;
        break;
    default:
        break;
    }
    return seen;
}

} // namespace fakes
