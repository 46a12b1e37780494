// SPDX-License-Identifier: MIT
#include "tools/exchange/watcher.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/exchange/exchange.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

class descriptor {
public:
    explicit descriptor(int opened) : fd(opened) {}
    ~descriptor()
    {
        if (fd != -1)
            close(fd);
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    operator int() const { return fd; }

    void discard_what_is_there() const
    {
        std::array<char, 4096> part;
        while (read(fd, part.data(), part.size()) > 0)
            continue;
    }

private:
    int fd;
};

// The signals that end the watch, to be read instead of received.
int ending_signals()
{
    sigset_t ending = {};
    sigemptyset(&ending);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        sigaddset(&ending, signal);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
}

// -1 where the system tells of nothing; the watch then looks from time to time.
int events_of(const std::string &folder)
{
    const int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    constexpr uint32_t wanted = IN_CREATE | IN_MODIFY | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM;
    if (fd != -1 && inotify_add_watch(fd, folder.c_str(), wanted | IN_ONLYDIR) == -1) {
        close(fd);
        return -1;
    }
    return fd;
}

class watch {
public:
    watch(firmware &watched, const general_options &general, unsigned seconds)
        : machine(watched), as_json(general.json), signals(ending_signals()),
          events(events_of(watched.variables_folder())), interval(static_cast<int>(seconds) * 1000)
    {
        if (signals == -1)
            throw failure(std::string("cannot wait for signals: ") + strerror(errno));
    }

    void run()
    {
        known = read_boot_store(machine);
        fputs("Watching the boot variables; Ctrl-C ends it.\n", stderr);
        while (wait(interval)) {
            // Who changes one variable often changes others: and users may not read efivarfs too often.
            constexpr int settling = 200;
            if (!wait_for_end(settling))
                return;
            if (events != -1)
                events.discard_what_is_there();
            boot_store now = read_boot_store(machine);
            tell(now);
            known = std::move(now);
        }
    }

private:
    // False when the watch ends: a signal came, or nobody reads on.
    bool wait_for_end(int milliseconds) const
    {
        std::array<pollfd, 2> ends = {pollfd{signals, POLLIN, 0}, pollfd{STDOUT_FILENO, 0, 0}};
        return poll(ends.data(), ends.size(), milliseconds) <= 0;
    }

    // The same, also until something changes.
    bool wait(int milliseconds) const
    {
        std::array<pollfd, 3> ends = {pollfd{signals, POLLIN, 0}, pollfd{STDOUT_FILENO, 0, 0},
                                      pollfd{events, POLLIN, 0}};
        const int count = poll(ends.data(), ends.size(), milliseconds);
        return count <= 0 || (ends[0].revents == 0 && ends[1].revents == 0);
    }

    void tell(const boot_store &now) const
    {
        for (const std::string &name : differing(known.values, now.values)) {
            if (now.unread.contains(name)) // it is there, but cannot be read any more
                continue;
            const auto value = now.values.find(name);
            tell(change_of(name, value == now.values.end() ? nullptr : &value->second));
        }
        for (const auto &[name, why] : now.unread) {
            if (!known.unread.contains(name))
                tell({why, why, name, {{"variable", name}}, name, {}});
        }
    }

    void tell(const change &made) const
    {
        const time_t seconds = time(nullptr);
        struct tm parts = {};
        std::array<char, 32> now = {};
        gmtime_r(&seconds, &parts);
        strftime(now.data(), now.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
        if (!as_json) {
            print(now.data() + (' ' + made.past) + ' ' + made.what + '\n');
            return;
        }
        json entry = {{"time", now.data()}, {"action", made.action}};
        entry.update(made.fields);
        if (made.long_fields)
            entry.update(made.long_fields());
        print_json_line(entry);
    }

    firmware &machine;
    bool as_json;
    descriptor signals;
    descriptor events;
    int interval;
    boot_store known;
};

} // namespace

void watch_boot_variables(firmware &machine, const general_options &general, unsigned seconds)
{
    try {
        watch(machine, general, seconds).run();
    } catch (const nobody_reads &) { // as when it is found while nothing changes
    }
}

} // namespace tool
