// SPDX-License-Identifier: MIT
#include "platform/machine/root.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/malloced.h"
#include "platform/machine/shared.h"

namespace machine {

namespace {

// Whether `path` is "/"; it is open on the file `here`. Equal numbers do not prove it: a second mount of "/"
// is a folder like any other. Nothing, with errno, when it is unknown.
std::optional<bool> is_live(const char *path, const file_identity &here)
{
    struct stat top = {};
    if (stat("/", &top) != 0)
        return std::nullopt;
    if (here != file_identity{top.st_dev, top.st_ino})
        return false;
    const malloced_text resolved(realpath(path, nullptr));
    if (!resolved)
        return std::nullopt;
    return std::strcmp(resolved.get(), "/") == 0;
}

const resolved_root *find_resolved(const resolved_root *newest, const char *value)
{
    while (newest != nullptr && newest->value != value)
        newest = newest->before;
    return newest;
}

// The path of a relative value, for as long as the process lives: a later chdir must not switch to another
// machine. Null with errno when there is no working folder.
const char *resolve_once(const char *value)
{
    std::atomic<const resolved_root *> &roots = common_state().roots;
    const resolved_root *newest = roots.load();
    if (const resolved_root *known = find_resolved(newest, value); known != nullptr)
        return known->path.c_str();
    const malloced_text working(getcwd(nullptr, 0));
    if (!working)
        return nullptr;
    std::unique_ptr<resolved_root> added(
        new resolved_root{value, std::string(working.get()) + "/" + value, newest});
    while (!roots.compare_exchange_weak(added->before, added.get())) {
        // Another thread may have resolved the same value.
        if (const resolved_root *known = find_resolved(added->before, value); known != nullptr)
            return known->path.c_str();
    }
    return added.release()->path.c_str();
}

// The path that a variable of the environment names; null with errno when there is no working folder.
const char *path_of(const char *value)
{
    const bool is_relative = value[0] != '/' && value[0] != '\0';
    return is_relative ? resolve_once(value) : value;
}

} // namespace

machine_root open_root()
{
    machine_root root;
    const char *value = secure_getenv("HWPLAT_ROOT");
    if (value == nullptr && secure_getenv("HWPLAT_VARS") != nullptr) {
        debug("no devices: HWPLAT_VARS names variables alone, and HWPLAT_ROOT no machine");
        errno = ENOENT;
        return root;
    }
    if (value == nullptr)
        value = "/";
    const char *path = path_of(value);
    if (path != nullptr)
        root.folder = owned_fd(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    const auto identity = root.folder ? file_identity_of(root.folder.get()) : std::nullopt;
    const auto live = identity ? is_live(path, *identity) : std::nullopt;
    if (!live)
        root.folder.reset();
    root.live = live.value_or(false);
    root.identity = identity.value_or(file_identity{});
    if (!root.folder)
        debug("no machine: cannot open the folder '%s': %s", path != nullptr ? path : value,
              std::strerror(errno));
    return root;
}

machine_root open_root_of_variables()
{
    const char *value = secure_getenv("HWPLAT_VARS");
    if (value == nullptr)
        return open_root();
    machine_root root;
    const char *path = path_of(value);
    const malloced_text resolved(path != nullptr ? realpath(path, nullptr) : nullptr);
    if (resolved) {
        const std::string file = resolved.get();
        const std::size_t slash = file.rfind('/');
        root.image = file.substr(slash + 1);
        if (root.image.empty()) // "/"
            errno = EISDIR;
        else
            root.folder = owned_fd(open(file.substr(0, slash + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        const auto identity = root.folder ? file_identity_of(root.folder.get()) : std::nullopt;
        if (!identity)
            root.folder.reset();
        root.identity = identity.value_or(file_identity{});
    }
    if (!root.folder)
        debug("no variables: cannot find the file '%s': %s", value, std::strerror(errno));
    return root;
}

} // namespace machine
