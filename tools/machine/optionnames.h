/* SPDX-License-Identifier: MIT */
// Options as people name them.
#ifndef OVRA_TOOLS_OPTIONNAMES_H
#define OVRA_TOOLS_OPTIONNAMES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

// Reads the machine's options once, and only when a name asks for more than a number.
class option_lookup {
public:
    explicit option_lookup(firmware &named) : machine(named) {}

    // The option that is named by its number ("Boot001F", "1f"), which need not exist, by its description or
    // the only one that begins so, without regard to the case of A to Z and as it is shown or as it is, or as
    // "@current", "@next" or "@first". Throws a failure, with the candidates when there are several.
    uint16_t named(const std::string &name);

    // The only option with this text in a device or file path, without regard to case and the kind of
    // slashes. Throws a failure.
    uint16_t with_path(const std::string &part);

    // The number and the description of each option that is not damaged.
    std::vector<std::pair<uint16_t, std::string>> descriptions();

private:
    struct known_option {
        uint16_t number = 0;
        std::string description;
        bytes path;
    };
    using match = std::function<bool(const known_option &)>;

    const std::vector<known_option> &options();
    uint16_t only(const std::vector<const known_option *> &found, const std::string &what) const;
    std::vector<const known_option *> all_with(const match &matches);
    std::vector<const known_option *> described(const std::string &name);
    std::optional<uint16_t> of_variable(const std::string &name);

    firmware &machine;
    std::optional<std::vector<known_option>> known;
};

} // namespace tool

#endif
