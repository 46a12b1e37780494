// SPDX-License-Identifier: MIT
#include "tools/paste/reading.h"

#include <algorithm>

#include "src/base/ascii.h"
#include "src/base/guid.h"
#include "src/base/whole_number.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"
#include "tools/text/numbers.h"

namespace tool {

bool node_fields::is(std::string_view keyword) const
{
    return ovra::alike(name, keyword);
}

new_node &new_node::number(uint64_t value, size_t size)
{
    for (size_t at = 0; at < size; ++at)
        data.push_back(static_cast<uint8_t>(value >> 8 * at));
    return *this;
}

new_node &new_node::append(byte_view what)
{
    data.insert(data.end(), what.begin(), what.end());
    return *this;
}

new_node &new_node::text(std::string_view what)
{
    data.insert(data.end(), what.begin(), what.end());
    return *this;
}

bytes new_node::done()
{
    if (data.size() > UINT16_MAX)
        refuse("it is longer than a node can be");
    data[2] = static_cast<uint8_t>(data.size());
    data[3] = static_cast<uint8_t>(data.size() >> 8);
    return std::move(data);
}

namespace {

uint64_t of_size(std::string_view text, std::optional<uint64_t> value, size_t size)
{
    if (!value)
        refuse(in_quotes(text) + " is not a number");
    if (size < sizeof *value && *value >> 8 * size != 0)
        refuse(in_quotes(text) + " is too large");
    return *value;
}

} // namespace

uint64_t sized_number(std::string_view text, size_t size)
{
    return of_size(text, text.empty() ? std::nullopt : number_in(text), size);
}

uint64_t hexadecimal_of(std::string_view text, size_t size)
{
    return of_size(text, ovra::whole_number<uint64_t>(has_prefix(text) ? text.substr(2) : text, 16), size);
}

bytes guid_bytes_of(std::string_view text)
{
    const auto guid = ovra::parse_guid(text);
    if (!guid)
        refuse(in_quotes(text) + " is not a GUID");
    const ovra::guid_bytes stored = ovra::stored_guid(*guid);
    return {stored.begin(), stored.end()};
}

bytes bytes_of_digits(std::string_view text)
{
    if (text.empty())
        return {};
    if (!is_of_kind("bytes", std::string(text)))
        refuse(in_quotes(text) + " is not pairs of hexadecimal digits");
    return parse_hex(text).value();
}

bool is_guid(std::string_view text)
{
    return ovra::parse_guid(text).has_value();
}

bool has_prefix(std::string_view text)
{
    return text.size() > 2 && text[0] == '0' && ovra::ascii_lower(text[1]) == 'x';
}

void require_count(const node_fields &fields, size_t least, size_t most)
{
    if (fields.count() < least)
        refuse(fields.name + " has too few arguments");
    if (fields.count() > most)
        refuse(fields.name + " has too many arguments");
}

std::optional<size_t> index_of(std::string_view word, std::initializer_list<std::string_view> words)
{
    const auto found = std::find_if(words.begin(), words.end(),
                                    [word](std::string_view each) { return ovra::alike(each, word); });
    return found == words.end() ? std::nullopt : std::optional(static_cast<size_t>(found - words.begin()));
}

bool is_pasted_keyword(std::string_view name)
{
    return index_of(name, {"NVMe",
                           "Uri",
                           "UFS",
                           "SD",
                           "eMMC",
                           "Bluetooth",
                           "BluetoothLE",
                           "Wi-Fi",
                           "Dns",
                           "NVDIMM",
                           "RestService",
                           "Msg",
                           "UartFlowControl",
                           "BMC",
                           "File",
                           "FvFile",
                           "Fv",
                           "FvVol",
                           "VirtualDisk",
                           "VirtualCD",
                           "PersistentVirtualDisk",
                           "PersistentVirtualCD",
                           "RamDisk",
                           "ATAPI",
                           "PCCARD",
                           "MM",
                           "Vendor",
                           "Controller",
                           "1394",
                           "CD-ROM",
                           "BIOS",
                           "EDD10"})
        .has_value();
}

std::vector<reading> read_node(const std::string &name, const std::string &arguments, byte_view before)
{
    const node_fields fields = {name, arguments, parts_of(arguments, ','), before};
    std::vector<reading> all;
    for (const auto reader : {read_network_node, read_storage_node, read_other_node, read_old_node}) {
        for (reading &each : reader(fields))
            all.push_back(std::move(each));
    }
    // Of these kinds ours has other bytes than the UEFI specification.
    const bool is_elsewhere_other = index_of(name, {"Fibre", "FibreEx", "I1394", "IPv4", "IPv6"}).has_value();
    if (all.empty() && is_elsewhere_other && arguments.find('=') == std::string::npos)
        all.push_back({any_dialect & ~of_ovra, {}, "no other tool prints such values of it"});
    return all;
}

} // namespace tool
