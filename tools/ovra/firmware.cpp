#include "tools/ovra/firmware.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <unistd.h>

#include "tools/ovra/capture.h"
#include "tools/ovra/failure.h"

namespace tool {

namespace {

constexpr EFI_GUID global_variable = {
    0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};

variable_id global_id(const std::string &name)
{
    return {to_ucs2(name).value(), global_variable};
}

bool is_permission(int error)
{
    return error == EACCES || error == EPERM;
}

bool is_refusal(EFI_STATUS status)
{
    return status == EFI_ACCESS_DENIED || status == EFI_WRITE_PROTECTED || status == EFI_SECURITY_VIOLATION;
}

bytes copy(const void *data, size_t size)
{
    const auto *begin = static_cast<const uint8_t *>(data);
    return size == 0 ? bytes{} : bytes(begin, begin + size);
}

} // namespace

std::string status_name(EFI_STATUS status)
{
    static constexpr struct {
        EFI_STATUS status;
        const char *name;
    } names[] = {{EFI_SUCCESS, "EFI_SUCCESS"},
                 {EFI_INVALID_PARAMETER, "EFI_INVALID_PARAMETER"},
                 {EFI_UNSUPPORTED, "EFI_UNSUPPORTED"},
                 {EFI_BUFFER_TOO_SMALL, "EFI_BUFFER_TOO_SMALL"},
                 {EFI_DEVICE_ERROR, "EFI_DEVICE_ERROR"},
                 {EFI_WRITE_PROTECTED, "EFI_WRITE_PROTECTED"},
                 {EFI_OUT_OF_RESOURCES, "EFI_OUT_OF_RESOURCES"},
                 {EFI_NOT_FOUND, "EFI_NOT_FOUND"},
                 {EFI_ACCESS_DENIED, "EFI_ACCESS_DENIED"},
                 {EFI_SECURITY_VIOLATION, "EFI_SECURITY_VIOLATION"}};
    for (const auto &[known, name] : names) {
        if (known == status)
            return name;
    }
    return format("status %lx", static_cast<unsigned long>(status));
}

firmware::firmware(std::string root) : folder(std::move(root))
{
    // With it set, some calls would go to files in the working directory and others to the machine.
    if (getenv("OVRA_TEST_FILE"))
        throw failure("OVRA_TEST_FILE is set",
                      "The command works on a machine, not on test files: unset it.");
    if (call([this] { return ovra_init(&handle); }) == 0)
        return;
    const std::string where = folder.empty() ? "this machine" : folder;
    if (error == ENOENT || error == ENOTDIR)
        throw failure("no firmware variables on " + where,
                      folder.empty()
                          ? "It was not started by UEFI firmware, or efivarfs is not mounted at\n"
                            "/sys/firmware/efi/efivars. '--root DIR' works on a machine in a folder."
                          : "A machine's folder holds them in sys/firmware/efi/efivars.",
                      messages);
    if (is_permission(error))
        throw failure("no permission for the firmware variables of " + where, permission_advice(), messages);
    throw failure("cannot reach the firmware of " + where + ": " + strerror(error), {}, messages);
}

firmware::~firmware()
{
    ovra_fini(handle);
}

std::string firmware::permission_advice() const
{
    if (geteuid() != 0)
        return folder.empty() ? "Run this as root." : "Run this as root, or as the owner of the folder.";
    return "The variables are protected against this, even for root.";
}

int firmware::call(const std::function<int()> &function)
{
    error_capture capture;
    errno = 0;
    const int result = function();
    error = errno;
    messages = capture.errors;
    return result;
}

EFI_STATUS firmware::service(const std::string &what, const std::function<int(EFI_STATUS *)> &function)
{
    EFI_STATUS status = EFI_SUCCESS;
    if (call([&] { return function(&status); }) == 0)
        return status;
    if (is_permission(error))
        throw failure(what + ": no permission", permission_advice(), messages);
    throw failure(what + ": the firmware gives no answer: " + strerror(error), {}, messages);
}

void firmware::check(const std::string &what, EFI_STATUS status)
{
    if (is_refusal(status))
        throw failure(what + ": no permission", permission_advice(), messages);
    if (status != EFI_SUCCESS)
        throw failure(what + ": " + status_name(status), {}, messages);
}

void firmware::cannot_change(const std::string &what, EFI_STATUS status, size_t size)
{
    const int reason = error;
    const std::string said = messages;
    if (is_permission(reason) || (is_refusal(status) && geteuid() != 0))
        throw failure(what + ": no permission", permission_advice(), said);

    // The library does not hand on why a write failed; whether there was room for it can be asked.
    UINT64 in_all = 0;
    UINT64 left = 0;
    UINT64 largest = 0;
    EFI_STATUS answer = EFI_SUCCESS;
    const int asked = call([&] {
        return ovra_query_variable_info(handle, boot_variable_attributes, &in_all, &left, &largest, &answer);
    });
    const bool full = asked == 0 && answer == EFI_SUCCESS && (left < size || largest < size);
    if (full || status == EFI_OUT_OF_RESOURCES || reason == ENOSPC) {
        std::string advice = "Remove options that are not needed; 'ovra vars' shows what takes the room.";
        if (asked == 0 && answer == EFI_SUCCESS)
            advice += format("\n%lu bytes are left, %lu for one variable.", left, largest);
        throw failure(what + ": no room in the variable store", advice, said);
    }
    std::string why = status == EFI_SUCCESS ? std::string() : ": " + status_name(status);
    if (reason != 0)
        why += std::string(": ") + strerror(reason);
    // Firmware answers so to a variable beyond its limit for one, which no call tells; it is nowhere lower.
    constexpr size_t lowest_limit = 1024;
    std::string advice;
    if (reason == EINVAL && size > lowest_limit)
        advice = format("The firmware may be unable to keep a variable of %zu bytes.", size);
    throw failure(what + why, advice, said);
}

std::vector<variable_id> firmware::variables()
{
    std::vector<variable_id> found;
    std::set<std::u16string> seen; // names with their vendors behind them
    variable_id id;
    id.name.assign(512, 0);
    for (;;) {
        UINTN size = id.name.size() * sizeof(CHAR16);
        const EFI_STATUS status = service("cannot list the variables", [&](EFI_STATUS *answer) {
            return ovra_get_next_variable_name(handle, &size, id.name.data(), &id.guid, answer);
        });
        if (status == EFI_NOT_FOUND)
            return found;
        if (status == EFI_BUFFER_TOO_SMALL && size > id.name.size() * sizeof(CHAR16)) {
            id.name.resize(size / sizeof(CHAR16) + 1);
            continue;
        }
        check("cannot list the variables", status);
        const auto end = std::find(id.name.begin(), id.name.end(), 0);
        variable_id entry = {{id.name.begin(), end}, id.guid};
        entry.name.push_back(0);
        std::u16string key(entry.name.begin(), entry.name.end());
        for (const uint8_t byte : copy(&entry.guid, sizeof entry.guid))
            key.push_back(byte);
        if (!seen.insert(key).second)
            throw failure("cannot list the variables: the firmware gives " + in_quotes(to_utf8(entry.name)) +
                          " a second time");
        found.push_back(std::move(entry));
    }
}

variable firmware::read(const variable_id &id)
{
    std::vector<CHAR16> name = id.name;
    EFI_GUID guid = id.guid;
    variable result;
    UINTN size = 0;
    // A variable may grow between the two requests; one that always does is given up.
    for (int attempt = 0; attempt < 5; ++attempt) {
        result.data.resize(size);
        result.status = service("cannot read " + to_utf8(id.name), [&](EFI_STATUS *answer) {
            return ovra_get_variable(handle, name.data(), &guid, &result.attributes, &size,
                                     result.data.empty() ? nullptr : result.data.data(), answer);
        });
        if (result.status != EFI_BUFFER_TOO_SMALL)
            break;
    }
    if (result.status != EFI_SUCCESS)
        return {result.status, 0, {}};
    result.data.resize(std::min<size_t>(size, result.data.size()));
    return result;
}

variable firmware::read_global(const std::string &name)
{
    return read(global_id(name));
}

bool firmware::exists_global(const std::string &name)
{
    variable_id id = global_id(name);
    UINTN size = 0;
    const EFI_STATUS status = service("cannot look for " + name, [&](EFI_STATUS *answer) {
        return ovra_get_variable(handle, id.name.data(), &id.guid, nullptr, &size, nullptr, answer);
    });
    if (is_refusal(status))
        check("cannot look for " + name, status);
    return status != EFI_NOT_FOUND;
}

void firmware::write_global(const std::string &name, bytes data)
{
    variable_id id = global_id(name);
    const EFI_STATUS status = service("cannot write " + name, [&](EFI_STATUS *answer) {
        return ovra_set_variable(handle, id.name.data(), &id.guid, boot_variable_attributes, data.size(),
                                 data.empty() ? nullptr : data.data(), answer);
    });
    if (status != EFI_SUCCESS)
        cannot_change("cannot write " + name, status, data.size());
}

EFI_TIME firmware::time(EFI_TIME_CAPABILITIES *capabilities)
{
    EFI_TIME now = {};
    const EFI_STATUS status = service("cannot read the clock", [&](EFI_STATUS *answer) {
        return ovra_get_time(handle, &now, capabilities, answer);
    });
    check("cannot read the clock", status);
    return now;
}

void firmware::set_time(EFI_TIME time)
{
    const EFI_STATUS status = service(
        "cannot set the clock", [&](EFI_STATUS *answer) { return ovra_set_time(handle, &time, answer); });
    if (status != EFI_SUCCESS)
        cannot_change("cannot set the clock", status, 0);
}

firmware::alarm firmware::wakeup_time()
{
    alarm result;
    BOOLEAN enabled = B_FALSE;
    BOOLEAN pending = B_FALSE;
    const EFI_STATUS status = service("cannot read the wake-up alarm", [&](EFI_STATUS *answer) {
        return ovra_get_wakeup_time(handle, &enabled, &pending, &result.time, answer);
    });
    check("cannot read the wake-up alarm", status);
    result.enabled = enabled == B_TRUE;
    result.pending = pending == B_TRUE;
    return result;
}

void firmware::set_wakeup_time(std::optional<EFI_TIME> time)
{
    const EFI_STATUS status = service("cannot set the wake-up alarm", [&](EFI_STATUS *answer) {
        return ovra_set_wakeup_time(handle, time ? B_TRUE : B_FALSE, time ? &*time : nullptr, answer);
    });
    if (status != EFI_SUCCESS)
        cannot_change("cannot set the wake-up alarm", status, 0);
}

void firmware::reset(EFI_RESET_TYPE type)
{
    if (call([&] { return ovra_reset_system(handle, type, EFI_SUCCESS, 0, nullptr); }) != 0)
        cannot_change("cannot reset the machine", EFI_SUCCESS, 0);
}

} // namespace tool
