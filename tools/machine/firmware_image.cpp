// SPDX-License-Identifier: MIT
// A machine whose variables are in a file.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "src/base/guid.h"
#include "src/base/variable_image.h"
#include "tools/machine/files.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"

namespace tool {

std::string file_of_variables()
{
    const char *given = secure_getenv("HWPLAT_VARS");
    if (!given)
        return {};
    // Changes are made where a link leads to.
    std::error_code failed;
    const std::filesystem::path file = std::filesystem::canonical(given, failed);
    return failed ? given : file.string();
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

namespace {

bool is_of_uboot(const std::string &image)
{
    ovra::uboot_file_header header = {};
    std::ifstream file(image, std::ios::binary);
    file.read(reinterpret_cast<char *>(&header), sizeof header);
    return file.good() && header.magic == ovra::uboot_magic;
}

// The header that a variable in a volume has. The volume of every virtual machine begins its file.
size_t header_in(const std::string &image)
{
    ovra::volume_header volume = {};
    EFI_GUID kind = {};
    std::ifstream file(image, std::ios::binary);
    file.read(reinterpret_cast<char *>(&volume), sizeof volume);
    file.seekg(volume.header_length);
    file.read(reinterpret_cast<char *>(&kind), sizeof kind);
    const bool is_plain =
        file.good() && volume.signature == ovra::volume_signature && ovra::same_guid(kind, ovra::plain_store);
    return is_plain ? sizeof(ovra::plain_variable_header) : sizeof(ovra::authenticated_variable_header);
}

} // namespace

// What is counted for a variable: its data, attributes and name; in a file of variables more.
int64_t firmware::room_of(const std::string &name, size_t size) const
{
    const size_t name_size = (name.size() + 1) * sizeof(CHAR16);
    if (image.empty())
        return static_cast<int64_t>(sizeof(uint32_t) + name_size + size);
    return static_cast<int64_t>(is_of_uboot(image) ? ovra::room_in_uboot_file(name_size, size)
                                                   : ovra::room_in_volume(header_in(image), name_size, size));
}

void firmware::tell_of_other_names() const
{
    struct stat file = {};
    if (image.empty() || stat(image.c_str(), &file) != 0 || file.st_nlink < 2)
        return;
    const std::string names =
        format(" has %lu names (hard links).", static_cast<unsigned long>(file.st_nlink));
    fprintf(stderr, "%s\n%s\n", broken(printable(image) + names, 0).c_str(),
            "What is changed is in a new file, which takes this name alone.");
}

namespace {

// Whether a new file beside another can have the group: its maker is in it, or the folder gives it.
bool gives_group(const std::string &beside, gid_t group)
{
    struct stat folder = {};
    const std::string above = std::filesystem::absolute(beside).parent_path();
    if (stat(above.c_str(), &folder) == 0 && (folder.st_mode & S_ISGID) != 0 && folder.st_gid == group)
        return true;
    return getegid() == group || group_member(group) != 0;
}

} // namespace

// The new file gets the owner of the old one, which only root can give away. On FAT all files have one owner.
bool firmware::may_replace_image() const
{
    struct stat old = {};
    struct statfs info = {};
    if (!may(image, R_OK | W_OK) || stat(image.c_str(), &old) != 0 || statfs(image.c_str(), &info) != 0)
        return false;
    return geteuid() == 0 || info.f_type == MSDOS_SUPER_MAGIC ||
           (old.st_uid == geteuid() && gives_group(image, old.st_gid));
}

// A file of variables is written anew as a whole, whatever changes in it, and the old one is there until
// then.
void firmware::check_copy(const change_request &request, room_taken *planned) const
{
    struct stat old = {};
    struct statvfs info = {};
    if (stat(image.c_str(), &old) != 0 || statvfs(image.c_str(), &info) != 0 || info.f_frsize == 0)
        return;
    const auto block = static_cast<int64_t>(info.f_frsize);
    const auto blocks_of = [block](int64_t size) { return (size + block - 1) / block; };
    // A volume has its size, and holes perhaps; U-Boot's file has that of its variables.
    constexpr int64_t unit = 512; // of st_blocks
    const int64_t taken = blocks_of(old.st_blocks * unit);
    const bool grows = is_of_uboot(image);
    const int64_t size = old.st_size + (grows ? planned->store : 0);
    const int64_t wanted = grows ? blocks_of(size) : taken;
    if (static_cast<uint64_t>(size) > largest_file())
        throw file_limit(request);
    constexpr size_t at_once = 4; // the folder, both files, and the new one once more to lock it
    if (const int reason = can_open(at_once); reason != 0)
        throw not_changed(request.what + ": " + strerror(reason));
    const auto free_blocks = static_cast<int64_t>(geteuid() == 0 ? info.f_bfree : info.f_bavail);
    const uint64_t free_files = geteuid() == 0 ? info.f_ffree : info.f_favail;
    if ((info.f_blocks != 0 && planned->blocks + wanted > free_blocks) ||
        (info.f_files != 0 && free_files == 0))
        throw file_system_full(request);
    planned->blocks = wanted - taken;
}

// What is not there need not be removed. A file of variables has no BootCurrent, which ends with a start.
bool firmware::is_changed_by_reset(const change_request &request)
{
    if (!image.empty())
        return request.name == "BootNext" && exists_global(request.name);
    return request.size != 0 || look_at(file_of(request));
}

} // namespace tool
