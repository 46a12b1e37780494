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

    bool change(const std::string &file_name, const new_value *value) override;

    [[nodiscard]] UINT64 capacity() const override { return limit() - sizeof(uboot_file_header); }
    [[nodiscard]] UINT64 free_space() const override { return limit() - store.size(); }
    [[nodiscard]] UINT64 largest_variable() const override { return 32u << 10; }

private:
    [[nodiscard]] std::size_t limit() const { return std::max(usual_file_size, store.size()); }
    [[nodiscard]] EFI_GUID guid_at(std::size_t at) const
    {
        EFI_GUID guid = {};
        std::memcpy(&guid, store.data() + at + offsetof(uboot_variable_header, guid), sizeof guid);
        return guid;
    }
};

bool uboot_file::parse()
{
    live.clear();
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
        const byte_view behind = rest.subspan(sizeof header + name.size());
        if (header.data_size > behind.size()) {
            debug("the variable at byte %zu is larger than what is left of the file", at);
            return false;
        }
        // The last one may lack the bytes that would align the next.
        const std::size_t end =
            at + std::min(ovra::room_in_uboot_file(name.size(), header.data_size), rest.size());
        live.push_back({file_name_in_image(name, header.guid), header.attributes, at, end, name,
                        behind.first(header.data_size)});
        at = end;
    }
    return true;
}

bool uboot_file::change(const std::string &file_name, const new_value *value)
{
    bytes file(store.begin(), store.begin() + sizeof(uboot_file_header));
    const auto begin_entry = [&file] { file.resize(ovra::aligned(file.size(), ovra::uboot_alignment)); };
    uboot_variable_header header = {};
    bytes name = stored_name(file_name, &header.guid);
    const auto found = std::ranges::find(live, file_name, &image_variable::file_name);
    if (found != live.end()) // which may be spelt in another way
        name.assign(found->name.begin(), found->name.end());
    for (const image_variable &each : live) {
        if (ovra::same_guid(guid_at(each.begin), header.guid) && std::ranges::equal(each.name, name))
            continue;
        begin_entry();
        file.insert(file.end(), store.begin() + static_cast<std::ptrdiff_t>(each.begin),
                    store.begin() + static_cast<std::ptrdiff_t>(each.end));
    }
    if (value != nullptr) {
        begin_entry();
        header.attributes = value->attributes;
        header.data_size = static_cast<uint32_t>(value->size());
        const auto stored = std::as_bytes(std::span(&header, 1));
        file.insert(file.end(), stored.begin(), stored.end());
        file.insert(file.end(), name.begin(), name.end());
        for (const byte_view part : value->data)
            file.insert(file.end(), part.begin(), part.end());
        begin_entry();
        if (file.size() > limit())
            return false;
    }
    uboot_file_header whole = {};
    whole.magic = ovra::uboot_magic;
    whole.length = static_cast<uint32_t>(file.size());
    whole.crc32 = crc32(byte_view(file).subspan(sizeof whole));
    std::memcpy(file.data(), &whole, sizeof whole);
    store = std::move(file);
    return parse();
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
