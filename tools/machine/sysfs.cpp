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

std::optional<std::string> named_root()
{
    const char *root = secure_getenv("HWPLAT_ROOT");
    return root ? std::optional<std::string>(root) : std::nullopt;
}

void require_sysfs(const std::string &folder)
{
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
