#include "tools/ovra/capture.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace tool {

namespace {
bool shown_as_written = false;
}

void turn_on_library_messages()
{
    // What the first call sets must not look like the user's wish to the second.
    static bool done = false;
    if (done)
        return;
    done = true;
    shown_as_written = getenv("OVRA_PATH_EPRINT") || getenv("OVRA_PATH_DEBUG") || getenv("HWPLAT_DEBUG");
    setenv("OVRA_PATH_EPRINT", "1", 0);
}

error_capture::error_capture()
{
    if (shown_as_written)
        return;
    memory = memfd_create("ovra-messages", MFD_CLOEXEC);
    if (memory == -1)
        return;
    original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (original == -1 || dup2(memory, STDERR_FILENO) == -1) {
        close(memory);
        memory = -1;
    }
}

error_capture::~error_capture()
{
    end();
}

std::string error_capture::end()
{
    std::string messages;
    if (memory != -1) {
        dup2(original, STDERR_FILENO);
        char part[1024];
        ssize_t size = 0;
        lseek(memory, 0, SEEK_SET);
        while ((size = read(memory, part, sizeof part)) > 0)
            messages.append(part, static_cast<size_t>(size));
        close(memory);
        memory = -1;
    }
    if (original != -1) {
        close(original);
        original = -1;
    }
    return messages;
}

} // namespace tool
