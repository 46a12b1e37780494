#include "tools/ovra/changes.h"
#include "tools/ovra/clock.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

void show_clock(firmware &machine, const arguments &args)
{
    EFI_TIME_CAPABILITIES capabilities = {};
    const EFI_TIME now = machine.time(&capabilities);
    if (!args.json) {
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

void show_alarm(firmware &machine, const arguments &args)
{
    const firmware::alarm alarm = machine.wakeup_time();
    if (args.json) {
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
    return {"set", "set", what, {{key, value}}, {}};
}

} // namespace

void run_time(firmware &machine, const arguments &args)
{
    if (!args.time && !args.clear) {
        if (args.wakeup)
            show_alarm(machine, args);
        else
            show_clock(machine, args);
        return;
    }
    changes changes(args);
    if (args.clear) {
        changes.make({"disable", "disabled", "the wake-up alarm", {{"alarm", nullptr}}, {}},
                     [&] { machine.set_wakeup_time(std::nullopt); });
    } else if (args.wakeup) {
        const std::string time = time_text(*args.time);
        changes.make(sets("the wake-up alarm to " + time, "alarm", time),
                     [&] { machine.set_wakeup_time(args.time); });
    } else {
        const std::string time = time_text(*args.time);
        changes.make(sets("the clock to " + time, "clock", time), [&] { machine.set_time(*args.time); });
    }
    changes.report();
}

} // namespace tool
