// SPDX-License-Identifier: MIT
#include "tools/text/complaint.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool {

namespace {

std::vector<std::string> printable_lines(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(printable(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return lines;
}

json as_json_object(const told_change &change)
{
    return {{"action", change.action},
            {"variable", change.variable.empty() ? json(nullptr) : json(change.variable)},
            {"text", change.text}};
}

json error_document(const failure &reason, int exit_status)
{
    json done = json::array();
    for (const told_change &each : reason.done)
        done.push_back(as_json_object(each));
    return {{"exit_status", exit_status},
            {"reason", printable(reason.what())},
            {"failed", reason.failed ? as_json_object(*reason.failed) : json(nullptr)},
            {"done", std::move(done)},
            {"advice", printable_lines(reason.advice)},
            {"messages", printable_lines(reason.messages)}};
}

void print_complaint(const failure &reason)
{
    const std::string name = "ovra: ";
    fprintf(stderr, "%s%s\n", name.c_str(), broken(printable(reason.what()), name.size()).c_str());
    for (const std::string &line : printable_lines(reason.advice))
        fprintf(stderr, "  %s\n", broken(line, 2).c_str());
    for (const std::string &line : printable_lines(reason.messages))
        fprintf(stderr, "    %s\n", line.c_str());
}

} // namespace

void complain(const failure &reason, int exit_status, bool as_json) noexcept
{
    try {
        print_complaint(reason);
        if (as_json)
            print_json_error(error_document(reason, exit_status));
    } catch (const std::bad_alloc &) {
        fputs("ovra: out of memory\n", stderr);
    } catch (const std::exception &) { // standard output
    }
}

} // namespace tool
