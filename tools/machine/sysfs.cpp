// SPDX-License-Identifier: MIT
#include "tools/machine/sysfs.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

std::string root_folder()
{
    return named_root().value_or("");
}

} // namespace

// The devices of the machine that runs the command are not those of a machine whose variables are in a file.
bool has_devices()
{
    return !secure_getenv("HWPLAT_VARS") || secure_getenv("HWPLAT_ROOT");
}

void require_machine()
{
    if (!has_devices())
        throw failure("the disks and devices of this machine are not known, only its variables",
                      "'--root DIR' beside '--vars' names a folder with them; '--root /' takes those of the\n"
                      "machine that runs this, as when the disk is attached to it.");
}

std::optional<std::string> named_root()
{
    const char *root = secure_getenv("HWPLAT_ROOT");
    return root ? std::optional<std::string>(root) : std::nullopt;
}

void require_sysfs(const std::string &folder)
{
    require_machine();
    const std::string sys = (folder.empty() ? root_folder() : folder) + "/sys";
    std::error_code error;
    if (std::filesystem::directory_iterator(sys, error) != std::filesystem::directory_iterator() && !error)
        return;
    if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory)
        throw failure("cannot read " + printable(sys) + ": " + error.message());
    throw failure("there is nothing in " + printable(sys),
                  folder.empty() ? "'mount -t sysfs sysfs /sys' mounts what the kernel tells of its devices."
                                 : "A machine's folder is laid out like a Linux root.");
}

void require_devices()
{
    require_machine();
    const std::string folder = root_folder();
    if (access((folder + "/sys/devices").c_str(), F_OK) == 0)
        return;
    const std::string why = strerror(errno);
    if (errno != ENOENT && errno != ENOTDIR)
        throw failure("cannot look into " + folder + "/sys/devices: " + why);
    if (folder.empty() || folder == "/")
        throw failure("/sys is not mounted", "Disks and devices are seen there: mount -t sysfs sysfs /sys");
    throw failure("there is no sys/devices in " + folder,
                  "The devices of a machine's folder are seen there.");
}

} // namespace tool
