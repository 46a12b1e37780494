// SPDX-License-Identifier: MIT
#include "platform/machine/media.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/blkid.h"
#include "platform/machine/bootrecord.h"
#include "platform/machine/debug.h"
#include "platform/machine/failure.h"
#include "platform/machine/sysfs.h"

namespace machine {

namespace {

constexpr std::uint64_t unit_size = 512; // of libblkid's numbers, whatever the block size
constexpr std::uint64_t largest_mbr_number = UINT32_MAX;

constexpr std::uint32_t largest_gpt_entry = 4096; // bytes

class table_reader {
public:
    table_reader(const disk &read_disk, std::uint64_t device_size, bool says_why)
        : entry(read_disk), telling(says_why), units_per_block(read_disk.block_size / unit_size),
          blocks(device_size / read_disk.block_size)
    {}

    medium read(blkid_partlist list) const
    {
        medium found;
        blkid_parttable table = blkid().partlist_get_table(list);
        const char *type = blkid().parttable_get_type(table);
        if (type == nullptr)
            return found;
        if (std::strcmp(type, "gpt") == 0)
            found.table = table_kind::gpt;
        else if (std::strcmp(type, "dos") == 0 && read_signature(table, &found.signature))
            found.table = table_kind::mbr;
        else {
            found.other = type;
            if (telling)
                debug("%s: a partition table of kind %s is not used", entry.kernel_name.c_str(), type);
            return found;
        }
        if (found.table == table_kind::mbr)
            found.partitions.push_back(whole_disk());
        const int count = blkid().partlist_numof_partitions(list);
        for (int i = 0; i < count; ++i)
            add_partition(blkid().partlist_get_partition(list, i), table, &found);
        std::sort(found.partitions.begin(), found.partitions.end(),
                  [](const partition &a, const partition &b) { return a.number < b.number; });
        return found;
    }

private:
    static bool read_signature(blkid_parttable table, std::uint32_t *signature)
    {
        const char *text = blkid().parttable_get_id(table);
        // A table without a signature has signature 0.
        const auto number = text != nullptr ? parse_number(text, 16) : std::optional<std::uint64_t>(0);
        if (!number || *number > UINT32_MAX)
            return false;
        *signature = static_cast<std::uint32_t>(*number);
        return true;
    }

    partition whole_disk() const
    {
        if (blocks > largest_mbr_number)
            if (telling)
                debug("%s: p0 is cut to %" PRIu64 " blocks", entry.kernel_name.c_str(), largest_mbr_number);
        return {0, 0, std::min(blocks, largest_mbr_number), {}};
    }

    void add_partition(blkid_partition stored, blkid_parttable table, medium *found) const
    {
        // Firmware does not boot from the tables that other systems have inside a partition.
        if (stored == nullptr || blkid().partition_get_table(stored) != table)
            return;
        const int number = blkid().partition_get_partno(stored);
        const blkid_loff_t start = blkid().partition_get_start(stored);
        const blkid_loff_t size = blkid().partition_get_size(stored);
        if (number < 1 || start < 0 || size <= 0)
            return leave_out("a partition entry makes no sense", found);
        partition part = {static_cast<unsigned>(number),
                          static_cast<std::uint64_t>(start) / units_per_block,
                          static_cast<std::uint64_t>(size) / units_per_block,
                          {}};
        // The kernel cuts such a partition of an MBR, and has none for such an entry of a GPT.
        const bool is_gpt = found->table == table_kind::gpt;
        if (part.start >= blocks || (is_gpt && part.size > blocks - part.start))
            return leave_out("partition " + std::to_string(number) + " reaches beyond the disk", found);
        if (is_gpt) {
            const char *text = blkid().partition_get_uuid(stored);
            const auto guid = ovra::parse_guid(text != nullptr ? text : "");
            if (!guid)
                return leave_out("partition " + std::to_string(number) + " has no GUID", found);
            part.guid = ovra::stored_guid(*guid);
            part.attributes = blkid().partition_get_flags(stored);
            if (const char *label = blkid().partition_get_name(stored); label != nullptr)
                part.label = label;
        } else if (part.start > largest_mbr_number || part.size > largest_mbr_number) {
            return leave_out("partition " + std::to_string(number) + " has a number beyond 32 bits", found);
        }
        found->partitions.push_back(part);
    }

