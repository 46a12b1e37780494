// SPDX-License-Identifier: MIT
// The bytes of load options.
#include "tests/tool/support.h"

namespace tool_test {

std::string load_option(uint32_t attributes, std::string_view description, std::string_view path,
                        std::string_view optional_data)
{
    const auto path_size = static_cast<uint16_t>(path.size());
    std::string data(reinterpret_cast<const char *>(&attributes), sizeof attributes);
    data.append(reinterpret_cast<const char *>(&path_size), sizeof path_size);
    data += ucs2(description);
    data.append(2, '\0');
    data += path;
    data += optional_data;
    return data;
}

std::string ucs2(std::string_view ascii)
{
    std::string units;
    for (const char c : ascii) {
        units += c;
        units += '\0';
    }
    return units;
}

std::string from_hex(std::string_view digits)
{
    std::string data;
    for (size_t at = 0; at + 1 < digits.size(); at += 2)
        data += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
    return data;
}

} // namespace tool_test
