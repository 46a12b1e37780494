// SPDX-License-Identifier: MIT
#include "tools/machine/firmware.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <unistd.h>
#include <unordered_set>

#include "tools/machine/capture.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

// Statuses that libovra's messages give as digits, in words.
std::string with_status_names(std::string text)
{
    if (text.empty())
        return text;
    static const std::regex digits("\\b8[0-9a-f]{15}\\b");
    std::smatch found;
    while (std::regex_search(text, found, digits)) {
        const std::string name = status_name(static_cast<EFI_STATUS>(std::stoull(found.str(), nullptr, 16)));
        text.replace(static_cast<size_t>(found.position()), static_cast<size_t>(found.length()), name);
    }
    return text;
}

// The words of a kernel's command line, those of lists like "efi=debug,noruntime" one by one.
bool started_with_no_runtime(const std::string &root)
{
    std::ifstream line(root + "/proc/cmdline");
    for (std::string word; line >> word;) {
        if (word.starts_with("efi=") && (',' + word.substr(4) + ',').find(",noruntime,") != std::string::npos)
            return true;
        if (word == "noefi")
            return true;
    }
    return false;
}

} // namespace

variable_id global_id(const std::string &name)
{
    return {to_ucs2(name).value(), ovra::global_variable_guid};
}

bool is_damaged(const variable &read)
{
    // Reading that failed leaves an errno value, a file that makes no sense leaves none. A link, or a device
    // without a driver, in a variable's place makes no sense either.
    return read.status == EFI_DEVICE_ERROR &&
           (read.error == 0 || read.error == ELOOP || read.error == ENXIO || read.error == EBADMSG);
}

