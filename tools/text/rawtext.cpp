// SPDX-License-Identifier: MIT
#include "tools/text/rawtext.h"

#include "tools/text/numbers.h"

#include <algorithm>
#include <cstring>

namespace tool {

std::string raw_text(byte_view node)
{
    static constexpr const char *names[] = {nullptr,         "HardwarePath", "AcpiPath",
                                            "MessagingPath", "MediaPath",    "BbsPath"};
    const std::string data = hex(node.subspan(2));
    if (node[0] == 0 || node[0] >= std::size(names))
        return format("Path(0x%x,0x%x,%s)", node[0], node[1], data.c_str());
    return format(node[0] == UEFI_MESSAGING ? "%s(%u,%s)" : "%s(0x%x,%s)", names[node[0]], node[1],
                  data.c_str());
}

namespace {

uint32_t word_at(byte_view data, size_t at)
{
    uint32_t value = 0;
    memcpy(&value, data.data() + at, sizeof value);
    return value;
}

std::string eisa_text(uint32_t id)
{
    if (id == 0)
        return "0";
    std::string text;
    for (int shift = 10; shift >= 0; shift -= 5)
        text += static_cast<char>('A' - 1 + (id >> shift & 0x1f));
    return text + format("%04X", id >> 16);
}

std::string acpi_ex_text(byte_view node)
{
    std::string text = "AcpiEx(" + eisa_text(word_at(node, 4)) + ',' + eisa_text(word_at(node, 12)) +
                       format(",0x%X", word_at(node, 8));
    constexpr size_t fixed = offsetof(uefi_acpiex_device_path_t, strings);
    std::string_view rest(reinterpret_cast<const char *>(node.data()) + fixed, node.size() - fixed);
    for (const char *name : {"HIDSTR", "UIDSTR", "CIDSTR"}) {
        const size_t end = std::min(rest.find('\0'), rest.size());
        if (end != 0)
            text += std::string(",") + name + '=' + std::string(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text + ')';
}

} // namespace

std::vector<std::string> fuller_texts(byte_view node)
{
    const auto is = [node](uint8_t type, uint8_t subtype, size_t size) {
        return node[0] == type && node[1] == subtype && node.size() >= size;
    };
    if (is(UEFI_MESSAGING, 11, sizeof(uefi_macaddr_device_path_t))) {
        const unsigned type = node[offsetof(uefi_macaddr_device_path_t, iff_type)];
        return {format("MAC(%s,0x%x)", hex(node.subspan(4, type <= 1 ? 6 : 32)).c_str(), type)};
    }
    if (is(UEFI_ACPI, 1, sizeof(uefi_acpi_device_path_t)))
        return {format("Acpi(%s,0x%X)", eisa_text(word_at(node, 4)).c_str(), word_at(node, 8))};
    if (is(UEFI_ACPI, 2, offsetof(uefi_acpiex_device_path_t, strings)))
        return {acpi_ex_text(node)};
    return {};
}

} // namespace tool
