// SPDX-License-Identifier: MIT
// What the library keeps for the whole process, used by threads at once, each with a handle of its own.
// Compiled with ThreadSanitizer, which ends the program with a report when two threads get in each other's
// way.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/include/devns.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"

// A platform without runtime services.
int devns_open(const char *, int)
{
    return -1;
}

int devns_ioctl(int, int, void *)
{
    return -1;
}

int devns_close(int)
{
    return 0;
}

static std::atomic<int> waiting = 0;
static std::atomic<int> wrong = 0;

static void use(int threads)
{
    // All begin at once: the first message and the first conversion are each other's.
    for (++waiting; waiting < threads;)
        std::this_thread::yield();
    for (int i = 0; i < 200; ++i) {
        ovra::say("error %d\n", i);
        ovra::trace("trace %d\n", i);
        const ovra::owned<uint16_t> text(convert_utf8_to_leunicode("Boot0001"));
        const ovra::owned<uint16_t> refused(convert_utf8_to_leunicode("\xff"));
        uint8_t byte = 0;
        UINTN size = sizeof byte;
        ovra_hdl_t hdl = nullptr;
        if (!text || text.get()[7] != '1' || refused ||
            get_variable(nullptr, "x", &size, &byte) != EFI_ACCESS_DENIED || ovra_init(&hdl) == 0)
            ++wrong;
    }
}

int main()
{
    unsetenv("OVRA_TEST_FILE");
    constexpr int count = 4;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(use, count);
    for (std::thread &thread : threads)
        thread.join();
    printf("%d wrong\n", wrong.load());
    return wrong == 0 ? 0 : 1;
}
