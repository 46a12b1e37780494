// SPDX-License-Identifier: MIT
// The variable store of a firmware volume, as EDK II's firmware keeps it
// (MdeModulePkg/Universal/Variable/RuntimeDxe).
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>

#include "platform/machine/debug.h"
#include "platform/machine/image.h"
#include "src/base/guid.h"
#include "src/base/variable_image.h"

namespace machine {

namespace {

using ovra::authenticated_variable_header;
using ovra::plain_variable_header;
using ovra::variable_store_header;

constexpr std::byte erased{0xff};

// What both kinds of header say.
struct variable_header {
    uint16_t start = 0;
    uint8_t state = 0;
    uint32_t attributes = 0;
    uint32_t name_size = 0;
    uint32_t data_size = 0;
    EFI_GUID guid = {};
};

template <typename record>
variable_header header_at(const std::byte *where)
{
    record stored = {};
    std::memcpy(&stored, where, sizeof stored);
    return {stored.start, stored.state, stored.attributes, stored.name_size, stored.data_size, stored.guid};
}

// Its new value was on its way when the firmware stopped.
constexpr uint8_t being_replaced = ovra::variable_added & ovra::variable_in_transition;

constexpr std::size_t state_offset = offsetof(plain_variable_header, state);
static_assert(state_offset == offsetof(authenticated_variable_header, state));

class volume_store final : public variable_image {
public:
    explicit volume_store(bytes taken) : variable_image(std::move(taken))
    {
        variable_store_header header = {};
        std::memcpy(&header, store.data(), sizeof header);
        has_signatures = ovra::same_guid(header.signature, ovra::authenticated_store);
    }

    bool parse();

    [[nodiscard]] std::unique_ptr<variable_image> with(const std::string &file_name,
                                                       const new_value *value) const override;

    [[nodiscard]] UINT64 capacity() const override { return store.size() - first; }
    [[nodiscard]] UINT64 free_space() const override;
    // Below what OVMF takes: of large stores 0x8400 bytes for header, name and data, of small ones 0x2000.
    [[nodiscard]] UINT64 largest_variable() const override
    {
        constexpr std::size_t large_store = 128u << 10;
        return store.size() > large_store ? 32u << 10 : 7u << 10;
    }

private:
    static constexpr std::size_t first = ovra::aligned(sizeof(variable_store_header), ovra::volume_alignment);

    [[nodiscard]] std::size_t header_size() const
    {
        return has_signatures ? sizeof(authenticated_variable_header) : sizeof(plain_variable_header);
    }
    [[nodiscard]] variable_header read_header(std::size_t at) const
    {
        return has_signatures ? header_at<authenticated_variable_header>(store.data() + at)
                              : header_at<plain_variable_header>(store.data() + at);
    }
    [[nodiscard]] bool is_free(std::size_t from) const;
    [[nodiscard]] uint8_t state_of(const image_variable &variable) const
    {
        return std::to_integer<uint8_t>(store[variable.begin + state_offset]);
    }
    [[nodiscard]] std::vector<image_variable> counting() const;
    bool take(std::size_t at, const variable_header &header);
    bool change(const std::string &file_name, const new_value *value);
    void write(byte_view name, const EFI_GUID &guid, const new_value &value);
    void reclaim(byte_view without, const EFI_GUID &guid);

