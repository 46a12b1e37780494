// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "src/base/whole_number.h"
#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/exchange/watcher.h"
#include "tools/text/text.h"

namespace tool {

namespace {

class watch_verb : public verb {
public:
    const char *summary() const override { return "tell of changes of boot variables as they happen"; }
    void declare(CLI::App &app) override
    {
        add_value(app, "--interval", "N",
                  "look every N seconds where the system does not tell of changes; 5 without it",
                  [this](const std::string &text) {
                      refuse_leading_zero(text);
                      const auto number = ovra::whole_number<unsigned>(text);
                      constexpr unsigned day = 86400;
                      if (!number || *number == 0 || *number > day)
                          throw usage_error("--interval: " + in_quotes(text) +
                                            " is no number of seconds from 1 to 86400");
                      seconds = *number;
                  });
        add_example(app, "ovra watch --json");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        watch_boot_variables(machine, general, seconds);
    }

private:
    unsigned seconds = 5;
};

} // namespace

std::unique_ptr<verb> make_watch()
{
    return std::make_unique<watch_verb>();
}

} // namespace tool
