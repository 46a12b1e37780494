// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ovra/changes.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/lock.h"
#include "tools/ovra/named.h"
#include "tools/ovra/verbs.h"

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
bool may_be_live(const arguments &args)
{
    struct stat folder = {};
    struct stat live = {};
    return !args.root || stat(args.root->c_str(), &folder) != 0 || stat("/", &live) != 0 ||
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

void reset(firmware &machine, const arguments &args)
{
    const char *type = type_word(args.reset);
    if (may_be_live(args) && !args.yes && !args.dry_run)
        confirm(type);
    const machine_lock lock(machine, args);
    changes changes(machine, args);
    // A real machine does not come back from this.
    changes.make(
        {"reset", "reset", std::string("the machine (") + type + ")", {{"type", type}}, {}, {}},
        [&] {
            machine.check_reset(); // so that the start is not half played
            machine.reset(args.reset);
        },
        [&] { machine.check_reset(); });
    if (!args.dry_run) {
        const auto booted = named_or_none(machine, &firmware::current);
        changes.remark(booted ? "booted " + option_name(*booted) + "  " + description_of(machine, *booted)
                              : "booted no option",
                       "booted", as_json(booted));
    }
    changes.report();
}

// How this machine can be restarted without its firmware's services; nothing for another machine.
std::string other_way(const arguments &args)
{
    if (!may_be_live(args) || secure_getenv("HWPLAT_ROOT"))
        return {};
    return args.reset == EFI_RESET_SHUTDOWN
               ? "'systemctl poweroff' or 'shutdown -h now' turns the machine off."
               : "'systemctl reboot' or 'shutdown -r now' restarts the machine.";
}

} // namespace

void run_reset(const std::string &folder, const arguments &args)
{
    try {
        firmware machine(folder);
        reset(machine, args);
    } catch (not_confirmed &) {
        throw;
    } catch (failure &reason) {
        reason.advise(other_way(args));
        throw;
    }
}

} // namespace tool
