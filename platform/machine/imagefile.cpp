// SPDX-License-Identifier: MIT
#include "platform/machine/imagefile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/debug.h"
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

int read_volume(const source &from, image_contents *out)
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

int read_uboot_file(const source &from, const ovra::uboot_file_header &header, image_contents *out)
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

int read_any(const source &from, image_contents *out)
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

owned_fd open_image(const machine_root &root)
{
    // Without blocking: the name may be a FIFO's or a device's.
    owned_fd file(openat(root.folder.get(), root.image.c_str(),
                         O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file && (errno == ELOOP || errno == ENXIO))
        errno = EMEDIUMTYPE;
    return file;
}

int read_image(const machine_root &root, known_image *out)
{
    struct stat info = {};
    if (fstatat(root.folder.get(), root.image.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        if (known_image known = known_version(root, version_of(info))) {
            *out = std::move(known);
            return 0;
        }
    }
    const owned_fd file = open_image(root);
    if (!file || fstat(file.get(), &info) != 0)
        return errno;
    if (!S_ISREG(info.st_mode))
        return S_ISDIR(info.st_mode) ? EISDIR : EMEDIUMTYPE;
    timespec begun = {};
    clock_gettime(CLOCK_REALTIME, &begun);
    const auto found = std::make_shared<image_contents>();
    found->version = version_of(info);
    const source from = {file.get(), static_cast<std::uint64_t>(info.st_size)};
    if (const int error = read_any(from, found.get()); error != 0) {
        debug("'%s' cannot be used as a file of variables: %s", root.image.c_str(), std::strerror(error));
        return error;
    }
    keep_version(root, file.get(), begun, found);
    *out = found;
    return 0;
}

} // namespace machine
