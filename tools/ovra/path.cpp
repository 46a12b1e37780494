// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "tools/ovra/fields.h"
#include "tools/ovra/verbs.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

constexpr size_t input_limit = 1 << 20; // far above the digits of any path; an endless input ends here

std::string standard_input()
{
    std::string all;
    char part[4096];
    for (;;) {
        const ssize_t size = read(STDIN_FILENO, part, sizeof part);
        if (size == -1 && errno == EINTR)
            continue;
        if (size == -1)
            throw failure(std::string("cannot read standard input: ") + strerror(errno));
        if (size == 0)
            return all;
        all.append(part, static_cast<size_t>(size));
        if (all.size() > input_limit)
            throw failure("standard input is longer than any path");
    }
}

void encode(device_paths &paths, const arguments &args)
{
    const given_path given = given_devices(paths, args, args.file);
    const bytes &path = given.packed;
    json document = {{"path", hex(path)}, {"size", path.size()}};
    document.update(given.disk);
    if (args.json)
        print_json(document);
    else if (args.raw)
        print({reinterpret_cast<const char *>(path.data()), path.size()});
    else
        print(hex(path) + '\n');
}

void decode(device_paths &paths, const arguments &args)
{
    const bool from_input = args.packed == "-";
    const auto path = parse_hex(from_input ? standard_input() : args.packed);
    if (!path)
        throw failure("pairs of hexadecimal digits are needed" +
                      std::string(from_input ? " on standard input" : ""));
    const decoded_path text = paths.decode(*path);
    if (!text.error.empty())
        throw failure("this path has no text: " + text.error, {}, text.messages);
    if (text.bytes_behind_end != 0)
        warn(format("%zu bytes behind the path's END node are not shown", text.bytes_behind_end));
    else if (!text.ends_plainly)
        warn("the path's END node is not shown: its text gives a plain one");
    if (args.json) {
        json document = as_json(text);
        document["bytes_not_shown"] = text.bytes_behind_end;
        print_json(document);
        return;
    }
    table rows;
    for (auto &row : as_rows(text))
        rows.row(std::move(row));
    print(rows.text());
}

} // namespace

void run_path(const std::string &, const arguments &args)
{
    device_paths paths;
    if (args.path_action == arguments::path_action::encode)
        encode(paths, args);
    else
        decode(paths, args);
}

} // namespace tool
