// SPDX-License-Identifier: MIT
#include "tools/exchange/tablecopy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr size_t record_size = 512; // of an MBR, whatever the disk's blocks are
constexpr size_t boot_code = 440;
constexpr size_t first_entry = 446;
constexpr size_t entry_size = 16;
constexpr size_t mark_at = 510;

class table_copy {
public:
    table_copy(int from, int to, uint64_t bytes, uint32_t block_size)
        : in(from), out(to), size(bytes), block(block_size)
    {}

    // 0, or an errno value of reading.
    int copy()
    {
        copy_mbr();
        if (!copy_gpt(1) || size < 2 * uint64_t{block})
            copy_gpt(size / std::max(block, 1u) - 1); // the second one stands at the end
        return error;
    }

private:
    bytes read_at(uint64_t offset, size_t count)
    {
        bytes data(count);
        if (offset > size || count > size - offset)
            return {};
        const ssize_t got = pread(in, data.data(), count, static_cast<off_t>(offset));
        if (got == -1 && error == 0)
            error = errno;
        return got == static_cast<ssize_t>(count) ? data : bytes{};
    }

    void write_at(uint64_t offset, byte_view data) const
    {
        if (pwrite(out, data.data(), data.size(), static_cast<off_t>(offset)) !=
            static_cast<ssize_t>(data.size()))
            throw failure(std::string("cannot write the copy of a partition table: ") + strerror(errno));
    }

    template <typename number>
    static number number_at(byte_view data, size_t at)
    {
        number value = 0;
        memcpy(&value, data.data() + at, sizeof value);
        return value;
    }

    static bool is_record(byte_view record)
    {
        return record.size() == record_size && record[mark_at] == 0x55 && record[mark_at + 1] == 0xaa;
    }

    static bool is_extended(uint8_t type) { return type == 0x05 || type == 0x0f || type == 0x85; }

    // The first block that an entry names, when its type is one that holds others; else 0.
    static uint32_t extended_of(byte_view record, size_t entry)
    {
        const size_t at = first_entry + entry * entry_size;
        return is_extended(record[at + 4]) ? number_at<uint32_t>(record, at + 8) : 0;
    }

    void copy_mbr()
    {
        const bytes record = read_at(0, record_size);
        if (!is_record(record))
            return;
        write_at(boot_code, byte_view(record).subspan(boot_code));
        constexpr size_t primary = 4;
        for (size_t entry = 0; entry < primary; ++entry) {
            if (const uint32_t first = extended_of(record, entry); first != 0)
                copy_logical(first);
        }
    }

    void copy_logical(uint64_t base)
    {
        constexpr int most = 256; // a chain may go in circles
        uint64_t place = base;
        for (int count = 0; count < most; ++count) {
            const bytes record = read_at(place * block, record_size);
            if (!is_record(record))
                return;
            write_at(place * block + first_entry, byte_view(record).subspan(first_entry));
            const uint32_t next = extended_of(record, 1);
            if (next == 0)
                return;
            place = base + next;
        }
    }

    // The table whose header stands at a block, and the other one that it names. False when there is none.
    bool copy_gpt(uint64_t place, bool also_other = true)
    {
        constexpr size_t header_size = 92;
        constexpr uint64_t most_bytes = 1u << 20;
        const uint64_t blocks = size / std::max(block, 1u);
        if (place == 0 || place >= blocks)
            return false;
        const bytes header = read_at(place * block, header_size);
        if (header.empty() || memcmp(header.data(), "EFI PART", 8) != 0)
            return false;
        const auto entries = number_at<uint64_t>(header, 72);
        const uint64_t bytes_of_entries =
            uint64_t{number_at<uint32_t>(header, 80)} * number_at<uint32_t>(header, 84);
        write_at(place * block, header);
        if (entries < blocks && bytes_of_entries <= most_bytes) {
            if (const bytes table = read_at(entries * block, bytes_of_entries); !table.empty())
                write_at(entries * block, table);
        }
        if (also_other)
            copy_gpt(number_at<uint64_t>(header, 32), false);
        return true;
    }

    int in;
    int out;
    uint64_t size;
    uint32_t block;
    int error = 0;
};

// Opens a file below a folder, without following links: they may lead out of it to what is not the machine's.
// -1 with errno when it cannot.
int open_below(const std::string &folder, const std::string &name)
{
    int at = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (size_t begin = 0; at != -1 && begin <= name.size();) {
        const size_t slash = std::min(name.find('/', begin), name.size());
        const int flags = slash < name.size() ? O_PATH | O_DIRECTORY : O_RDONLY | O_NONBLOCK | O_NOCTTY;
        const int next =
            openat(at, name.substr(begin, slash - begin).c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
        const int error = errno;
        close(at);
        errno = error;
        at = next;
        begin = slash + 1;
    }
    return at;
}

} // namespace

int copy_tables(const std::string &folder, const std::string &disk, const std::string &image, uint64_t size,
                uint32_t block)
{
    const int in = open_below(folder, disk);
    if (in == -1)
        return errno;
    constexpr mode_t mode = 0644;
    const int out = open(image.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (out == -1 || ftruncate(out, static_cast<off_t>(size)) != 0) {
        const int error = errno;
        close(in);
        if (out != -1)
            close(out);
        throw failure("cannot make an image of " + printable(disk) + ": " + strerror(error));
    }
    int error = 0;
    try {
        error = table_copy(in, out, size, block).copy();
    } catch (...) {
        close(in);
        close(out);
        throw;
    }
    close(in);
    close(out);
    return error;
}

} // namespace tool
