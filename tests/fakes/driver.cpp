#include "tests/fakes/driver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <map>
#include <set>
#include <tuple>

#include "platform/include/devns.h"

namespace fakes {

var_name::var_name(const std::string &text)
{
    for (const char c : text)
        push_back(static_cast<unsigned char>(c));
}

std::string var_name::narrow() const
{
    std::string text;
    for (const char16_t unit : *this)
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    return text;
}

namespace {

using key = std::pair<std::u16string, std::string>; // name, the bytes of the GUID

key key_of(const std::u16string &name, const EFI_GUID &guid)
{
    return {name, std::string(reinterpret_cast<const char *>(&guid), sizeof guid)};
}

struct stored {
    std::u16string name;
    EFI_GUID guid;
    uint32_t attributes;
    bytes data;
};

struct state {
    std::list<stored> store; // in the order of enumeration
    std::map<key, std::list<stored>::iterator> index;
    uint64_t store_size = 0;
    uint64_t store_capacity = UINT64_MAX;
    uint64_t single_capacity = UINT64_MAX;

    int absent = 0;
    int errno_of_close = 0;
    std::vector<rule> rules;
    std::optional<std::vector<enumeration_step>> script;
    size_t script_position = 0;
    bool repeat_last = false;

    EFI_TIME clock = {2026, 1, 2, 3, 4, 5, 0, 6, 0, 0, 0};
    EFI_TIME_CAPABILITIES capabilities = {1, 50000000, 0};
    fakes::alarm alarm;
    UINT32 high_count = 1;
    storage_info info;

