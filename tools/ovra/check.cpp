// SPDX-License-Identifier: MIT
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/findings.h"
#include "tools/machine/lock.h"
#include "tools/machine/removal.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

json to_json(const option_kind &kind, const findings &found)
{
    json list = json::array();
    for (const finding &each : found.all)
        list.push_back({{"kind", each.kind},
                        {"option", as_json(kind, each.option)},
                        {"text", each.text},
                        {"can_be_fixed", each.can_be_fixed}});
    return list;
}

std::string as_lines(const option_kind &kind, const findings &found)
{
    std::string lines;
    for (const finding &each : found.all)
        lines += broken((each.option ? kind.name(*each.option) + ": " : "") + printable(each.text), 0) + '\n';
    if (!found.not_known.empty())
        lines += broken("Not known: " + printable(found.not_known) + '.', 0) + '\n';
    return lines;
}

class check_verb : public verb {
public:
    const char *summary() const override { return "look for what is wrong with the boot options"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, false);
        app.add_flag("--fix", fix, "remove stale options and duplicates, and repair BootOrder");
        add_example(app, "ovra check --fix --dry-run");
    }

    void check() override
    {
        if (fix && !kind.kind->order)
            throw usage_error("--fix: only the firmware writes " + std::string(kind.kind->prefix) +
                              " options");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        if (fix)
            repair(machine, general);
        else
            tell(machine.kind(), look_at(machine), general);
    }

private:
    static void tell(const option_kind &of, const findings &found, const general_options &general)
    {
        if (general.json)
            print_json({{"findings", to_json(of, found)}, {"not_known", not_known(found)}});
        else
            print(found.all.empty() && found.not_known.empty() ? "nothing found\n" : as_lines(of, found));
        if (!found.all.empty())
            throw already_told("something was found");
    }

    static json not_known(const findings &found)
    {
        return found.not_known.empty() ? json(nullptr) : json(found.not_known);
    }

    static void repair(firmware &machine, const general_options &general)
    {
        const machine_lock lock(machine, general);
        const findings found = look_at(machine);
        if (!general.json)
            print(as_lines(machine.kind(), found));
        removal removal(machine, found.to_remove, general, true);
        removal.run();
        removal.remark({}, "findings", to_json(machine.kind(), found));
        if (!found.not_known.empty())
            removal.remark({}, "not_known", found.not_known);
        removal.report();
        if (!std::all_of(found.all.begin(), found.all.end(),
                         [](const finding &each) { return each.can_be_fixed; }))
            throw already_told("something stays to be fixed");
    }

    kind_argument kind;
    bool fix = false;
};

} // namespace

std::unique_ptr<verb> make_check()
{
    return std::make_unique<check_verb>();
}

} // namespace tool
