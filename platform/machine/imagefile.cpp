// SPDX-License-Identifier: MIT
#include "platform/machine/imagefile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/lock.h"
#include "platform/machine/size_signal.h"
#include "src/base/guid.h"
#include "src/base/variable_image.h"

namespace machine {

namespace {

using ovra::volume_header;

// No flash memory is larger: a disk that is named by mistake is not searched to its end.
constexpr std::uint64_t largest_flash = 256u << 20;

// An open file and its size. What it does not hold cannot be read.
struct source {
    int file;
    std::uint64_t size;
};

// 0, ERANGE when the file ends before, or why it cannot be read.
int read_at(const source &from, std::uint64_t offset, std::span<std::byte> buffer)
{
    for (int interruptions = 0; !buffer.empty();) {
        const ssize_t got = pread(from.file, buffer.data(), buffer.size(), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR && ++interruptions < most_interruptions)
            continue;
        if (got <= 0)
            return got < 0 ? errno : ERANGE;
        offset += static_cast<std::uint64_t>(got);
        buffer = buffer.subspan(static_cast<std::size_t>(got));
    }
    return 0;
}

template <typename record>
int read_record(const source &from, std::uint64_t offset, record *out)
{
    if (offset > from.size || from.size - offset < sizeof(record))
        return ERANGE;
    return read_at(from, offset, std::as_writable_bytes(std::span(out, 1)));
}

int read_bytes(const source &from, std::uint64_t offset, std::uint64_t size, bytes *out)
{
    if (offset > from.size || from.size - offset < size)
        return ERANGE;
    out->resize(static_cast<std::size_t>(size));
    return read_at(from, offset, *out);
}

bool is_of_variables(const volume_header &header)
{
    return ovra::same_guid(header.file_system, ovra::volume_of_variables);
}

// 0; EBADMSG for a header that is damaged.
int check_volume(const source &from, std::uint64_t offset, const volume_header &header)
{
    constexpr std::uint16_t longest_header = 4096;
    bytes whole;
    if (header.header_length < sizeof header || header.header_length > longest_header ||
        header.header_length % sizeof(std::uint16_t) != 0 || header.length < header.header_length ||
        header.length > largest_flash)
        return EBADMSG;
    if (const int error = read_bytes(from, offset, header.header_length, &whole); error != 0)
        return error;
    std::uint16_t sum = 0;
    for (std::size_t at = 0; at < whole.size(); at += sizeof sum) {
        std::uint16_t number = 0;
        std::memcpy(&number, whole.data() + at, sizeof number);
        sum = static_cast<std::uint16_t>(sum + number);
    }
    return sum == 0 ? 0 : EBADMSG;
}

// Finds the first volume of variables: at the beginning, as in the files of virtual machines, behind other
// volumes, or at a block of its own, as in a copy of a whole flash memory. EMEDIUMTYPE when there is none.
int find_volume(const source &from, std::uint64_t *offset, volume_header *header)
{
    constexpr std::uint64_t block = 4096;
    const std::uint64_t end = std::min(from.size, largest_flash);
    for (std::uint64_t at = 0; at < end && from.size - at >= sizeof *header;) {
        if (const int error = read_record(from, at, header); error != 0)
            return error;
        const bool is_volume = header->signature == ovra::volume_signature;
        const int damage = is_volume ? check_volume(from, at, *header) : 0;
        if (is_volume && is_of_variables(*header)) {
            *offset = at;
            return damage;
        }
        if (damage != 0 && damage != EBADMSG && damage != ERANGE)
            return damage;
        const bool can_be_passed =
            is_volume && damage == 0 && header->length % block == 0 && header->length <= from.size - at;
        at += can_be_passed ? header->length : block;
    }
    return EMEDIUMTYPE;
}

// The block in which the firmware notes what it moves in the volume, so as to go on after a power failure
// (MdeModulePkg/Universal/FaultTolerantWriteDxe).
struct working_block {
    EFI_GUID signature;
    std::uint32_t crc32;
    std::uint8_t state;
    std::array<std::uint8_t, 3> reserved;
    std::uint64_t queue_size;
};
OVRA_SIZE(working_block, 32);
constexpr EFI_GUID working_block_signature = {
    0x9e58292b, 0x7c68, 0x497d, {0xa0, 0xce, 0x65, 0x00, 0xfd, 0x9f, 0x1b, 0x95}};

// A move in the queue; its writes follow, each a work_write with private bytes.
struct work {
    std::uint8_t flags; // done when 0: made, planned, complete
    std::array<std::uint8_t, 23> caller;
    std::uint64_t writes;
    std::uint64_t private_size;
};
OVRA_SIZE(work, 40);
constexpr std::uint8_t work_made = 1, work_planned = 2, work_complete = 4;

struct work_write {
    std::uint8_t flags; // done when 0: boot block, kept aside, in place
    std::array<std::uint8_t, 39> rest;
};
OVRA_SIZE(work_write, 40);
constexpr std::uint8_t write_kept_aside = 2, write_in_place = 4;

// Whether the bytes of a queue end in a write that is kept aside and not in place: the firmware begins its
// next start with it, and whatever else stands in the store then is lost.
bool is_write_pending(byte_view queue)
{
    while (queue.size() >= sizeof(work)) {
        work entry = {};
        std::memcpy(&entry, queue.data(), sizeof entry);
        queue = queue.subspan(sizeof entry);
        if ((entry.flags & (work_made | work_planned)) != 0 || entry.private_size > queue.size())
            return false;
        const std::size_t step = sizeof(work_write) + static_cast<std::size_t>(entry.private_size);
        for (std::uint64_t i = 0; i < entry.writes; ++i) {
            if (queue.size() < step)
                return false;
            work_write each = {};
            std::memcpy(&each, queue.data(), sizeof each);
            queue = queue.subspan(step);
            if ((entry.flags & work_complete) != 0 && (each.flags & write_kept_aside) == 0 &&
                (each.flags & write_in_place) != 0)
                return true;
        }
    }
    return false;
}

// 0, or EINPROGRESS. The block stands somewhere behind the store.
int check_pending(const source &from, std::uint64_t begin, std::uint64_t end)
{
    constexpr std::uint64_t step = 4096;
    constexpr std::uint64_t longest_queue = 64u << 10;
    for (std::uint64_t at = ovra::aligned(begin, step); at < end; at += step) {
        working_block header = {};
        if (read_record(from, at, &header) != 0 ||
            !ovra::same_guid(header.signature, working_block_signature))
            continue;
        bytes queue;
        const std::uint64_t size = std::min({header.queue_size, longest_queue, end - at - sizeof header});
        if (const int error = read_bytes(from, at + sizeof header, size, &queue); error != 0)
            return error;
        return is_write_pending(queue) ? EINPROGRESS : 0;
    }
    return 0;
}

int read_volume(const source &from, opened_image *out)
{
    volume_header header = {};
    std::uint64_t offset = 0;
    if (const int error = find_volume(from, &offset, &header); error != 0)
        return error;
    if (header.length > from.size - offset) {
        debug("the volume of variables has %llu bytes, and the file only %llu from there",
              static_cast<unsigned long long>(header.length),
              static_cast<unsigned long long>(from.size - offset));
        return ERANGE;
    }
    ovra::variable_store_header store = {};
    const std::uint64_t begin = offset + header.header_length;
    if (const int error = read_record(from, begin, &store); error != 0)
        return error;
    if ((header.attributes & ovra::volume_erases_to_ones) == 0 ||
        store.size > header.length - header.header_length || store.size > largest_image_store)
        return EBADMSG;
    const std::uint64_t end = begin + store.size;
    if (const int error = check_pending(from, end, offset + header.length); error != 0)
        return error;
    bytes contents;
    if (const int error = read_bytes(from, begin, store.size, &contents); error != 0)
        return error;
    out->offset = begin;
    out->is_whole = false;
    out->store = volume_image(std::move(contents));
    return out->store ? 0 : EBADMSG;
}

int read_uboot_file(const source &from, const ovra::uboot_file_header &header, opened_image *out)
{
    if (header.length > from.size)
        return ERANGE;
    if (header.length > largest_image_store)
        return EBADMSG;
    bytes contents;
    if (const int error =
            read_bytes(from, 0, std::max<std::uint64_t>(header.length, sizeof header), &contents);
        error != 0)
        return error;
    out->offset = 0;
    out->is_whole = true;
    out->store = uboot_image(std::move(contents));
    return out->store ? 0 : EBADMSG;
}

int read_any(const source &from, opened_image *out)
{
    constexpr std::string_view qcow2 = "QFI\xfb";
    ovra::uboot_file_header header = {};
    if (from.size < sizeof header)
        return EMEDIUMTYPE;
    if (const int error = read_record(from, 0, &header); error != 0)
        return error;
    if (std::memcmp(&header, qcow2.data(), qcow2.size()) == 0)
        return EOPNOTSUPP;
    return header.magic == ovra::uboot_magic ? read_uboot_file(from, header, out) : read_volume(from, out);
}

} // namespace

int read_image(const machine_root &root, opened_image *out)
{
    // Without blocking: the name may be a FIFO's or a device's.
    opened_image found;
    found.file.reset(openat(root.folder.get(), root.image.c_str(),
                            O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info = {};
    if (!found.file || fstat(found.file.get(), &info) != 0)
        return errno == ELOOP || errno == ENXIO ? EMEDIUMTYPE : errno;
    if (!S_ISREG(info.st_mode))
        return S_ISDIR(info.st_mode) ? EISDIR : EMEDIUMTYPE;
    const source from = {found.file.get(), static_cast<std::uint64_t>(info.st_size)};
    if (const int error = read_any(from, &found); error != 0) {
        debug("'%s' cannot be used as a file of variables: %s", root.image.c_str(), std::strerror(error));
        return error;
    }
    *out = std::move(found);
    return 0;
}

namespace {

// A new file beside the image. It is removed again unless it takes the image's name.
class new_file {
public:
    new_file(int in_folder, const std::string &image) : folder(in_folder), name("." + image + ".hwplat.tmp")
    {
        // Only who has the machine's lock makes this file: one that is there was left by a killed writer.
        open();
        if (!file && errno == EEXIST && unlinkat(folder, name.c_str(), 0) == 0)
            open();
    }
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;
    ~new_file()
    {
        const int saved = errno;
        if (file && !kept)
            unlinkat(folder, name.c_str(), 0);
        errno = saved;
    }

    explicit operator bool() const { return static_cast<bool>(file); }
    [[nodiscard]] int get() const { return file.get(); }
    [[nodiscard]] const char *path() const { return name.c_str(); }
    void keep() { kept = true; }

private:
    void open()
    {
        constexpr mode_t mode = 0600; // until it has its owner
        file.reset(openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    }

    int folder;
    std::string name;
    owned_fd file;
    bool kept = false;
};

// Marks of the security system and access lists. Some only root may set, and some file systems have none: the
// emulator's own tools set them again.
void copy_extended_attributes(int from, int to)
{
    constexpr std::size_t longest = 64u << 10;
    std::vector<char> names(longest);
    std::vector<char> value(longest);
    const ssize_t size = flistxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < size;) {
        const char *name = names.data() + at;
        const ssize_t length = fgetxattr(from, name, value.data(), value.size());
        if (length >= 0 && fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0) != 0)
            debug("the new file does not get the attribute '%s': %s", name, std::strerror(errno));
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
    }
}

// Owner and mode: an emulator that may not open the new file would not start. 0 or an errno value.
int take_over_owner(int from, int to)
{
    struct stat old = {};
    struct stat made = {};
    if (fstat(from, &old) != 0 || fstat(to, &made) != 0)
        return errno;
    // A file system without owners and modes gives both files the same.
    if ((old.st_uid != made.st_uid || old.st_gid != made.st_gid) && fchown(to, old.st_uid, old.st_gid) != 0) {
        debug("the new file cannot have the owner of the old one: %s", std::strerror(errno));
        return errno;
    }
    copy_extended_attributes(from, to);
    if (fstat(to, &made) != 0)
        return errno;
    return made.st_mode == old.st_mode || fchmod(to, old.st_mode & ALLPERMS) == 0 ? 0 : errno;
}

int copy_range(const source &from, int to, std::uint64_t begin, std::uint64_t end)
{
    constexpr std::uint64_t at_once = 1u << 20;
    bytes buffer;
    while (begin < end) {
        if (const int error = read_bytes(from, begin, std::min(at_once, end - begin), &buffer); error != 0)
            return error;
        if (lseek(to, static_cast<off_t>(begin), SEEK_SET) < 0)
            return errno;
        if (const int error = write_all(to, buffer); error != 0)
            return error;
        begin += buffer.size();
    }
    return 0;
}

// Copies a file into an empty one. Holes stay holes: most of the files for ARM are.
int copy_file(const source &from, int to)
{
    {
        const no_size_signal quiet;
        if (ftruncate(to, static_cast<off_t>(from.size)) != 0)
            return errno;
    }
    const auto end = static_cast<off_t>(from.size);
    for (off_t at = 0; at < end;) {
        off_t data = lseek(from.file, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            return 0; // a hole to the end
        off_t hole = data < 0 ? end : lseek(from.file, data, SEEK_HOLE);
        data = std::max(data, at);
        hole = hole <= data ? end : std::min(hole, end);
        if (const int error =
                copy_range(from, to, static_cast<std::uint64_t>(data), static_cast<std::uint64_t>(hole));
            error != 0)
            return error;
        at = hole;
    }
    return 0;
}

int fill(int to, const opened_image &image)
{
    struct stat info = {};
    if (fstat(image.file.get(), &info) != 0)
        return errno;
    if (!image.is_whole) {
        const source from = {image.file.get(), static_cast<std::uint64_t>(info.st_size)};
        if (const int error = copy_file(from, to); error != 0)
            return error;
    }
    if (lseek(to, static_cast<off_t>(image.offset), SEEK_SET) < 0)
        return errno;
    if (const int error = write_all(to, image.store->contents()); error != 0)
        return error;
    return synchronise(to) == 0 ? 0 : errno;
}

} // namespace

int write_image(const machine_root &root, const opened_image &image)
{
    const owned_fd folder = open_for_reading(root.folder.get());
    if (!folder)
        return errno;
    new_file file(folder.get(), root.image);
    if (!file)
        return errno;
    if (const int error = take_over_owner(image.file.get(), file.get()); error != 0)
        return error;
    if (const int error = fill(file.get(), image); error != 0)
        return error;
    const auto identity = file_identity_of(file.get());
    if (!identity)
        return errno;
    if (const int error = rename_locked(root, file.path(), *identity); error != 0)
        return error;
    file.keep();
    return write_back(folder.get());
}

} // namespace machine
