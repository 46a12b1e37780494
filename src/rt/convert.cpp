// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <string_view>
#include <utility>

#include "src/base/cancel.h"
#include "src/base/text.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"

using ovra::owned;
using ovra::say;

// What iconv_open gives when it fails.
static void *const not_open =
    reinterpret_cast<void *>(-1); // NOLINT(performance-no-int-to-ptr): as iconv says

// One for the process, opened on first need and kept. iconv changes the descriptor it works with: threads
// take turns.
static iconv_t utf8_to_ucs2le = not_open;
static constinit std::atomic<bool> descriptor_opened = false;
static pthread_mutex_t utf8_to_ucs2le_in_use = PTHREAD_MUTEX_INITIALIZER;
static pthread_once_t fork_prepared = PTHREAD_ONCE_INIT;

// fork waits for the end of a turn: a child has the lock as it was, but not the thread that would give it
// back.
static void wait_before_fork()
{
    pthread_mutex_lock(&utf8_to_ucs2le_in_use);
}

static void go_on_after_fork()
{
    pthread_mutex_unlock(&utf8_to_ucs2le_in_use);
}

static void prepare_for_fork()
{
    pthread_atfork(wait_before_fork, go_on_after_fork, go_on_after_fork);
}

void follow_forks()
{
    pthread_once(&fork_prepared, prepare_for_fork);
}

namespace {

// Signals wait while it lives, in this thread.
class signals_held {
public:
    signals_held()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
    }
    signals_held(const signals_held &) = delete;
    signals_held &operator=(const signals_held &) = delete;
    ~signals_held() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before;
};

// A turn at the descriptor. A handler of a signal could fork, which would wait for this very turn, or jump
// away and never give it back; so signals are held as the outermost.
class turn {
public:
    turn()
    {
        follow_forks();
        pthread_mutex_lock(&utf8_to_ucs2le_in_use);
    }
    turn(const turn &) = delete;
    turn &operator=(const turn &) = delete;
    ~turn() { pthread_mutex_unlock(&utf8_to_ucs2le_in_use); }

private:
    signals_held held;
    ovra::uncancelled converting;
};

bool is_ascii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Each character of ASCII is one unit; null without memory.
uint16_t *widen(std::string_view ascii)
{
    auto *units = static_cast<uint16_t *>(malloc((ascii.size() + 1) * sizeof(uint16_t)));
    if (units) {
        std::transform(ascii.begin(), ascii.end(), units, [](char c) { return static_cast<uint16_t>(c); });
        units[ascii.size()] = 0;
    }
    return units;
}

enum class outcome { ok, no_descriptor, no_memory, refused };

// Kept: through iconv, as a caller may bring a descriptor of another encoding
// [kept_conversion_goes_through_the_descriptor_given].
outcome convert(iconv_t cd, const char *s, owned<uint16_t> *converted)
{
    if (cd == not_open)
        return outcome::no_descriptor;
    size_t in_left = strlen(s);
    size_t out_left = in_left * sizeof(uint16_t);
    owned<uint16_t> text(static_cast<uint16_t *>(malloc(out_left + sizeof(uint16_t))));
    // Kept: without memory nothing is said. [kept_a_refused_allocation_is_silent]
    if (!text)
        return outcome::no_memory;
    // Characters of four bytes do not fit into 16 bits. glibc's iconv refuses most of them, but leaves out
    // U+E0000 to U+E007F without a word.
    if (std::any_of(s, s + in_left, [](char c) { return static_cast<unsigned char>(c) >= 0xf0; }))
        return outcome::refused;
    char *in = const_cast<char *>(s); // iconv does not write there; its prototype predates const
    char *out = reinterpret_cast<char *>(text.get());
    if (iconv(cd, &in, &in_left, &out, &out_left) == static_cast<size_t>(-1) || in_left != 0) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        return outcome::refused;
    }
    memset(out, 0, sizeof(uint16_t));
    *converted = std::move(text);
    return outcome::ok;
}

// Says what a conversion came to, and gives its text to the caller.
uint16_t *hand_out(outcome result, const char *s, owned<uint16_t> text)
{
    // Kept: neither message has a line end. [kept_no_line_end_after_a_missing_descriptor,
    // kept_no_line_end_after_a_refused_text]
    if (result == outcome::no_descriptor)
        say("iconv_open(UCS-2/UTF-8)");
    else if (result == outcome::refused)
        say("iconv(%s) failed", s);
    return text.release();
}

} // namespace

size_t unicode_strlen(const uint16_t *s)
{
    size_t units = 0;
    while (s[units] != 0)
        ++units;
    return (units + 1) * sizeof(uint16_t);
}

uint16_t *convert_utf8_to_ucs2xx(iconv_t cd, const char *s)
{
    owned<uint16_t> text;
    const outcome result = convert(cd, s, &text);
    return hand_out(result, s, std::move(text));
}

uint16_t *convert_utf8_to_leunicode(const char *s)
{
    // Without a turn, but not before the descriptor has opened: while it does not, every text is refused.
    if (descriptor_opened.load(std::memory_order_relaxed) && is_ascii(s))
        return widen(s);
    owned<uint16_t> text;
    const outcome result = [&] {
        const turn at_the_descriptor;
        if (utf8_to_ucs2le == not_open)
            utf8_to_ucs2le = iconv_open("UCS-2LE", "UTF-8");
        descriptor_opened.store(utf8_to_ucs2le != not_open, std::memory_order_relaxed);
        return convert(utf8_to_ucs2le, s, &text);
    }();
    return hand_out(result, s, std::move(text));
}

// The characters of ASCII that the units begin with, at most `capacity`, to `out`.
static size_t narrow_ascii(ovra::byte_view units, char *out, size_t capacity)
{
    const size_t most = std::min(capacity, ovra::unit_count(units));
    size_t written = 0;
    for (; written < most; ++written) {
        const uint16_t unit = ovra::unit_at(units, written);
        if (unit == 0 || unit >= 0x80)
            break;
        out[written] = static_cast<char>(unit);
    }
    return written;
}

size_t convert_utf16_to_utf8(const void *s, size_t units, char *out, size_t capacity)
{
    ovra::byte_view rest(static_cast<const uint8_t *>(s), units * sizeof(uint16_t));
    size_t written = narrow_ascii(rest, out, capacity);
    rest = rest.subspan(written * sizeof(uint16_t));
    while (!rest.empty()) {
        const ovra::decoded_character next = ovra::first_of_utf16(rest);
        if (!next.valid || next.character == 0)
            break;
        const ovra::utf8_character utf8(next.character);
        const std::string_view bytes = utf8.view();
        if (bytes.size() > capacity - written)
            break;
        memcpy(out + written, bytes.data(), bytes.size());
        written += bytes.size();
        rest = rest.subspan(next.size * sizeof(uint16_t));
    }
    return written;
}
