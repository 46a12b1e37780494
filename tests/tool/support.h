/* SPDX-License-Identifier: MIT */
// Runs the built command on a machine in a temporary folder.
#ifndef TESTS_TOOL_SUPPORT_H
#define TESTS_TOOL_SUPPORT_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace tool_test {

using json = nlohmann::json;
using words = std::vector<std::string>;

struct outcome {
    int status = -1; // exit status; -1 when it was ended by a signal
    std::string out;
    std::string err;
    double processor_seconds = 0;
};

struct surroundings {
    std::map<std::string, std::string> environment; // beside PATH
    std::string in;                                 // standard input: text, from a pipe
    std::string terminal_in;                        // standard input: typed at a terminal
    bool terminal_out = false;                      // standard output and error: a terminal each
    std::string out_file;                           // standard output, such as /dev/full
    bool out_closed = false;                        // no standard output at all
    bool broken_pipe = false;                       // standard output is a pipe that nobody reads
    bool as_nobody = false;                         // as a user without rights; for root only
    std::map<int, rlim_t> limits;                   // of setrlimit(2)
    unsigned kill_after = 0;                        // microseconds until SIGKILL; 0 for never
};

// What was said, with the lines whole that were broken at 80 columns.
std::string whole(const std::string &said);

// Whether the command has sanitizers, with which a process takes a tenth of a second and more. Tests of many
// processes then try some of their cases; the others are tried without sanitizers.
bool has_sanitizers();

words operator+(words left, const words &right);

outcome run_command(const words &arguments, const surroundings &around = {});

// What makes a user without rights run the command; nothing where such a user cannot run it.
std::optional<surroundings> as_user_without_rights();

// A machine in a folder of its own, the captured PC unless a test makes it something else.
class Machine : public ::testing::Test {
protected:
    Machine();
    ~Machine() override;

    // Runs "ovra --root <machine> ...".
    outcome run(const words &arguments, const surroundings &around = {}) const;
    // The same, which must succeed and say nothing on standard error; its output.
    std::string output(const words &arguments) const;
    // With --json: the document without the members of every one, "format" and no "warnings".
    json parsed(const words &arguments) const;
    // The same, which must fail with exit status 1; what it says on standard error, the machine untouched.
    std::string failure(const words &arguments) const;

    // Variables of the global vendor, as files hold them.
    std::filesystem::path file(const std::string &variable) const;
    void put(const std::string &variable, std::string_view data, uint32_t attributes = 7) const;
    std::string get(const std::string &variable) const; // without attributes; "(none)" if there is none
    void put_order(const std::vector<uint16_t> &order) const;
    std::vector<uint16_t> order() const;

    // A file of the machine's beside its variables, such as "capacity".
    void put_state(const std::string &name, const std::string &text) const;

    // Every file below the machine's folder with its contents, but not its lock.
    std::map<std::string, std::string> snapshot() const;

    std::filesystem::path folder; // holds the machine and what else a test needs
    std::filesystem::path root;   // the machine
    std::filesystem::path variables;
};

// A command line of every kind that writes variables, for the captured machine; all change something, once
// BootNext is set. And those of the clock and the next start beside them.
extern const std::vector<words> writers_of_variables;
extern const std::vector<words> writers;

// The data of a load option; the description is ASCII.
std::string load_option(uint32_t attributes, std::string_view description, std::string_view path,
                        std::string_view optional_data = {});

// "a" as the bytes 61 00: text as UCS-2 without a terminator.
std::string ucs2(std::string_view ascii);

std::string from_hex(std::string_view digits);

// A partition and a file on it, END: a well-formed path. Here, as other constants are made of it.
inline const std::string sample_path_hex =
    "04012a00010000000008000000000000006000000000000011223344556677889900aabbccddeeff"
    "0202"
    "04040e005c004500460049000000"
    "7fff0400";

} // namespace tool_test

#endif
