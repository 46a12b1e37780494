#include <cstdlib>
#include <cstring>
#include <pthread.h>

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

size_t unicode_strlen(const uint16_t *s)
{
    size_t units = 0;
    while (s[units] != 0)
        ++units;
    return (units + 1) * sizeof(uint16_t);
}

uint16_t *convert_utf8_to_ucs2xx(iconv_t cd, const char *s)
{
    if (cd == not_open) {
        say("iconv_open(UCS-2/UTF-8)");
        return nullptr;
    }
    size_t in_left = strlen(s);
    size_t out_left = in_left * sizeof(uint16_t);
    owned<uint16_t> text(static_cast<uint16_t *>(malloc(out_left + sizeof(uint16_t))));
    if (!text)
        return nullptr;
    char *in = const_cast<char *>(s); // iconv does not write there; its prototype predates const
    char *out = reinterpret_cast<char *>(text.get());
    if (iconv(cd, &in, &in_left, &out, &out_left) == static_cast<size_t>(-1) || in_left != 0) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        say("iconv(%s) failed", s);
        return nullptr;
    }
    memset(out, 0, sizeof(uint16_t));
    return text.release();
}

uint16_t *convert_utf8_to_leunicode(const char *s)
{
    pthread_mutex_lock(&utf8_to_ucs2le_in_use);
    if (utf8_to_ucs2le == not_open)
        utf8_to_ucs2le = iconv_open("UCS-2LE", "UTF-8");
    uint16_t *text = convert_utf8_to_ucs2xx(utf8_to_ucs2le, s);
    pthread_mutex_unlock(&utf8_to_ucs2le_in_use);
    return text;
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
