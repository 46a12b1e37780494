// SPDX-License-Identifier: MIT
#include "tools/text/terminal.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/text/text.h"

namespace tool {

namespace {

bool is_utf8_terminal()
{
    if (isatty(STDOUT_FILENO) == 0)
        return true;
    const locale_t of_caller = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!of_caller)
        return true; // it is not installed, and UTF-8 is what most have
    const bool is_utf8 = strcmp(nl_langinfo_l(CODESET, of_caller), "UTF-8") == 0;
    freelocale(of_caller);
    return is_utf8;
}

bool is_colour_terminal()
{
    const char *no_colour = secure_getenv("NO_COLOR");
    const char *terminal = secure_getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (!no_colour || *no_colour == '\0') && terminal &&
           *terminal != '\0' && strcmp(terminal, "dumb") != 0;
}

// Asked for each line: a window may change.
size_t columns_of_terminal()
{
    constexpr size_t usual = 80;
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}

} // namespace

bool shows_utf8()
{
    static const bool shows = is_utf8_terminal();
    return shows;
}

bool shows_colours()
{
    static const bool shows = is_colour_terminal();
    return shows;
}

progress::progress(size_t steps, const char *counted, size_t per_line)
    : all(steps), unit(counted), often(per_line), shown(steps >= 10 * per_line && isatty(STDERR_FILENO) != 0)
{}

progress::~progress()
{
    // Blanks, for a terminal that cannot clear a line.
    if (shown)
        fprintf(stderr, "\r%s\r", std::string(columns_of_terminal() - 1, ' ').c_str());
}

void progress::step()
{
    if (!shown || ++done % often != 0)
        return;
    const std::string line = format("%zu of %zu %s", done, all, unit);
    fprintf(stderr, "\r%s", line.substr(0, columns_of_terminal() - 1).c_str());
}

} // namespace tool
