// SPDX-License-Identifier: MIT
#include "tools/text/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

void print(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written == -1 && errno == EINTR)
            continue;
        if (written == -1 && errno == EPIPE)
            throw nobody_reads(std::string("cannot write to standard output: ") + strerror(errno));
        if (written == -1)
            throw failure(std::string("cannot write to standard output: ") + strerror(errno));
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void print_json(const json &document)
{
    // A description can hold what is no text: it becomes U+FFFD.
    print(escaped_in_json(document.dump(2, ' ', false, json::error_handler_t::replace)) + '\n');
}

void warn(const std::string &what, const std::string &advice)
{
    const std::string name = "ovra: warning: ";
    fprintf(stderr, "%s%s\n", name.c_str(), broken(what, name.size()).c_str());
    if (!advice.empty())
        fprintf(stderr, "  %s\n", broken(advice, 2).c_str());
}

void table::row(std::vector<std::string> cells)
{
    lines.push_back({std::move(cells), {}});
}

void table::below(size_t spaces, const std::string &text)
{
    lines.push_back({{}, std::string(spaces, ' ') + text});
}

std::string table::text() const
{
    std::vector<size_t> widths;
    for (const entry &line : lines) {
        widths.resize(std::max(widths.size(), line.cells.size()));
        for (size_t at = 0; at < line.cells.size(); ++at)
            widths[at] = std::max(widths[at], columns(line.cells[at]));
    }
    std::string all;
    for (const entry &line : lines) {
        std::string text = line.note;
        for (size_t at = 0; at < line.cells.size(); ++at) {
            text += line.cells[at];
            text.append(widths[at] - columns(line.cells[at]) + 2, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        all += text + '\n';
    }
    return all;
}

json as_json(const load_option &option)
{
    const auto text = as_text(option.optional_data);
    return {{"description", option.description},
            {"active", option.active()},
            {"attributes", option.attributes},
            {"path", hex(option.path)},
            {"optional_data", hex(option.optional_data)},
            {"optional_data_text", text ? json(*text) : json(nullptr)}};
}

json as_json(std::optional<uint16_t> option)
{
    return option ? json(option_name(*option)) : json(nullptr);
}

json option_names(const std::vector<uint16_t> &options)
{
    json names = json::array();
    for (const uint16_t option : options)
        names.push_back(option_name(option));
    return names;
}

} // namespace tool
