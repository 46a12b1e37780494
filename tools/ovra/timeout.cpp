// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

std::string seconds_text(uint16_t seconds)
{
    if (seconds == 0)
        return "0 seconds: it boots at once";
    if (seconds == UINT16_MAX)
        return "65535: it waits until somebody chooses";
    return format("%u second%s", seconds, seconds == 1 ? "" : "s");
}

class timeout_verb : public verb {
public:
    const char *summary() const override { return "show or set how long the boot menu waits"; }
    void declare(CLI::App &app) override
    {
        auto *given =
            add_value(app, "seconds", "SECONDS", "0 boots at once, 65535 waits until somebody chooses",
                      [this](const std::string &text) {
                          refuse_leading_zero(text);
                          seconds = parse_number(text);
                          if (!seconds || *seconds > UINT16_MAX)
                              throw usage_error(in_quotes(text) + " is no number of seconds from 0 to 65535");
                      });
        app.add_flag("--clear", clear, "leave it to the firmware")->excludes(given);
        add_example(app, "ovra timeout 5");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        if (seconds || clear)
            change_it(machine, general);
        else
            show(machine, general);
    }

private:
    static void show(firmware &machine, const general_options &general)
    {
        const std::optional<uint16_t> set = machine.read_number("Timeout");
        if (general.json)
            print_json({{"timeout", set ? json(*set) : json(nullptr)}});
        else
            print(set ? seconds_text(*set) + '\n'
                      : "Timeout is not set: the firmware decides how long it waits\n");
    }

    void change_it(firmware &machine, const general_options &general) const
    {
        const machine_lock lock(machine, general);
        changes changes(machine, general);
        if (seconds) {
            const auto value = static_cast<uint16_t>(*seconds);
            changes.make(writes("Timeout", stored(std::vector{value}), seconds_text(value), [value] {
                return json{{"timeout", value}};
            }));
        } else if (machine.exists_global("Timeout")) {
            changes.make(deletes("Timeout"));
        }
        changes.report();
    }

    std::optional<uint32_t> seconds;
    bool clear = false;
};

} // namespace

std::unique_ptr<verb> make_timeout()
{
    return std::make_unique<timeout_verb>();
}

} // namespace tool
