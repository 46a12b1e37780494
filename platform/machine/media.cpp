#include "platform/machine/media.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include <blkid/blkid.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/sysfs.h"

namespace machine {

namespace {

constexpr std::uint64_t unit = 512; // libblkid's, whatever the block size
constexpr std::uint64_t largest_mbr_number = UINT32_MAX;

constexpr std::uint32_t largest_gpt_entry = 4096; // bytes

struct probe_freeing {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using probe_owner = std::unique_ptr<std::remove_pointer_t<blkid_probe>, probe_freeing>;

std::optional<std::uint64_t> size_of(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return std::nullopt;
    if (S_ISREG(status.st_mode))
        return static_cast<std::uint64_t>(status.st_size);
    std::uint64_t size = 0;
    if (!S_ISBLK(status.st_mode) || ioctl(fd, BLKGETSIZE64, &size) != 0)
        return std::nullopt;
    return size;
}

int nibble(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

// The bytes on disk of a GUID's text: the first three groups are little-endian numbers.
std::optional<std::array<std::uint8_t, 16>> guid_bytes(const char *text)
{
    static constexpr std::array<std::uint8_t, 16> places = {3, 2, 1,  0,  5,  4,  7,  6,
                                                            8, 9, 10, 11, 12, 13, 14, 15};
    std::array<std::uint8_t, 16> bytes = {};
    std::size_t count = 0;
    if (text == nullptr)
        return std::nullopt;
    for (const char *at = text; *at != '\0'; ++at) {
        if (*at == '-')
            continue;
        const int high = nibble(*at);
        const int low = high < 0 ? -1 : nibble(at[1]);
        if (low < 0 || count == bytes.size())
            return std::nullopt;
        bytes[places[count++]] = static_cast<std::uint8_t>(high << 4 | low);
        ++at;
    }
    return count == bytes.size() ? std::optional(bytes) : std::nullopt;
}

class table_reader {
public:
    table_reader(const disk &read_disk, std::uint64_t device_size)
        : entry(read_disk), units_per_block(read_disk.block_size / unit),
          blocks(device_size / read_disk.block_size)
    {}

    medium read(blkid_partlist list) const
    {
        medium found;
        blkid_parttable table = blkid_partlist_get_table(list);
        const char *type = blkid_parttable_get_type(table);
        if (type == nullptr)
            return found;
        if (std::strcmp(type, "gpt") == 0)
            found.table = table_kind::gpt;
        else if (std::strcmp(type, "dos") == 0 && read_signature(table, &found.signature))
            found.table = table_kind::mbr;
        else {
            debug("%s: a partition table of kind %s is not used", entry.kernel_name.c_str(), type);
            return found;
        }
        if (found.table == table_kind::mbr)
            found.partitions.push_back(whole_disk());
        const int count = blkid_partlist_numof_partitions(list);
        for (int i = 0; i < count; ++i)
            add_partition(blkid_partlist_get_partition(list, i), table, &found);
        std::sort(found.partitions.begin(), found.partitions.end(),
                  [](const partition &a, const partition &b) { return a.number < b.number; });
        return found;
    }

private:
    static bool read_signature(blkid_parttable table, std::uint32_t *signature)
    {
        const char *text = blkid_parttable_get_id(table);
        // A table without a signature is one of signature 0.
        const auto number = text != nullptr ? parse_number(text, 16) : std::optional<std::uint64_t>(0);
        if (!number || *number > UINT32_MAX)
            return false;
        *signature = static_cast<std::uint32_t>(*number);
        return true;
    }

    partition whole_disk() const
    {
        if (blocks > largest_mbr_number)
            debug("%s: p0 is cut to %" PRIu64 " blocks", entry.kernel_name.c_str(), largest_mbr_number);
        return {0, 0, std::min(blocks, largest_mbr_number), {}};
    }

    void add_partition(blkid_partition stored, blkid_parttable table, medium *found) const
    {
        // Tables inside a partition (of other systems) name nothing that firmware could boot from.
        if (stored == nullptr || blkid_partition_get_table(stored) != table)
            return;
        const int number = blkid_partition_get_partno(stored);
        const blkid_loff_t start = blkid_partition_get_start(stored);
        const blkid_loff_t size = blkid_partition_get_size(stored);
        if (number < 1 || start < 0 || size <= 0) {
            debug("%s: a partition entry makes no sense", entry.kernel_name.c_str());
            return;
        }
        partition part = {static_cast<unsigned>(number),
                          static_cast<std::uint64_t>(start) / units_per_block,
                          static_cast<std::uint64_t>(size) / units_per_block,
                          {}};
        if (part.start >= blocks || part.size > blocks - part.start) {
            debug("%s: partition %d reaches beyond the disk", entry.kernel_name.c_str(), number);
            return;
        }
        if (found->table == table_kind::gpt) {
            const auto guid = guid_bytes(blkid_partition_get_uuid(stored));
            if (!guid) {
                debug("%s: partition %d has no GUID", entry.kernel_name.c_str(), number);
                return;
            }
            part.guid = *guid;
        } else if (part.start > largest_mbr_number || part.size > largest_mbr_number) {
            debug("%s: partition %d has a number beyond 32 bits", entry.kernel_name.c_str(), number);
            return;
        }
        found->partitions.push_back(part);
    }

    const disk &entry;
    std::uint64_t units_per_block;
    std::uint64_t blocks;
};

std::uint32_t little_endian(const unsigned char *bytes)
{
    return static_cast<std::uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16) |
           static_cast<std::uint32_t>(bytes[3]) << 24;
}

// Whether the block at `offset` is a GPT header that claims more entries, or larger ones, than a table can
// have: libblkid would read them all into memory, also where a sparse image holds none of them.
bool claims_too_much(int fd, std::uint64_t offset)
{
    static constexpr std::string_view mark = "EFI PART";
    std::array<unsigned char, 92> header;
    if (pread(fd, header.data(), header.size(), static_cast<off_t>(offset)) !=
            static_cast<ssize_t>(header.size()) ||
        std::memcmp(header.data(), mark.data(), mark.size()) != 0)
        return false;
    return little_endian(&header[80]) > most_gpt_entries || little_endian(&header[84]) > largest_gpt_entry;
}

// Whether the disk's first bytes are an MBR that leaves the disk to a GPT. Without one, what looks like the
// header of a GPT is a remnant that nobody reads.
bool has_protective_mbr(int fd)
{
    static constexpr std::size_t first_entry = 446;
    static constexpr std::size_t entry_size = 16;
    static constexpr std::size_t type_in_entry = 4;
    static constexpr unsigned char protective = 0xee;
    std::array<unsigned char, 512> record;
    if (pread(fd, record.data(), record.size(), 0) != static_cast<ssize_t>(record.size()) ||
        record[510] != 0x55 || record[511] != 0xaa)
        return false;
    for (std::size_t at = first_entry; at < 510; at += entry_size) {
        if (record[at + type_in_entry] == protective)
            return true;
    }
    return false;
}

} // namespace

medium read_medium(const machine_root &root, const disk &disk)
{
    const descriptor devices = open_below(root.folder.get(), {"dev"}, missing_folders::fail);
    const descriptor device(devices ? openat(devices.get(), disk.kernel_name.c_str(),
                                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)
                                    : -1);
    if (!device && errno != ENOENT) {
        medium unreadable;
        unreadable.error = errno;
        debug("dev/%s: no disk or image that can be read: %s", disk.kernel_name.c_str(),
              std::strerror(unreadable.error));
        return unreadable;
    }
    const auto size = device ? size_of(device.get()) : std::nullopt;
    if (!size) {
        debug("dev/%s: no disk or image that can be read", disk.kernel_name.c_str());
        return {};
    }
    // Its header and the backup of it.
    const std::uint64_t block = disk.block_size;
    if (*size >= 2 * block && has_protective_mbr(device.get()) &&
        (claims_too_much(device.get(), block) ||
         claims_too_much(device.get(), (*size / block - 1) * block))) {
        debug("dev/%s: its partition table claims too many entries", disk.kernel_name.c_str());
        return {};
    }
    const probe_owner probe(blkid_new_probe());
    if (!probe)
        throw std::bad_alloc();
    if (blkid_probe_set_device(probe.get(), device.get(), 0, static_cast<blkid_loff_t>(*size)) != 0 ||
        blkid_probe_set_sectorsize(probe.get(), disk.block_size) != 0) {
        debug("dev/%s: cannot be probed", disk.kernel_name.c_str());
        return {};
    }
    blkid_probe_enable_superblocks(probe.get(), 0);
    blkid_probe_enable_partitions(probe.get(), 1);
    blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_ENTRY_DETAILS);
    blkid_partlist list = blkid_probe_get_partitions(probe.get());
    if (list == nullptr || blkid_partlist_get_table(list) == nullptr) {
        debug("dev/%s: no partition table", disk.kernel_name.c_str());
        return {};
    }
    return table_reader(disk, *size).read(list);
}

} // namespace machine
