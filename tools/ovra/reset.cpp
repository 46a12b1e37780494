// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/machine/named.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

const char *type_word(EFI_RESET_TYPE type)
{
    switch (type) {
    case EFI_RESET_COLD:
        return "cold";
    case EFI_RESET_WARM:
        return "warm";
    case EFI_RESET_SHUTDOWN:
        return "shutdown";
    }
    return "";
}

// Whether the machine may be the one that the command runs on. Only a folder of another machine is certain
// not to be.
bool may_be_live(const general_options &general)
{
    struct stat folder = {};
    struct stat live = {};
    if (general.vars || secure_getenv("HWPLAT_VARS"))
        return false;
    return !general.root || stat(general.root->c_str(), &folder) != 0 || stat("/", &live) != 0 ||
           (folder.st_dev == live.st_dev && folder.st_ino == live.st_ino);
}

// Nobody wanted it after all.
struct not_confirmed : failure {
    using failure::failure;
};

void confirm(const char *type)
{
    if (isatty(STDIN_FILENO) == 0)
        throw not_confirmed("not reset: there is no terminal to ask for confirmation",
                            "--yes resets without asking.");
    std::cerr << "Reset this machine now (" << type << ")? [y/N] ";
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw not_confirmed("not reset");
}

class reset_verb : public verb {
public:
    const char *summary() const override { return "reset the machine"; }
    void declare(CLI::App &app) override
    {
        auto *cold = app.add_flag_callback(
            "--cold", [this] { type = EFI_RESET_COLD; }, "as by power-on (default)");
        auto *warm = app.add_flag_callback(
            "--warm", [this] { type = EFI_RESET_WARM; }, "processor only");
        auto *off = app.add_flag_callback(
            "--shutdown", [this] { type = EFI_RESET_SHUTDOWN; }, "power off");
        cold->excludes(warm)->excludes(off);
        warm->excludes(off);
        app.add_flag("--yes", yes, "do not ask for confirmation");
        add_example(app, "ovra reset --shutdown --dry-run");
    }

    void run(const general_options &general) override;

private:
    void reset(firmware &machine, const general_options &general) const;
    std::string other_way(const general_options &general) const;

    EFI_RESET_TYPE type = EFI_RESET_COLD;
    bool yes = false;
};

void reset_verb::reset(firmware &machine, const general_options &general) const
{
    const char *word = type_word(type);
    if (may_be_live(general) && !yes && !general.dry_run)
        confirm(word);
    const machine_lock lock(machine, general);
    changes changes(machine, general);
    const bool keeps_current = file_of_variables().empty();
    const auto next = keeps_current ? std::nullopt : machine.booted_next();
    // A real machine does not come back from this.
    changes.make(
        {"reset", "reset", std::string("the machine (") + word + ")", {{"type", word}}, {}, {}},
        [&] {
            machine.check_reset(); // first: a start must not be played by half
            machine.reset(type);
        },
        [&] { machine.check_reset(); });
    if (!general.dry_run) {
        const auto booted = keeps_current ? named_or_none(machine, &firmware::current) : next;
        changes.remark(booted
                           ? "booted " + boot_options.name(*booted) + "  " + description_of(machine, *booted)
                           : "booted no option",
                       "booted", as_json(boot_options, booted));
    }
    changes.report();
}

// How this machine can be restarted without its firmware's services; nothing for another machine.
std::string reset_verb::other_way(const general_options &general) const
{
    if (!may_be_live(general) || secure_getenv("HWPLAT_ROOT"))
        return {};
    return type == EFI_RESET_SHUTDOWN ? "'systemctl poweroff' or 'shutdown -h now' turns the machine off."
                                      : "'systemctl reboot' or 'shutdown -r now' restarts the machine.";
}

void reset_verb::run(const general_options &general)
{
    try {
        firmware machine(general.folder());
        reset(machine, general);
    } catch (not_confirmed &) {
        throw;
    } catch (failure &reason) {
        reason.advise(other_way(general));
        throw;
    }
}

} // namespace

std::unique_ptr<verb> make_reset()
{
    return std::make_unique<reset_verb>();
}

} // namespace tool
