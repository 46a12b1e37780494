// SPDX-License-Identifier: MIT
// Several commands at once.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class machine_locks : public Machine {
protected:
    // What one of several people does: makes options, removes some of his own, moves others.
    struct person {
        std::map<std::string, std::string> options; // names of those that must exist, with their descriptions
        std::set<std::string> unsure;               // descriptions of options that may or may not exist
        std::vector<std::string> refused;
        size_t created = 0;
        size_t removed = 0;
    };

    // A few seconds, or as many as the environment says.
    static std::chrono::milliseconds duration()
    {
        const char *seconds = getenv("OVRA_LOCK_TEST_SECONDS");
        if (!seconds)
            return std::chrono::milliseconds(has_sanitizers() ? 3000 : 2500);
        const std::string text = seconds;
        const bool is_number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        EXPECT_TRUE(is_number && text.size() < 4 && text != "0") << "OVRA_LOCK_TEST_SECONDS=" << text;
        return std::chrono::seconds(is_number ? std::stol(text.substr(0, 3)) : 0);
    }

    void work(int who, bool with_kills, person *of) const
    {
        std::mt19937 random(static_cast<unsigned>(who) + 1);
        const auto one_of = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
        // A busy machine takes longer until there is something to look at.
        constexpr size_t least_created = 3;
        const auto begin = std::chrono::steady_clock::now();
        const auto goes_on = [&] {
            const auto passed = std::chrono::steady_clock::now() - begin;
            return passed < duration() || (of->created < least_created && passed < 10 * duration());
        };
        for (unsigned count = 0; goes_on(); ++count) {
            surroundings around;
            if (with_kills && one_of(3) == 0)
                around.kill_after = 500 + one_of(6000);
            const unsigned what = one_of(4);
            if (what <= 1 || of->options.empty()) {
                const std::string description = "of " + std::to_string(who) + ' ' + std::to_string(count);
                const outcome made =
                    run({"create", "--desc", description, "--path-hex", "7fff0400", "--json"}, around);
                const json document = json::parse(made.out, nullptr, false);
                if (made.status == 0 && !document.is_discarded()) {
                    of->options[document["changes"][0]["variable"]] = description;
                    ++of->created;
                } else {
                    of->unsure.insert(description);
                    if (made.status != -1)
                        of->refused.push_back(made.err);
                }
                continue;
            }
            auto mine = of->options.begin();
            std::advance(mine, one_of(static_cast<unsigned>(of->options.size())));
            const bool removes = what == 2;
            const outcome done =
                removes ? run({"remove", mine->first}, around)
                        : run({"order", "insert", mine->first, std::to_string(one_of(5))}, around);
            if (done.status > 0)
                of->refused.push_back(done.err);
            if (!removes)
                continue;
            of->removed += done.status == 0;
            if (done.status == -1)
                of->unsure.insert(mine->second);
            if (done.status <= 0)
                of->options.erase(mine);
        }
    }

    void work_together(bool with_kills)
    {
        constexpr int people = 8;
        put_state("capacity", "16000000 60000\n"); // for as long as they work
        const json before = parsed({"list"});
        std::vector<person> all(people);
        std::vector<std::thread> threads;
        for (int who = 0; who < people; ++who)
            threads.emplace_back([&, who] { work(who, with_kills, &all[static_cast<size_t>(who)]); });
        // Who only looks needs no lock, and is not disturbed.
        std::atomic<bool> ended = false;
        std::thread reader([&] {
            while (!ended) {
                const outcome listing = run({"list", "--json"});
                EXPECT_EQ(listing.status, 0) << listing.err;
            }
        });
        for (std::thread &thread : threads)
            thread.join();
        ended = true;
        reader.join();

        std::map<std::string, std::string> wanted;
        std::set<std::string> unsure;
        size_t created = 0;
        for (const auto &option : before["options"])
            wanted[option["option"]] = option["description"];
        for (const person &one : all) {
            for (const auto &[name, description] : one.options)
                EXPECT_TRUE(wanted.emplace(name, description).second) << name << " was given out twice";
            unsure.insert(one.unsure.begin(), one.unsure.end());
            for (const std::string &message : one.refused)
                ADD_FAILURE() << message;
            created += one.created;
        }
        EXPECT_GT(created, 20u);
        const json after = parsed({"list"});
        std::map<std::string, int> places;
        for (const auto &name : after["order"])
            ++places[name];
        std::map<std::string, std::string> there;
        for (const auto &option : after["options"]) {
            if (option.contains("description"))
                there[option["option"]] = option["description"];
        }
        for (const auto &[name, description] : wanted) {
            EXPECT_EQ(there[name], description) << name << " is lost or somebody else's";
            EXPECT_EQ(places[name], 1) << name << " in BootOrder";
        }
        for (const auto &[name, description] : there) {
            EXPECT_TRUE(wanted.contains(name) || unsure.contains(description))
                << name << " came back: " << description;
        }
        if (!with_kills) {
            EXPECT_EQ(places.size(), wanted.size());
        }
    }
};

TEST_F(machine_locks, keep_what_several_commands_do_at_once)
{
    work_together(false);
}

TEST_F(machine_locks, keep_it_also_when_commands_are_killed)
{
    work_together(true);
}

} // namespace tool_test
