/* SPDX-License-Identifier: MIT */
/* The two copies of a GPT on a disk, read without libblkid, which does not say what it finds wrong. */
#ifndef HWPLAT_MACHINE_GPTCOPIES_H
#define HWPLAT_MACHINE_GPTCOPIES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace machine {

/* An open device or image. */
class device_bytes {
public:
    device_bytes(int opened, std::uint64_t device_size) : size(device_size), fd(opened) {}

    /* Fewer bytes than asked for where the device ends. Throws read_failure. */
    [[nodiscard]] std::vector<unsigned char> at(std::uint64_t offset, std::size_t count) const;

    const std::uint64_t size;

private:
    int fd;
};

/* A header with its entries (UEFI 5.3.2). */
struct gpt_copy {
    bool has_mark = false;
    bool is_good_header = false;   /* by its checksum */
    bool are_good_entries = false; /* by theirs, which is in the header */
    bool is_beyond = false;        /* it uses blocks that the disk does not have */
    std::uint32_t entry_size = 0;  /* bytes */
    std::uint32_t used = 0;        /* entries, when they are good */

    [[nodiscard]] bool is_good() const { return is_good_header && are_good_entries && !is_beyond; }
};

/* The copy whose header is at a block. Throws read_failure. */
gpt_copy read_gpt_copy(const device_bytes &device, std::uint64_t place, std::uint32_t block_size);

/* The two copies on a disk of at least one block. */
struct gpt_copies {
    gpt_copy first;
    gpt_copy last;

    [[nodiscard]] bool has_mark() const { return first.has_mark || last.has_mark; }
};

gpt_copies read_gpt_copies(const device_bytes &device, std::uint32_t block_size);

/* Whether the first block leaves the disk to a GPT. */
bool is_left_to_gpt(const device_bytes &device);

/* Why there are no slices of a GPT. */
struct gpt_reason {
    bool is_damaged = true; /* else it is good and not used */
    std::string text = {};  /* empty: both of its headers are damaged */
};

gpt_reason why_no_slices(const device_bytes &device, const gpt_copies &copies, std::uint32_t block_size);

} // namespace machine

#endif
