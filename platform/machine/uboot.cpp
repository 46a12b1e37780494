// SPDX-License-Identifier: MIT
// The file in which U-Boot keeps variables, ubootefi.var (lib/efi_loader/efi_var_file.c).
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "platform/machine/debug.h"
#include "platform/machine/image.h"
#include "src/base/crc32.h"
#include "src/base/guid.h"
#include "src/base/variable_image.h"

namespace machine {

namespace {

using ovra::uboot_file_header;
using ovra::uboot_variable_header;

// What U-Boot reads unless it was built to read more (CONFIG_EFI_VAR_BUF_SIZE).
constexpr std::size_t usual_file_size = 64u << 10;

uint32_t crc32(byte_view all)
{
    return ovra::crc32({reinterpret_cast<const uint8_t *>(all.data()), all.size()});
}

// The name at the beginning of the bytes, with its terminator; empty when it has none.
byte_view name_in(byte_view rest)
{
    for (std::size_t at = 0; at + sizeof(CHAR16) <= rest.size(); at += sizeof(CHAR16)) {
        if (rest[at] == std::byte{0} && rest[at + 1] == std::byte{0})
            return rest.first(at + sizeof(CHAR16));
    }
    return {};
}

class uboot_file final : public variable_image {
public:
    explicit uboot_file(bytes taken) : variable_image(std::move(taken)) {}

    bool parse();

    [[nodiscard]] std::unique_ptr<variable_image> with(const std::string &file_name,
                                                       const new_value *value) const override;

    [[nodiscard]] UINT64 capacity() const override { return limit() - sizeof(uboot_file_header); }
    [[nodiscard]] UINT64 free_space() const override { return limit() - store.size(); }
    [[nodiscard]] UINT64 largest_variable() const override { return 32u << 10; }

private:
    [[nodiscard]] std::size_t limit() const { return std::max(usual_file_size, store.size()); }
};

bool uboot_file::parse()
{
    std::vector<image_variable> found;
    const byte_view all = store;
    for (std::size_t at = sizeof(uboot_file_header); at < all.size();) {
        uboot_variable_header header = {};
        const byte_view rest = all.subspan(at);
        const byte_view name =
            rest.size() > sizeof header ? name_in(rest.subspan(sizeof header)) : byte_view();
        if (name.empty()) {
            debug("byte %zu of the file begins no variable", at);
            return false;
        }
        std::memcpy(&header, rest.data(), sizeof header);
        const std::size_t data = at + sizeof header + name.size();
        if (header.data_size > all.size() - data) {
            debug("the variable at byte %zu is larger than what is left of the file", at);
            return false;
        }
        // The last one may lack the bytes that would align the next.
        const std::size_t end =
            at + std::min(ovra::room_in_uboot_file(name.size(), header.data_size), rest.size());
        found.push_back(
            {header.guid, header.attributes, at, end, at + sizeof header, data, header.data_size});
        at = end;
    }
    set_live(std::move(found));
    return true;
}

// Writes an entry behind the others, with the bytes that align the next.
void append_entry(bytes *file, uboot_variable_header header, byte_view name, const new_value &value)
{
    header.attributes = value.attributes;
    header.data_size = static_cast<uint32_t>(value.size());
    const auto stored = std::as_bytes(std::span(&header, 1));
    file->insert(file->end(), stored.begin(), stored.end());
    file->insert(file->end(), name.begin(), name.end());
    for (const byte_view part : value.data)
        file->insert(file->end(), part.begin(), part.end());
    file->resize(ovra::aligned(file->size(), ovra::uboot_alignment));
}

std::unique_ptr<variable_image> uboot_file::with(const std::string &file_name, const new_value *value) const
{
    bytes file(store.begin(), store.begin() + sizeof(uboot_file_header));
    uboot_variable_header header = {};
    const bytes name = spelt_name(file_name, &header.guid);
    for (const image_variable &each : variables()) {
        if (is_named(each, name, header.guid))
            continue;
        file.resize(ovra::aligned(file.size(), ovra::uboot_alignment));
        file.insert(file.end(), store.begin() + static_cast<std::ptrdiff_t>(each.begin),
                    store.begin() + static_cast<std::ptrdiff_t>(each.end));
    }
    if (value != nullptr) {
        file.resize(ovra::aligned(file.size(), ovra::uboot_alignment));
        append_entry(&file, header, name, *value);
        if (file.size() > limit())
            return nullptr;
    }
    uboot_file_header whole = {};
    whole.magic = ovra::uboot_magic;
    whole.length = static_cast<uint32_t>(file.size());
    whole.crc32 = crc32(byte_view(file).subspan(sizeof whole));
    std::memcpy(file.data(), &whole, sizeof whole);
    auto changed = std::make_unique<uboot_file>(std::move(file));
    return changed->parse() ? std::move(changed) : nullptr;
}

} // namespace

std::unique_ptr<variable_image> uboot_image(bytes file)
{
    uboot_file_header header = {};
    std::memcpy(&header, file.data(), std::min(sizeof header, file.size()));
    if (header.length < sizeof header || header.length > file.size()) {
        debug("the file says that it has %u bytes, and has %zu", header.length, file.size());
        return nullptr;
    }
    file.resize(header.length); // U-Boot looks at no more
    if (header.reserved != 0 || header.crc32 != crc32(byte_view(file).subspan(sizeof header))) {
        debug("the file's checksum is wrong");
        return nullptr;
    }
    auto image = std::make_unique<uboot_file>(std::move(file));
    return image->parse() ? std::move(image) : nullptr;
}

} // namespace machine