firmware::firmware(std::string root, const option_kind &of) : folder(std::move(root)), options_kind(of)
{
    // With it set, some calls would go to files in the working directory and others to the machine.
    if (getenv("OVRA_TEST_FILE"))
        throw failure("OVRA_TEST_FILE is set",
                      "The command works on a machine, not on test files: unset it.");
    if (call([this] { return ovra_init(&handle); }) == 0)
        return;
    if (!image.empty())
        refuse_file();
    const std::string where = folder.empty() ? "this machine" : folder;
    if (error == ENOENT || error == ENOTDIR)
        throw failure("no firmware variables on " + where,
                      folder.empty() ? not_there()
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
    if (geteuid() != 0 && !image.empty())
        return "Run this as root, or as the owner of the file and its folder.";
    if (geteuid() != 0)
        return folder.empty() ? "Run this as root." : "Run this as root, or as the owner of the folder.";
    return "The variables are protected against this, even for root.";
}

std::string firmware::root_folder() const
{
    if (!folder.empty())
        return folder;
    const char *given = secure_getenv("HWPLAT_ROOT");
    return given && *given != '\0' && std::string_view(given) != "/" ? given : "";
}

std::string firmware::variables_folder() const
{
    if (!image.empty())
        return std::filesystem::path(image).parent_path();
    return root_folder() + "/sys/firmware/efi/efivars";
}

std::string firmware::state_folder() const
{
    return root_folder() + "/var/lib/hwplat";
}

std::string firmware::not_there() const
{
    const std::string root = root_folder();
    const std::string in_a_folder = "\n'--root DIR' works on a machine in a folder.";
    const auto is_there = [](const std::string &path) { return access(path.c_str(), F_OK) == 0; };
    if (!is_there(root + "/sys/firmware"))
        return "/sys is not mounted: 'mount -t sysfs sysfs /sys' does it." + in_a_folder;
    if (started_with_no_runtime(root))
        return "The kernel was started with \"efi=noruntime\" or \"noefi\" and does not call the\n"
               "firmware: start it without that word." +
               in_a_folder;
    if (!is_there(root + "/sys/firmware/efi"))
        return "It was not started by UEFI firmware." + in_a_folder;
    return "efivarfs is not mounted:\n"
           "'mount -t efivarfs efivarfs /sys/firmware/efi/efivars' does it.\n"
           "Where that fails, the kernel has no efivarfs or does not call the firmware." +
           in_a_folder;
}

int firmware::call(const std::function<int()> &function)
{
    called done = call_library(function);
    error = done.error;
    messages = with_status_names(std::move(done.messages));
    return done.result;
}

EFI_STATUS firmware::service(const std::string &what, const service_call &function)
{
    return service([&what] { return what; }, function);
}

EFI_STATUS firmware::service(const std::function<std::string()> &what, const service_call &function)
{
    EFI_STATUS status = EFI_SUCCESS;
    if (call([&] { return function(&status); }) == 0)
        return status;
    if (is_permission(error))
        throw failure(what() + ": no permission", permission_advice(), messages);
    throw failure(what() + ": " + strerror(error), {}, messages);
}

void firmware::check(const std::string &what, EFI_STATUS status)
{
    if (is_refusal(status))
        throw failure(what + ": no permission", permission_advice(), messages);
    if (status != EFI_SUCCESS)
        throw failure(what + ": " + status_name(status) +
                          (error != 0 ? std::string(": ") + strerror(error) : std::string()),
                      {}, messages);
}

void firmware::require_state(const std::string &what, EFI_STATUS status, const std::string &state,
                             const std::string &repair)
{
    if (!is_live() && is_damaged({status, error, 0, {}}))
        throw damaged(what + ": " + state_folder() + '/' + state + " is damaged", repair, messages);
    check(what, status);
}

void firmware::require_read(const std::string &name, const variable &read, const std::string &when_damaged)
{
    if (is_damaged(read))
        throw damaged(name + " is damaged", when_damaged, messages);
    error = read.error;
    check("cannot read " + name, read.status);
}

std::vector<variable_id> firmware::variables()
{
    std::vector<variable_id> all;
    visit_variables([&all] { all.clear(); }, [&all](const variable_id &id) { all.push_back(id); });
    return all;
}

void firmware::visit_variables(const std::function<void()> &begin, const taking &take)
{
    // A program that removes a variable meanwhile can end a walk that stands at it: then it begins anew.
    constexpr int attempts = 20;
    int attempt = 1;
    do
        begin();
    while (!walk(attempt++ < attempts, take));
}

bool firmware::walk(bool may_end_early, const taking &take)
{
    const std::string what = "cannot list the variables";
    std::unordered_set<std::u16string> seen; // names, each with its vendor after it
    variable_id id;
    variable_id entry;
    id.name.assign(512, 0);
    for (;;) {
        UINTN size = id.name.size() * sizeof(CHAR16);
        const EFI_STATUS status = service(what, [&](EFI_STATUS *answer) {
            return ovra_get_next_variable_name(handle, &size, id.name.data(), &id.guid, answer);
        });
        if (status == EFI_NOT_FOUND)
            return true;
        if (status == EFI_BUFFER_TOO_SMALL && size > id.name.size() * sizeof(CHAR16)) {
            id.name.resize(size / sizeof(CHAR16) + 1);
            continue;
        }
        if (status == EFI_INVALID_PARAMETER && may_end_early)
            return false;
        check(what, status);
        entry.name.assign(id.name.begin(), std::find(id.name.begin(), id.name.end(), 0));
        entry.name.push_back(0);
        entry.guid = id.guid;
        std::u16string key(entry.name.begin(), entry.name.end());
        key.append(sizeof entry.guid / sizeof(CHAR16), 0);
        memcpy(&key[entry.name.size()], &entry.guid, sizeof entry.guid);
        if (!seen.insert(std::move(key)).second)
            throw failure(what + ": the firmware gives " + in_quotes(to_utf8(entry.name)) + " a second time");
        take(entry);
    }
}

variable firmware::read(variable_id id)
{
    const buffered found = read_to_buffer(id.name, id.guid);
    if (found.status != EFI_SUCCESS)
        return {found.status, error, 0, {}};
    return {found.status, 0, found.attributes, {found.data.begin(), found.data.end()}};
}

firmware::buffered firmware::read_to_buffer(std::span<CHAR16> name, EFI_GUID guid)
{
    buffered found;
    UINTN size = 0;
    // Nearly all variables fit at the first request: each may be one to the firmware. A variable may grow
    // between two; one that always does is given up.
    constexpr size_t first_room = 1u << 16;
    const auto what = [&name] { return "cannot read " + to_utf8(name); };
    const auto ask = [&](EFI_STATUS *answer) {
        return ovra_get_variable(handle, name.data(), &guid, &found.attributes, &size, buffer.data(), answer);
    };
    for (int attempt = 0; attempt < 5; ++attempt) {
        buffer.resize(std::max<size_t>({size, buffer.size(), first_room}));
        size = buffer.size();
        found.status = service(what, std::ref(ask)); // which takes no memory
        if (found.status != EFI_BUFFER_TOO_SMALL)
            break;
    }
    if (found.status != EFI_SUCCESS)
        return {found.status, 0, {}};
    found.data = byte_view(buffer).first(std::min<size_t>(size, buffer.size()));
    return found;
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
    if (status == EFI_NOT_FOUND)
        return false;
    const bool there = status == EFI_SUCCESS || status == EFI_BUFFER_TOO_SMALL || is_refusal(status) ||
                       is_damaged({status, error, 0, {}}) || error == EIO;
    if (!there)
        check("cannot look for " + name, status);
    return true;
}

} // namespace tool
