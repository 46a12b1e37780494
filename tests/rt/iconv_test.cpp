// SPDX-License-Identifier: MIT
// The shared conversion descriptor from its first use on: a program of its own, since it is opened once for
// the process. iconv_open is wrapped at link time.
#include <atomic>
#include <csetjmp>
#include <csignal>
#include <functional>
#include <semaphore>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "src/rt/owned.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"

using namespace ovra::test;

extern "C" {
iconv_t __real_iconv_open(const char *to, const char *from);
iconv_t __wrap_iconv_open(const char *to, const char *from);
size_t __real_iconv(iconv_t cd, char **in, size_t *in_left, char **out, size_t *out_left);
size_t __wrap_iconv(iconv_t cd, char **in, size_t *in_left, char **out, size_t *out_left);
}

namespace {

bool refused = false;
bool stops_early = false;
std::function<void()> while_converting; // called once, inside the conversion
std::vector<std::string> opened;

} // namespace

iconv_t __wrap_iconv_open(const char *to, const char *from)
{
    opened.push_back(std::string(to) + " from " + from);
    return refused ? reinterpret_cast<iconv_t>(-1) : __real_iconv_open(to, from);
}

size_t __wrap_iconv(iconv_t cd, char **in, size_t *in_left, char **out, size_t *out_left)
{
    if (in && while_converting)
        std::exchange(while_converting, nullptr)();
    if (!stops_early || !in || *in_left < 2)
        return __real_iconv(cd, in, in_left, out, out_left);
    size_t first = 1;
    const size_t result = __real_iconv(cd, in, &first, out, out_left);
    *in_left -= 1;
    return result;
}

TEST(shared_descriptor, is_tried_again_until_it_opens_and_then_kept)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    EXPECT_TRUE(opened.empty()); // not before it is needed
    messages said(1, 0);

    refused = true;
    uint8_t data[1] = {1};
    UINTN size = sizeof data;
    EXPECT_EQ(convert_utf8_to_leunicode("x"), nullptr);
    EXPECT_EQ(said.take(), "iconv_open(UCS-2/UTF-8)");
    EXPECT_EQ(set_variable(nullptr, "x", 1, data), EFI_INVALID_PARAMETER);
    EXPECT_EQ(said.take(), "iconv_open(UCS-2/UTF-8)");
    EXPECT_EQ(get_variable(nullptr, "x", &size, data), EFI_INVALID_PARAMETER);
    EXPECT_EQ(said.take(), "iconv_open(UCS-2/UTF-8)");
    EXPECT_EQ(opened, std::vector<std::string>(3, "UCS-2LE from UTF-8"));
    EXPECT_TRUE(fakes::openings().empty());

    refused = false;
    const ovra::owned<uint16_t> text(convert_utf8_to_leunicode("x"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(to_hex(text.get(), 4), "78 00 00 00");
    EXPECT_EQ(opened.size(), 4U);

    refused = true;
    EXPECT_EQ(set_variable(nullptr, "x", 1, data), EFI_SUCCESS);
    const ovra::owned<uint16_t> other(convert_utf8_to_leunicode("\xc3\xa9"));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(to_hex(other.get(), 4), "e9 00 00 00");
    EXPECT_EQ(convert_utf8_to_leunicode("\xff"), nullptr);
    EXPECT_EQ(get_variable(nullptr, "x", &size, data), EFI_SUCCESS);
    EXPECT_EQ(opened.size(), 4U);
}

TEST(conversion, that_leaves_input_behind_is_refused_with_a_message)
{
    const messages said(1, 0);
    const iconv_t own = __real_iconv_open("UCS-2LE", "UTF-8"); // the shared one is the other test's
    stops_early = true;
    const ovra::owned<uint16_t> text(convert_utf8_to_ucs2xx(own, "xy"));
    stops_early = false;
    iconv_close(own);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(said.text(), "iconv(xy) failed");
}

namespace {

// What goes through the descriptor.
constexpr char not_ascii[] = "\xc3\xa9";

bool converts()
{
    const ovra::owned<uint16_t> text(convert_utf8_to_leunicode(not_ascii));
    return text && text.get()[0] == 0xe9 && text.get()[1] == 0;
}

sigjmp_buf escape;

void jump_away(int)
{
    siglongjmp(escape, 1);
}

int status_in_handler = -1;

void fork_in_handler(int)
{
    status_in_handler = status_in_child(converts);
}

} // namespace

TEST(conversion, goes_on_in_a_child_forked_while_another_thread_was_inside)
{
    refused = false;
    ASSERT_TRUE(converts());
    std::binary_semaphore inside(0);
    while_converting = [&] {
        inside.release();
        usleep(200000); // time to fork, for a fork that does not wait
    };
    bool converted = false;
    std::thread other([&] { converted = converts(); });
    inside.acquire();
    EXPECT_EQ(status_in_child(converts), 0);
    other.join();
    EXPECT_TRUE(converted);
    EXPECT_TRUE(converts());
}

TEST(conversion, goes_on_in_a_child_that_a_signal_handler_forked_in_the_middle)
{
    refused = false;
    EXPECT_EQ(status_in_child([] {
                  signal(SIGUSR1, fork_in_handler);
                  while_converting = [] { raise(SIGUSR1); };
                  return converts() && status_in_handler == 0 && converts();
              }),
              0);
}

TEST(conversion, goes_on_after_a_signal_handler_jumped_out_of_it)
{
    refused = false;
    EXPECT_EQ(status_in_child([] {
                  signal(SIGUSR1, jump_away);
                  while_converting = [] { raise(SIGUSR1); };
                  if (sigsetjmp(escape, 1) == 0) {
                      convert_utf8_to_leunicode(not_ascii);
                      return false; // the handler was to run
                  }
                  return converts();
              }),
              0);
}

TEST(conversion, keeps_the_signals_and_the_cancellation_of_the_thread)
{
    refused = false;
    sigset_t before;
    sigset_t after;
    sigemptyset(&before);
    sigaddset(&before, SIGUSR2);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
    EXPECT_TRUE(converts());
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < 32; ++signal)
        EXPECT_EQ(sigismember(&after, signal), signal == SIGUSR2) << signal;
    int state = -1;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
    sigemptyset(&before);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
