// SPDX-License-Identifier: MIT
// A machine whose variables are in a file.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "src/base/variable_image.h"
#include "tools/machine/files.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"

namespace tool {

std::string file_of_variables()
{
    const char *given = secure_getenv("HWPLAT_VARS");
    return given ? given : "";
}

void firmware::refuse_file() const
{
    const auto because = [this](const std::string &what, const std::string &advice = {}) {
        return failure(what, advice, messages);
    };
    switch (error) {
    case EISDIR:
        throw because(image + " is a folder", "'--root DIR' works on a machine in a folder.");
    case EMEDIUMTYPE:
        throw because(image + " is no file of firmware variables",
                      "Wanted is the raw image of a virtual machine's variables, such as a copy of\n"
                      "OVMF_VARS.fd, or U-Boot's file ubootefi.var. A blank image, which Debian's\n"
                      "AAVMF_VARS.fd is, becomes one when its machine first starts.");
    case EOPNOTSUPP:
        throw because(image + " is a qcow2 image, and a raw one is needed",
                      "'qemu-img convert -f qcow2 -O raw' makes one of it, and '-f raw -O qcow2' goes\n"
                      "back.");
    case ERANGE:
        throw because(image + " is cut off: a part of its variables is missing");
    case EBADMSG:
        throw because("the variables in " + image + " are damaged",
                      "HWPLAT_DEBUG=1 in the environment makes the command say where.");
    case EINPROGRESS:
        throw because("the firmware was stopped while it moved the variables in " + image,
                      "Start the virtual machine once: its firmware goes on with that.");
    default:
        if (is_permission(error))
            throw because("no permission for " + image, permission_advice());
        throw because("cannot read " + image + ": " + strerror(error));
    }
}

void firmware::require_clock(const std::string &what) const
{
    if (!image.empty())
        throw not_changed(what + ": " + image + " keeps variables alone",
                          "The clock of a virtual machine is that of its emulator.");
}

// What is counted for a variable beside its data: attributes and name; in a file of variables more.
int64_t firmware::overhead_of(const std::string &name) const
{
    const size_t name_size = (name.size() + 1) * sizeof(CHAR16);
    if (image.empty())
        return static_cast<int64_t>(sizeof(uint32_t) + name_size);
    uint64_t begin[2] = {};
    std::ifstream file(image, std::ios::binary);
    file.read(reinterpret_cast<char *>(begin), sizeof begin);
    const bool is_uboot = file.good() && begin[1] == ovra::uboot_magic;
    return static_cast<int64_t>(
        is_uboot ? ovra::room_in_uboot_file(name_size, 0)
                 : ovra::room_in_volume(sizeof(ovra::authenticated_variable_header), name_size, 0));
}

// The new file gets the owner of the old one, which only root can give away. On FAT all files have one owner.
bool firmware::may_replace_image() const
{
    struct stat old = {};
    struct statfs info = {};
    if (!may(image, R_OK | W_OK) || stat(image.c_str(), &old) != 0 || statfs(image.c_str(), &info) != 0)
        return false;
    return geteuid() == 0 || old.st_uid == geteuid() || info.f_type == MSDOS_SUPER_MAGIC;
}

// A file of variables is written anew as a whole, whatever changes in it.
void firmware::check_copy(const change_request &request) const
{
    struct stat old = {};
    struct statvfs info = {};
    if (stat(image.c_str(), &old) != 0 || statvfs(image.c_str(), &info) != 0 || info.f_frsize == 0)
        return;
    if (static_cast<uint64_t>(old.st_size) > largest_file())
        throw file_limit(request);
    constexpr size_t at_once = 4; // the folder, both files, and the new one once more to lock it
    if (const int reason = can_open(at_once); reason != 0)
        throw not_changed(request.what + ": " + strerror(reason));
    const uint64_t free_blocks = geteuid() == 0 ? info.f_bfree : info.f_bavail;
    const uint64_t free_files = geteuid() == 0 ? info.f_ffree : info.f_favail;
    constexpr uint64_t unit = 512; // of st_blocks
    if ((info.f_blocks != 0 && static_cast<uint64_t>(old.st_blocks) * unit / info.f_frsize > free_blocks) ||
        (info.f_files != 0 && free_files == 0))
        throw file_system_full(request);
}

// What is not there need not be removed. A file of variables has no BootCurrent, which ends with a start.
bool firmware::is_changed_by_reset(const change_request &request)
{
    if (!image.empty())
        return request.name == "BootNext" && exists_global(request.name);
    return request.size != 0 || look_at(file_of(request));
}

} // namespace tool
