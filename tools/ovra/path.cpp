// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/files.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/table.h"

namespace tool {

namespace {

constexpr size_t input_limit = 1 << 20; // far above the digits of any path; an endless input ends here

class path_verb : public verb {
public:
    const char *summary() const override { return "device paths between text and packed form"; }
    void declare(CLI::App &app) override
    {
        declare_encode(*app.add_subcommand("encode", "pack a device path that is given as text"));
        declare_decode(*app.add_subcommand("decode", "show a packed device path as text"));
        app.require_subcommand(1);
        add_example(app, "ovra path encode '/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)'");
    }

    void check() override { path.settle_file(); }

    void run(const general_options &general) override
    {
        device_paths paths;
        if (packed)
            decode(paths, general);
        else
            encode(paths, general);
    }

private:
    void declare_encode(CLI::App &app)
    {
        add_value(app, "text", "TEXT", "the device path", [this](const std::string &text) {
            path.device_text = text;
        })->required();
        path.declare_file(app);
        path.declare_verbose(app);
        app.add_flag("--raw", raw, "print the bytes themselves instead of hexadecimal digits");
    }

    void declare_decode(CLI::App &app)
    {
        add_value(app, "path", "HEX", "hexadecimal digits, or - to read them from standard input",
                  [this](const std::string &text) {
                      if (text != "-" && !parse_hex(text))
                          throw usage_error("path decode: pairs of hexadecimal digits are needed");
                      packed = text;
                  })
            ->required();
    }

    void encode(device_paths &paths, const general_options &general) const
    {
        const given_path given = path.encode(paths, packs::all, general);
        json document = {{"path", hex(given.packed)}, {"size", given.packed.size()}};
        document.update(given.disk);
        if (general.json)
            print_json(document);
        else if (raw)
            print({reinterpret_cast<const char *>(given.packed.data()), given.packed.size()});
        else
            print(hex(given.packed) + '\n');
    }

    void decode(device_paths &paths, const general_options &general) const
    {
        const bool from_input = packed == "-";
        const auto bytes =
            parse_hex(from_input ? standard_input(input_limit, "longer than any path") : *packed);
        if (!bytes)
            throw failure("pairs of hexadecimal digits are needed" +
                          std::string(from_input ? " on standard input" : ""));
        const decoded_path text = paths.decode(*bytes);
        if (!text.error.empty())
            throw failure("this path has no text: " + text.error, {}, text.messages);
        if (text.bytes_after_end != 0)
            warn(format("%zu bytes after the path's END node are not shown", text.bytes_after_end));
        else if (!text.ends_plainly)
            warn("the path's END node is not shown: its text gives a plain one");
        if (general.json) {
            json document = as_json(text);
            document["bytes_not_shown"] = text.bytes_after_end;
            print_json(document);
            return;
        }
        table rows;
        for (auto &row : as_rows(text))
            rows.row(row);
        print(rows.text());
    }

    path_arguments path;               // encode
    bool raw = false;                  // encode
    std::optional<std::string> packed; // decode: digits, or "-" for standard input
};

} // namespace

std::unique_ptr<verb> make_path()
{
    return std::make_unique<path_verb>();
}

} // namespace tool