    void leave_out(const std::string &why, medium *found) const
    {
        found->has_more = true;
        if (telling)
            debug("%s: %s", entry.kernel_name.c_str(), why.c_str());
    }

    const disk &entry;
    bool telling;
    std::uint64_t units_per_block;
    std::uint64_t blocks;
};

// Whether the device has all of `bytes` at `offset`.
bool read_at(int fd, std::uint64_t offset, std::span<unsigned char> bytes)
{
    const ssize_t count = pread(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0)
        throw read_failure{errno};
    return static_cast<std::size_t>(count) == bytes.size();
}

using boot_record = std::array<unsigned char, record_size>;

// The record that continues an MBR; 0 if there is none.
std::uint32_t next_record(const std::vector<record_entry> &entries)
{
    const auto found = std::find_if(entries.begin(), entries.end(), [](const auto &entry) {
        return entry.type == 0x05 || entry.type == 0x0f || entry.type == 0x85;
    });
    return found != entries.end() ? found->start : 0;
}

// Reads the blocks of a partition table before libblkid does, which treats much that it cannot read as
// absent. False when a header of a GPT claims more entries, or larger ones, than a table can have: libblkid
// would read them all into memory, even from a sparse image that holds none of them.
class table_check {
public:
    table_check(int device, std::uint64_t device_size, std::uint32_t block_size)
        : fd(device), blocks(device_size / block_size), block(block_size)
    {}

    [[nodiscard]] bool is_sound() const
    {
        boot_record record;
        if (blocks < 2 || !read_at(fd, 0, record))
            return true;
        const auto entries = entries_of(record);
        if (!is_protective(entries)) {
            follow(next_record(entries));
            return true;
        }
        bool read = false;
        if (!is_header_sound(1, &read))
            return false;
        // With a good first header, an unreadable last block does no harm.
        try {
            return is_header_sound(blocks - 1, nullptr);
        } catch (const read_failure &) {
            if (!read)
                throw;
            return true;
        }
    }

private:
    // A header and its entries (UEFI 5.3.2). `*there`: the block has the mark of a header.
    bool is_header_sound(std::uint64_t place, bool *there) const
    {
        static constexpr std::string_view mark = "EFI PART";
        std::array<unsigned char, 92> header;
        if (!read_at(fd, place * block, header) || std::memcmp(header.data(), mark.data(), mark.size()) != 0)
            return true;
        if (there != nullptr)
            *there = true;
        const std::uint64_t start = little_endian64(header, 72);
        const std::uint64_t count = little_endian(header, 80);
        const std::uint64_t size = little_endian(header, 84);
        if (count > most_gpt_entries || size > largest_gpt_entry)
            return false;
        if (start < blocks)
            read_through(start * block, count * size);
        return true;
    }

    void read_through(std::uint64_t offset, std::uint64_t size) const
    {
        std::vector<unsigned char> piece(std::min<std::uint64_t>(size, 65536));
        for (; size != 0; size -= piece.size(), offset += piece.size()) {
            piece.resize(std::min<std::uint64_t>(size, piece.size()));
            if (!read_at(fd, offset, piece))
                return;
        }
    }

    // The records of logical partitions. Each has the distance of the next one from the first.
    void follow(std::uint32_t first) const
    {
        static constexpr unsigned most_records = 128; // libblkid follows no more than 100
        std::uint64_t distance = 0;
        for (unsigned i = 0; first != 0 && i < most_records; ++i) {
            boot_record record;
            if (first + distance >= blocks || !read_at(fd, (first + distance) * block, record))
                return;
            distance = next_record(entries_of(record));
            if (distance == 0)
                return;
        }
    }