    bool has_signatures = false;
    std::size_t free_begin = first;    // what follows the last variable was never written
    std::vector<image_variable> known; // with those that are being replaced and do not count any more
};

// Lists the variable at `at` if it may count, and sets free_begin behind it.
bool volume_store::take(std::size_t at, const variable_header &header)
{
    // The firmware stopped while it wrote the header; it goes on behind it.
    const bool no_sizes = header.state == ovra::variable_header_begun || header.attributes == UINT32_MAX ||
                          header.name_size == UINT32_MAX || header.data_size == UINT32_MAX;
    const std::size_t name_size = no_sizes ? 0 : header.name_size;
    const std::size_t data_size = no_sizes ? 0 : header.data_size;
    const std::size_t room = ovra::room_in_volume(header_size(), name_size, data_size);
    if (room > store.size() - at) {
        debug("the variable at byte %zu of the store is larger than what is left of it", at);
        return false;
    }
    free_begin = at + room;
    if (no_sizes || (header.state != ovra::variable_added && header.state != being_replaced))
        return true;
    const std::size_t name = at + header_size();
    known.push_back({header.guid, header.attributes, at, free_begin, name, name + name_size, data_size});
    return true;
}

// A value that is being replaced counts until the new one is there. Of several the last counts: firmware that
// looks for a variable passes by such values until it finds a better one (FindVariableEx).
std::vector<image_variable> volume_store::counting() const
{
    const auto key_of = [this](const image_variable &each) {
        std::string key(reinterpret_cast<const char *>(&each.guid), sizeof each.guid);
        const byte_view name = name_of(each);
        return key.append(reinterpret_cast<const char *>(name.data()), name.size());
    };
    std::map<std::string, const image_variable *> last;
    for (const image_variable &each : known) {
        if (state_of(each) == being_replaced)
            last[key_of(each)] = &each;
    }
    if (last.empty())
        return known;
    for (const image_variable &each : known) {
        if (state_of(each) == ovra::variable_added)
            last.erase(key_of(each));
    }
    std::vector<image_variable> found;
    for (const image_variable &each : known) {
        const auto same = state_of(each) == being_replaced ? last.find(key_of(each)) : last.end();
        if (state_of(each) == ovra::variable_added || (same != last.end() && same->second == &each))
            found.push_back(each);
    }
    return found;
}

// Whether the rest of the store was never written.
bool volume_store::is_free(std::size_t from) const
{
    const byte_view rest = byte_view(store).subspan(from);
    return rest.empty() ||
           (rest[0] == erased && std::memcmp(rest.data(), rest.data() + 1, rest.size() - 1) == 0);
}

bool volume_store::parse()
{
    known.clear();
    free_begin = first;
    while (store.size() - free_begin >= header_size()) {
        const variable_header header = read_header(free_begin);
        if (header.start != ovra::variable_start)
            break;
        if (!take(free_begin, header))
            return false;
    }
    // Nothing may be written over what is no variable: more variables could stand behind it.
    if (!is_free(free_begin)) {
        debug("what follows byte %zu of the store is neither a variable nor free", free_begin);
        return false;
    }
    set_live(counting());
    return true;
}

UINT64 volume_store::free_space() const
{
    UINT64 size = 0;
    for (const image_variable &each : variables())
        size += each.end - each.begin;
    return capacity() - size;
}

// Writes a variable at free_begin, where it has room.
void volume_store::write(byte_view name, const EFI_GUID &guid, const new_value &value)
{
    const auto put_header = [&]<typename record>(record header) {
        header.start = ovra::variable_start;
        header.state = ovra::variable_added;
        header.attributes = value.attributes;
        header.name_size = static_cast<uint32_t>(name.size());
        header.data_size = static_cast<uint32_t>(value.size());
        header.guid = guid;
        std::memcpy(store.data() + free_begin, &header, sizeof header);
    };
    if (has_signatures)
        put_header(authenticated_variable_header{});
    else
        put_header(plain_variable_header{});
    std::memcpy(store.data() + free_begin + header_size(), name.data(), name.size());
    std::size_t at = free_begin + header_size() + name.size();
    for (const byte_view part : value.data) {
        std::ranges::copy(part, store.begin() + static_cast<std::ptrdiff_t>(at));
        at += part.size();
    }
}

// Moves what counts together, as the firmware does when its store is full. Each variable stays as it is, but
// one whose replacement never came is an ordinary one again.
void volume_store::reclaim(byte_view without, const EFI_GUID &guid)
{
    bytes together(store.begin(), store.begin() + first);
    for (const image_variable &each : variables()) {
        if (is_named(each, without, guid))
            continue;
        const auto at = together.size();
        together.insert(together.end(), store.begin() + static_cast<std::ptrdiff_t>(each.begin),
                        store.begin() + static_cast<std::ptrdiff_t>(each.end));
        together[at + state_offset] = std::byte{ovra::variable_added};
    }
    free_begin = together.size();
    together.resize(store.size(), erased);
    store = std::move(together);
}

// False when there is no room.
bool volume_store::change(const std::string &file_name, const new_value *value)
{
    EFI_GUID guid = {};
    const bytes name = spelt_name(file_name, &guid);
    const auto gone = static_cast<uint8_t>(
        value != nullptr ? ovra::variable_in_transition & ovra::variable_deleted : ovra::variable_deleted);
    for (const image_variable &each : known) {
        if (is_named(each, name, guid))
            store[each.begin + state_offset] &= std::byte{gone};
    }
    if (value == nullptr)
        return true;
    const std::size_t room = ovra::room_in_volume(header_size(), name.size(), value->size());
    if (room > store.size() - free_begin)
        reclaim(name, guid);
    if (room > store.size() - free_begin)
        return false;
    write(name, guid, *value);
    return true;
}

std::unique_ptr<variable_image> volume_store::with(const std::string &file_name, const new_value *value) const
{
    auto changed = std::make_unique<volume_store>(*this);
    return changed->change(file_name, value) && changed->parse() ? std::move(changed) : nullptr;
}

// Whether the bytes begin with the header of a store of their size.
bool has_sound_header(byte_view store)
{
    variable_store_header header = {};
    if (store.size() < sizeof header)
        return false;
    std::memcpy(&header, store.data(), sizeof header);
    const bool known_kind = ovra::same_guid(header.signature, ovra::authenticated_store) ||
                            ovra::same_guid(header.signature, ovra::plain_store);
    return known_kind && header.size == store.size() && header.format == ovra::store_formatted &&
           header.state == ovra::store_healthy;
}

} // namespace

std::unique_ptr<variable_image> volume_image(bytes store)
{
    if (!has_sound_header(store)) {
        debug("the volume holds no healthy variable store");
        return nullptr;
    }
    auto image = std::make_unique<volume_store>(std::move(store));
    return image->parse() ? std::move(image) : nullptr;
}

} // namespace machine
