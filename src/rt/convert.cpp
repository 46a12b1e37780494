// SPDX-License-Identifier: MIT
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <utility>

#include "src/base/cancel.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"

using ovra::owned;
using ovra::say;

// What iconv_open gives when it fails.
static void *const not_open =
    reinterpret_cast<void *>(-1); // NOLINT(performance-no-int-to-ptr): as iconv says

// One for the process, opened on first need and kept. iconv works inside the descriptor, so that handles in
// different threads take turns at it.
static iconv_t utf8_to_ucs2le = not_open;
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

enum class outcome { ok, no_descriptor, no_memory, refused };

outcome convert(iconv_t cd, const char *s, owned<uint16_t> *converted)
{
    if (cd == not_open)
        return outcome::no_descriptor;
    size_t in_left = strlen(s);
    size_t out_left = in_left * sizeof(uint16_t);
    owned<uint16_t> text(static_cast<uint16_t *>(malloc(out_left + sizeof(uint16_t))));
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
    owned<uint16_t> text;
    const outcome result = [&] {
        const turn at_the_descriptor;
        if (utf8_to_ucs2le == not_open)
            utf8_to_ucs2le = iconv_open("UCS-2LE", "UTF-8");
        return convert(utf8_to_ucs2le, s, &text);
    }();
    return hand_out(result, s, std::move(text));
}

namespace {

constexpr bool is_high_surrogate(uint32_t unit)
{
    return (unit & 0xfc00) == 0xd800;
}

constexpr bool is_low_surrogate(uint32_t unit)
{
    return (unit & 0xfc00) == 0xdc00;
}

uint32_t unit_at(const void *s, size_t index)
{
    uint16_t unit;
    memcpy(&unit, static_cast<const char *>(s) + index * sizeof unit, sizeof unit);
    return unit;
}

// Writes one character at `out`, which has room for four bytes; returns how many it took.
size_t put_utf8(uint32_t character, char *out)
{
    auto continuation = [&](unsigned shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3f));
    };
    if (character < 0x80) {
        out[0] = static_cast<char>(character);
        return 1;
    }
    if (character < 0x800) {
        out[0] = static_cast<char>(0xc0 | (character >> 6));
        out[1] = continuation(0);
        return 2;
    }
    if (character < 0x10000) {
        out[0] = static_cast<char>(0xe0 | (character >> 12));
        out[1] = continuation(6);
        out[2] = continuation(0);
        return 3;
    }
    out[0] = static_cast<char>(0xf0 | (character >> 18));
    out[1] = continuation(12);
    out[2] = continuation(6);
    out[3] = continuation(0);
    return 4;
}

} // namespace

size_t convert_utf16_to_utf8(const void *s, size_t units, char *out, size_t capacity)
{
    size_t written = 0;
    for (size_t i = 0; i < units; ++i) {
        uint32_t character = unit_at(s, i);
        if (character == 0 || is_low_surrogate(character))
            break;
        if (is_high_surrogate(character)) {
            const uint32_t low = i + 1 < units ? unit_at(s, i + 1) : 0;
            if (!is_low_surrogate(low))
                break;
            character = 0x10000 + ((character & 0x3ff) << 10) + (low & 0x3ff);
            ++i;
        }
        char bytes[4];
        const size_t length = put_utf8(character, bytes);
        if (length > capacity - written)
            break;
        memcpy(out + written, bytes, length);
        written += length;
    }
    return written;
}