    int fd;
    std::uint64_t blocks;
    std::uint64_t block;
};

// What libblkid finds on a device, as far as it reports errors.
medium probe_once(const disk &disk, int device, std::uint64_t size, bool telling)
{
    const probe_owner probe(blkid().new_probe());
    if (!probe)
        throw std::bad_alloc();
    errno = 0;
    if (blkid().probe_set_device(probe.get(), device, 0, static_cast<blkid_loff_t>(size)) != 0 ||
        blkid().probe_set_sectorsize(probe.get(), disk.block_size) != 0 ||
        blkid().probe_enable_superblocks(probe.get(), 0) != 0 ||
        blkid().probe_enable_partitions(probe.get(), 1) != 0 ||
        blkid().probe_set_partitions_flags(probe.get(), BLKID_PARTS_ENTRY_DETAILS) != 0)
        throw read_failure{errno != 0 ? errno : EIO};
    errno = 0;
    blkid_partlist list = blkid().probe_get_partitions(probe.get());
    if (list != nullptr && blkid().partlist_get_table(list) != nullptr)
        return table_reader(disk, size, telling).read(list);
    // libblkid says EINVAL for a table that points beyond the disk.
    if (errno != 0 && errno != EINVAL)
        throw read_failure{errno};
    if (telling)
        debug("dev/%s: no partition table", disk.kernel_name.c_str());
    return {};
}

medium read_table(const disk &disk, int device)
{
    const auto size = device_size(device);
    if (!size) {
        debug("dev/%s: no disk or image that can be read", disk.kernel_name.c_str());
        return {};
    }
    if (!table_check(device, *size, disk.block_size).is_sound()) {
        debug("dev/%s: its partition table claims too many entries", disk.kernel_name.c_str());
        return {};
    }
    // libblkid also ignores failed allocations and single failed reads. A result counts when it comes twice.
    static constexpr unsigned attempts = 4;
    medium found = probe_once(disk, device, *size, true);
    for (unsigned i = 0; i < attempts; ++i) {
        medium again = probe_once(disk, device, *size, false);
        if (again == found)
            return found;
        found = std::move(again);
    }
    throw read_failure{EIO};
}

} // namespace

owned_fd open_disk(const machine_root &root, const disk &disk)
{
    owned_fd folder = open_below(root.folder.get(), {"dev"}, missing_folders::fail);
    // No folder of another's choice is passed through: a link in the place of one is followed no more than
    // one in the place of the device.
    std::string_view name = disk.kernel_name;
    for (std::size_t slash = name.find('/'); folder && slash != std::string_view::npos;
         slash = name.find('/')) {
        folder =
            open_below(folder.get(), {std::string(name.substr(0, slash)).c_str()}, missing_folders::fail);
        name.remove_prefix(slash + 1);
    }
    return owned_fd(folder ? openat(folder.get(), std::string(name).c_str(),
                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)
                           : -1);
}

std::optional<std::uint64_t> device_size(int device)
{
    struct stat status = {};
    if (fstat(device, &status) != 0)
        throw read_failure{errno};
    if (S_ISREG(status.st_mode))
        return static_cast<std::uint64_t>(status.st_size);
    if (!S_ISBLK(status.st_mode))
        return std::nullopt;
    std::uint64_t size = 0;
    if (ioctl(device, BLKGETSIZE64, &size) != 0)
        throw read_failure{errno};
    return size;
}

medium read_medium(const machine_root &root, const disk &disk)
{
    try {
        const owned_fd device = open_disk(root, disk);
        if (device)
            return read_table(disk, device.get());
        if (errno != ENOENT)
            throw read_failure{errno};
        debug("dev/%s: no disk or image that can be read", disk.kernel_name.c_str());
        return {};
    } catch (const read_failure &failure) {
        debug("dev/%s: no disk or image that can be read: %s", disk.kernel_name.c_str(),
              std::strerror(failure.error));
        if (is_shortage(failure.error))
            throw;
        medium unreadable;
        unreadable.error = failure.error;
        return unreadable;
    }
}

} // namespace machine
