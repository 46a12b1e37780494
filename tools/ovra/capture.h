// What libovra writes to standard error during a call, kept back until it is known whether the call failed.
#ifndef OVRA_TOOLS_CAPTURE_H
#define OVRA_TOOLS_CAPTURE_H

#include <string>

namespace tool {

// Makes libovra report its errors. Where the user asked for messages, its own or the platform libraries',
// they are left alone: they then appear as they are written. Call before the first call of the library.
void turn_on_library_messages();

// Standard error goes to memory while one of these exists.
class error_capture {
public:
    error_capture();
    ~error_capture();
    error_capture(const error_capture &) = delete;
    error_capture &operator=(const error_capture &) = delete;

    // Gives standard error back; what was written to it meanwhile.
    std::string end();

private:
    int original = -1;
    int memory = -1;
};

} // namespace tool

#endif
