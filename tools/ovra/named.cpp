#include "tools/ovra/named.h"

#include "tools/ovra/failure.h"
#include "tools/ovra/output.h"

namespace tool {

std::optional<uint16_t> named_or_none(firmware &machine, named_option get)
{
    try {
        return (machine.*get)();
    } catch (const damaged &) {
        return std::nullopt;
    }
}

std::string description_of(firmware &machine, uint16_t number)
{
    if (!machine.option_exists(number))
        return "(no such option)";
    try {
        return printable(machine.read_option(number).description);
    } catch (const failure &) {
        return "(cannot be read)";
    }
}

void print_named_option(firmware &machine, const arguments &args, const char *key, named_option get,
                        const char *when_not_set)
{
    const std::optional<uint16_t> number = (machine.*get)();
    if (args.json)
        print_json({{key, as_json(number)}});
    else if (number)
        print(option_name(*number) + "  " + description_of(machine, *number) + '\n');
    else
        print(std::string(when_not_set) + '\n');
}

} // namespace tool
