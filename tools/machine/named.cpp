// SPDX-License-Identifier: MIT
#include "tools/machine/named.h"

#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

std::optional<uint16_t> named_or_none(firmware &machine, named_option get)
{
    try {
        return (machine.*get)();
    } catch (const damaged &reason) {
        warn(printable(reason.what()));
        return std::nullopt;
    }
}

void warn_of_unreadable(const unreadable &reason)
{
    // A damaged option is shown as that; who may not look is told so.
    if (reason.why != "damaged")
        warn(printable(reason.what()), reason.advice.substr(0, reason.advice.find('\n')));
}

std::string description_of(firmware &machine, uint16_t number)
{
    try {
        if (!machine.option_exists(number))
            return "(no such option)";
        return shown_description(machine.read_option(number).description);
    } catch (const unreadable &reason) {
        if (reason.is_gone)
            return "(no such option)";
        warn_of_unreadable(reason);
        return '(' + printable(reason.why) + ')';
    } catch (const failure &reason) {
        warn(printable(reason.what()));
        return "(cannot be read)";
    }
}

void print_named_option(firmware &machine, const general_options &general, const char *key, named_option get,
                        const char *when_not_set)
{
    const std::optional<uint16_t> number = (machine.*get)();
    if (general.json)
        print_json({{key, as_json(machine.kind(), number)}});
    else if (number)
        print(machine.name_of(*number) + "  " + description_of(machine, *number) + '\n');
    else
        print(std::string(when_not_set) + '\n');
}

} // namespace tool