    std::vector<request> requests;
    std::function<void(const request &)> hook;
    std::vector<opening> openings;
    std::set<int> open;
    int next_descriptor = 1000; // never given twice: use after close shows
    unsigned closings = 0;
    unsigned wrong_descriptors = 0;
    std::map<std::string, std::string> links;
};

state *current()
{
    static state the_state;
    return &the_state;
}

template <typename record>
record copy_of(const void *bytes)
{
    record copy;
    memcpy(&copy, bytes, sizeof copy);
    return copy;
}

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

request decode(int fd, int command, const void *record)
{
    request seen;
    seen.command = command;
    seen.fd = fd;
    seen.record = bytes_at(record, record_size(command));
    switch (command) {
    case OVRA_GET_VARIABLE:
    case OVRA_SET_VARIABLE: {
        const auto args = copy_of<ovra_variable_args_t>(record);
        seen.ret = args.ret;
        seen.variable_name_size = args.variable_name_size;
        seen.name_bytes = bytes_at(args.variable_name, args.variable_name_size);
        seen.name = name_at(args.variable_name, args.variable_name_size);
        seen.guid = value_at(args.vendor_guid);
        seen.attributes = value_at(args.attributes);
        seen.data_size = value_at(args.data_size);
        seen.data_address = args.data;
        if (command == OVRA_SET_VARIABLE)
            seen.data = bytes_at(args.data, seen.data_size.value_or(0));
        break;
    }
    case OVRA_GET_NEXT_VARIABLE_NAME: {
        const auto args = copy_of<ovra_get_next_variable_name_args_t>(record);
        seen.ret = args.ret;
        seen.variable_name_size = value_at(args.variable_name_size).value_or(0);
        seen.name = name_at(args.variable_name, seen.variable_name_size);
        seen.guid = value_at(args.vendor_guid);
        break;
    }
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
    case OVRA_RESET_SYSTEM: {
        const auto args = copy_of<ovra_reset_system_args_t>(record);
        seen.data_size = args.data_size;
        seen.data_address = args.reset_data;
        seen.data = bytes_at(args.reset_data, args.data_size);
        seen.reset_status = args.reset_status;
        seen.reset_type = args.reset_type;
        break;
    }
    case OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT:
        seen.ret = copy_of<ovra_get_next_high_monotonic_count_args_t>(record).ret;
        break;
    default:
        break;
    }
    return seen;
}

void erase(state &driver, std::map<key, std::list<stored>::iterator>::iterator found)
{
    driver.store_size -= found->second->data.size();
    driver.store.erase(found->second);
    driver.index.erase(found);
}

EFI_STATUS get_variable(state &driver, const ovra_variable_args_t &args, const request &seen)
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

EFI_STATUS set_variable(state &driver, const ovra_variable_args_t &args, const request &seen)
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
        erase(driver, found);
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

EFI_STATUS next_variable_name(state &driver, const ovra_get_next_variable_name_args_t &args,
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
bool scripted(state &driver, const ovra_get_next_variable_name_args_t &args,
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

// Carries the request out. Empty: the ioctl failed, errno says why.
std::optional<EFI_STATUS> serve(state &driver, const request &seen, void *record)
{
    const rule *decides = nullptr;
    for (rule &candidate : driver.rules) // each counts, whichever decides
        if (applies(candidate, seen))
            decides = &candidate;
    if (decides) {
        if (decides->error != 0) {
            errno = decides->error;
            return std::nullopt;
        }
        return decides->status;
    }
    switch (seen.command) {
    case OVRA_GET_VARIABLE:
        return get_variable(driver, copy_of<ovra_variable_args_t>(record), seen);
    case OVRA_SET_VARIABLE:
        return set_variable(driver, copy_of<ovra_variable_args_t>(record), seen);
    case OVRA_GET_NEXT_VARIABLE_NAME: {
        const auto args = copy_of<ovra_get_next_variable_name_args_t>(record);
        std::optional<EFI_STATUS> answer;
        if (scripted(driver, args, answer))
            return answer;
        return next_variable_name(driver, args, seen);
    }
    case OVRA_QUERY_VARIABLE_INFO: {
        const auto args = copy_of<ovra_query_variable_info_args_t>(record);
        *args.max_var_storage_size = driver.info.max_storage;
        *args.remaining_var_storage_size = driver.info.remaining_storage;
        *args.max_var_size = driver.info.max_size;
        return EFI_SUCCESS;
    }
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

void reset()
{
    *current() = state();
}

void put_variable(const var_name &name, const bytes &data, uint32_t attributes, const EFI_GUID &guid)
{
    state &driver = *current();
    const auto [place, is_new] = driver.index.try_emplace(key_of(name, guid));
    if (is_new)
        place->second = driver.store.insert(driver.store.end(), {name, guid, 0, {}});
    driver.store_size += data.size();
    driver.store_size -= place->second->data.size();
    place->second->attributes = attributes;
    place->second->data = data;
}

void remove_variable(const var_name &name, const EFI_GUID &guid)
{
    state &driver = *current();
    const auto found = driver.index.find(key_of(name, guid));
    if (found != driver.index.end())
        erase(driver, found);
}

std::optional<bytes> variable(const var_name &name, const EFI_GUID &guid)
{
    const auto found = current()->index.find(key_of(name, guid));
    if (found == current()->index.end())
        return std::nullopt;
    return found->second->data;
}

std::optional<uint32_t> variable_attributes(const var_name &name, const EFI_GUID &guid)
{
    const auto found = current()->index.find(key_of(name, guid));
    if (found == current()->index.end())
        return std::nullopt;
    return found->second->attributes;
}

size_t variable_count()
{
    return current()->store.size();
}

void enumerate_first(const std::vector<var_name> &names)
{
    auto &store = current()->store;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        for (auto variable = store.begin(); variable != store.end();) {
            const auto here = variable++;
            if (here->name == *name)
                store.splice(store.begin(), store, here);
        }
}

void set_capacity(uint64_t store, uint64_t single_variable)
{
    current()->store_capacity = store;
    current()->single_capacity = single_variable;
}

void set_absent(int error)
{
    current()->absent = error;
}

void set_present()
{
    current()->absent = 0;
}

void set_errno_of_close(int error)
{
    current()->errno_of_close = error;
}

void add_rule(const rule &rule)
{
    current()->rules.push_back(rule);
}

void fail_call(unsigned n, int error)
{
    add_rule({.skip = n, .error = error});
}

void fail_command(int command, int error, unsigned skip, unsigned times)
{
    add_rule({.command = command, .skip = skip, .times = times, .error = error});
}

void fail_variable(int command, const var_name &name, int error, unsigned skip, unsigned times)
{
    add_rule({.command = command, .name = name, .skip = skip, .times = times, .error = error});
}

void answer_call(unsigned n, EFI_STATUS status)
{
    add_rule({.skip = n, .status = status});
}

void answer_command(int command, EFI_STATUS status, unsigned skip, unsigned times)
{
    add_rule({.command = command, .skip = skip, .times = times, .status = status});
}

void answer_variable(int command, const var_name &name, EFI_STATUS status, unsigned skip, unsigned times)
{
    add_rule({.command = command, .name = name, .skip = skip, .times = times, .status = status});
}

void script_enumeration(const std::vector<enumeration_step> &steps, bool repeat_last)
{
    current()->script = steps;
    current()->script_position = 0;
    current()->repeat_last = repeat_last;
}

void set_clock(const EFI_TIME &time, const EFI_TIME_CAPABILITIES &capabilities)
{
    current()->clock = time;
    current()->capabilities = capabilities;
}

EFI_TIME clock()
{
    return current()->clock;
}

void set_alarm(const alarm &alarm)
{
    current()->alarm = alarm;
}

alarm current_alarm()
{
    return current()->alarm;
}

void set_monotonic_count(UINT32 high)
{
    current()->high_count = high;
}

void set_storage_info(const storage_info &info)
{
    current()->info = info;
}

const std::vector<request> &requests()
{
    return current()->requests;
}

void forget_requests()
{
    current()->requests.clear();
}

size_t requests_of(int command)
{
    const auto &all = requests();
    return static_cast<size_t>(
        std::count_if(all.begin(), all.end(), [&](const request &one) { return one.command == command; }));
}

void before_each(std::function<void(const request &)> hook)
{
    current()->hook = std::move(hook);
}

const std::vector<opening> &openings()
{
    return current()->openings;
}

unsigned closings()
{
    return current()->closings;
}

unsigned open_descriptors()
{
    return static_cast<unsigned>(current()->open.size());
}

unsigned wrong_descriptors()
{
    return current()->wrong_descriptors;
}

void put_link(const std::string &path, const std::string &target)
{
    current()->links[path] = target;
}

} // namespace fakes

using fakes::current;

int devns_open(const char *path, int flags)
{
    fakes::state &driver = *current();
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
    fakes::state &driver = *current();
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
    fakes::state &driver = *current();
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
    const auto found = current()->links.find(path);
    if (found == current()->links.end()) {
        errno = ENOENT;
        return -1;
    }
    const size_t length = std::min(size, found->second.size());
    memcpy(buf, found->second.data(), length);
    return static_cast<ssize_t>(length);
}
