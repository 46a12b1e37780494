// SPDX-License-Identifier: MIT
#include <cstring>
#include <tuple>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/changes.h"
#include "tools/machine/lock.h"
#include "tools/text/clock.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

void show_clock(firmware &machine, const general_options &general)
{
    EFI_TIME_CAPABILITIES capabilities = {};
    const EFI_TIME now = machine.time(&capabilities);
    if (!general.json) {
        print(time_text(now) + '\n');
        return;
    }
    print_json({{"time", time_text(now)},
                {"nanosecond", now.nanosecond},
                {"daylight", now.daylight},
                {"resolution", capabilities.resolution},
                {"accuracy", capabilities.accuracy},
                {"sets_to_zero", capabilities.sets_to_zero != 0}});
}

void show_alarm(firmware &machine, const general_options &general)
{
    const firmware::alarm alarm = machine.wakeup_time();
    if (general.json) {
        print_json({{"enabled", alarm.enabled},
                    {"pending", alarm.pending},
                    {"time", alarm.enabled ? json(time_text(alarm.time)) : json(nullptr)}});
        return;
    }
    std::string text = alarm.enabled ? "wakes up at " + time_text(alarm.time) : "no wake-up is set";
    if (alarm.pending)
        text += " (went off)";
    print(text + '\n');
}

change sets(const std::string &what, const std::string &key, const json &value)
{
    return {"set", "set", what, {{key, value}}, {}, {}};
}

// A clock without a time zone would take the hours and forget the zone.
[[noreturn]] void refuse_zone(const EFI_TIME &now)
{
    throw failure("the clock keeps no time zone",
                  "It shows " + time_text(now) + ": give the time as it would show it, without a zone.");
}

void set_clock(firmware &machine, const EFI_TIME &time, changes *changes)
{
    if (time.timezone != ovra::unspecified_timezone && machine.is_live())
        refuse_zone(machine.time(nullptr));
    const std::string text = time_text(time);
    changes->make(
        sets("the clock to " + text, "clock", text),
        [&] {
            machine.check_set_time();
            machine.set_time(time);
        },
        [&] { machine.check_set_time(); });
}

bool same_second(const EFI_TIME &a, const EFI_TIME &b)
{
    return std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second) ==
           std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second);
}

// Nothing when it is damaged: then there is none to go back to.
std::optional<firmware::alarm> alarm_before(firmware &machine)
{
    try {
        return machine.wakeup_time();
    } catch (const damaged &) {
        return std::nullopt;
    }
}

// Sets the alarm and looks whether the clock took it. If not, the one that stood before stands again.
void set_alarm(firmware &machine, const EFI_TIME &time)
{
    machine.check_set_wakeup_time();
    const std::optional<firmware::alarm> kept = alarm_before(machine);
    const firmware::alarm before = kept.value_or(firmware::alarm{});
    const std::string reach = "It may be too far ahead: most clocks reach a day, a month or a year.";
    failure why("the clock did not take it", reach);
    try {
        machine.set_wakeup_time(time);
        const firmware::alarm after = machine.wakeup_time();
        if (after.enabled && same_second(after.time, time))
            return;
    } catch (const failure &reason) {
        why = reason;
        if (machine.is_live() && reason.advice.empty())
            why.advise(reach);
    }
    try {
        const firmware::alarm now = kept ? machine.wakeup_time() : before;
        const bool as_it_was =
            now.enabled == before.enabled && (!before.enabled || same_second(now.time, before.time));
        if (!as_it_was)
            machine.set_wakeup_time(before.enabled ? std::optional(before.time) : std::nullopt);
        why.advise(!kept            ? "The file of the alarm is damaged, as before."
                   : before.enabled ? "The alarm stands at " + time_text(before.time) + " as before."
                                    : "No alarm is set, as before.");
    } catch (const failure &reason) {
        why.advise(std::string("Putting the old alarm back failed as well: ") + reason.what());
    }
    std::string what = why.what();
    if (const size_t end = what.rfind("alarm: "); end != std::string::npos)
        what.erase(0, end + strlen("alarm: "));
    throw failure("cannot set the wake-up alarm to " + time_text(time) + ": " + what, why.advice,
                  why.messages);
}

void set_alarm(firmware &machine, const EFI_TIME &time, changes *changes)
{
    const EFI_TIME now = machine.time(nullptr);
    if (time.timezone != ovra::unspecified_timezone && now.timezone == ovra::unspecified_timezone)
        refuse_zone(now);
    if (!is_before(now, time))
        throw failure(time_text(time) + " is past: the clock shows " + time_text(now));
    const std::string text = time_text(time);
    changes->make(
        sets("the wake-up alarm to " + text, "alarm", text), [&] { set_alarm(machine, time); },
        [&] {
            alarm_before(machine);
            machine.check_set_wakeup_time();
        });
}

// The machine keeps the time of an alarm that is off, which it cannot where the file makes no sense: then
// some alarm is set first.
void clear_alarm(firmware &machine)
{
    machine.check_clear_wakeup_time();
    try {
        machine.set_wakeup_time(std::nullopt);
    } catch (const damaged &) {
        EFI_TIME any = {};
        any.year = 2000;
        any.month = 1;
        any.day = 1;
        any.timezone = ovra::unspecified_timezone;
        machine.set_wakeup_time(any);
        machine.set_wakeup_time(std::nullopt);
    }
}

class time_verb : public verb {
public:
    const char *summary() const override { return "show or set the firmware's clock"; }
    void declare(CLI::App &app) override
    {
        app.add_flag("--wakeup", wakeup, "the wake-up alarm instead of the clock");
        auto *set = add_value(app, "--set", "TIME",
                              "set it, to a time as 2026-01-31T12:00:00, followed by Z or +02:00",
                              [this](const std::string &text) { time = parse_time(text); });
        app.add_flag("--clear", clear, "with --wakeup: disable the alarm")->excludes(set);
    }

    void check() override
    {
        if (clear && !wakeup)
            throw usage_error("time: --clear needs --wakeup");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        if (time || clear)
            change_it(machine, general);
        else if (wakeup)
            show_alarm(machine, general);
        else
            show_clock(machine, general);
    }

private:
    void change_it(firmware &machine, const general_options &general) const
    {
        const machine_lock lock(machine, general);
        changes changes(machine, general);
        if (clear)
            changes.make(
                {"disable", "disabled", "the wake-up alarm", {{"alarm", nullptr}}, {}, {}},
                [&] { clear_alarm(machine); }, [&] { machine.check_clear_wakeup_time(); });
        else if (wakeup)
            set_alarm(machine, *time, &changes);
        else
            set_clock(machine, *time, &changes);
        changes.report();
    }

    bool wakeup = false; // the alarm instead of the clock
    std::optional<EFI_TIME> time;
    bool clear = false;
};

} // namespace

std::unique_ptr<verb> make_time()
{
    return std::make_unique<time_verb>();
}

} // namespace tool
