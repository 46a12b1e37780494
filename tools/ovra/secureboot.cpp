// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/firmware.h"
#include "tools/text/output.h"

namespace tool {

namespace {

std::optional<bool> state_of(firmware &machine, const char *variable)
{
    const std::optional<bytes> value = machine.read_sized(variable, 1);
    return value ? std::optional(value->front() == 1) : std::nullopt;
}

json as_state(std::optional<bool> state)
{
    return state ? json(*state) : json(nullptr);
}

struct mode {
    const char *variable;
    const char *key;
    const char *words; // when it is on
};

// UEFI 2.10, 32.3.
constexpr mode modes[] = {
    {"SetupMode", "setup_mode", "setup mode: there is no platform key, anybody may enrol keys"},
    {"AuditMode", "audit_mode", "audit mode: what fails the check is started all the same, and noted"},
    {"DeployedMode", "deployed_mode", "deployed mode: the modes cannot be left without the platform key"},
};

class secureboot_verb : public verb {
public:
    const char *summary() const override { return "whether Secure Boot is on"; }
    void declare(CLI::App &app) override { add_example(app, "ovra secureboot --json"); }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const std::optional<bool> is_on = state_of(machine, "SecureBoot");
        json document = {{"secure_boot", as_state(is_on)}};
        std::string text = !is_on   ? "SecureBoot is not set: the firmware has no Secure Boot\n"
                           : *is_on ? "Secure Boot is on\n"
                                    : "Secure Boot is off\n";
        for (const mode &each : modes) {
            const std::optional<bool> state = state_of(machine, each.variable);
            document[each.key] = as_state(state);
            if (state == true)
                text += std::string(each.words) + '\n';
        }
        general.json ? print_json(document) : print(text);
    }
};

} // namespace

std::unique_ptr<verb> make_secureboot()
{
    return std::make_unique<secureboot_verb>();
}

} // namespace tool
