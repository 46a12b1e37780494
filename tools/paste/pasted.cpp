// SPDX-License-Identifier: MIT
#include "tools/paste/pasted.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "src/base/ascii.h"
#include "src/base/nodes.h"
#include "tools/machine/pathnodes.h"
#include "tools/paste/choice.h"
#include "tools/text/failure.h"
#include "tools/text/nodeparse.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

std::optional<cut_text> cut_if_possible(const std::string &text)
{
    try {
        return cut(text);
    } catch (const misfit &) {
        return std::nullopt;
    }
}

// As ovra's reader says it, unless it could not get that far.
[[noreturn]] void fail_to_cut(const std::string &text, const std::exception_ptr &own)
{
    try {
        cut(text);
    } catch (const misfit &why) {
        if (why.foreign)
            throw failure("the path cannot be packed from " +
                              in_quotes(text.substr(why.place.begin, why.place.end - why.place.begin)) +
                              " on",
                          pointer_at(text, why.place) + '\n' + why.what() +
                              ".\nefibootmgr prints the data of an option behind its path: leave it out.");
    }
    std::rethrow_exception(own);
}

bytes file_node(const std::string &name)
{
    const auto units = to_ucs2(name);
    if (!units)
        refuse("the file's name is no UTF-8 text of characters up to U+FFFF");
    if (name.find('"') != std::string::npos)
        refuse("names of files stand without quotes");
    return new_node(UEFI_MEDIA, 4).append(stored(*units)).done();
}

void append_without_end(bytes *to, byte_view path)
{
    for (ovra::cursor nodes{path}; const auto *node = nodes.next();) {
        if (node->type == UEFI_END)
            return;
        const byte_view all = ovra::node_bytes(node);
        to->insert(to->end(), all.begin(), all.end());
    }
}

// What a failure advises, without the two lines that point at the node.
std::string reason_of(const failure &why)
{
    const size_t first = why.advice.find('\n');
    const size_t second = first == std::string::npos ? first : why.advice.find('\n', first + 1);
    return second == std::string::npos ? "" : why.advice.substr(second);
}

// Whether ovra's keyword has a parameter without a value here. Data and strings may well be empty.
bool leaves_open(const std::string &text)
{
    const parsed_node node = parse(text);
    return std::any_of(node.parameters.begin(), node.parameters.end(), [](const parameter &each) {
        return !each.value && each.kind != "bytes" && each.kind != "text";
    });
}

class packer {
public:
    packer(device_paths &encoder, const std::string &typed, const style &style)
        : paths(encoder), text(typed), written(style)
    {}

    // Whether a node has a reading beside ovra's.
    bool any_foreign = false;

    void pack(const cut_text &all)
    {
        for (const auto &instance : all.instances) {
            if (&instance != &all.instances.front())
                end_with(UEFI_END_INSTANCE);
            begin = result.packed.size();
            for (const piece &each : instance) {
                ++at;
                pack_piece(each);
            }
        }
    }

    pasted_path finish(const std::optional<std::string> &file)
    {
        if (file)
            append_without_end(&result.packed, paths.encode("", file));
        end_with(UEFI_END_ENTIRE);
        result.by = read_as;
        return std::move(result);
    }

private:
    void end_with(uint8_t subtype)
    {
        const bytes end = {UEFI_END, subtype, sizeof(uefi_device_path_t), 0};
        result.packed.insert(result.packed.end(), end.begin(), end.end());
    }

    // What is packed of the instance so far.
    byte_view of_instance() const { return byte_view(result.packed).subspan(begin); }

    [[noreturn]] void fail_at(const piece &where, const std::string &why, const std::string &messages) const
    {
        throw failure(format("node %zu of the path cannot be packed: ", at) +
                          in_quotes(text.substr(where.place.begin, where.place.end - where.place.begin)),
                      pointer_at(text, where.place) + why, messages);
    }

    void add(byte_view node) { result.packed.insert(result.packed.end(), node.begin(), node.end()); }

    void pack_piece(const piece &each)
    {
        try {
            if (each.kind == piece::file) {
                any_foreign = true;
                add(file_node(each.text));
            } else if (each.kind == piece::word) {
                refuse("it is not a keyword with parentheses");
            } else if (each.text.find('(') == std::string::npos) {
                any_foreign = true;
                if (!(written.possible & of_old_efibootmgr))
                    refuse("digits stand for a node only in the text of an old efibootmgr, and this is "
                           "none's; they may be the data of an option");
                add(parse_hex(each.text).value());
            } else {
                pack_node(each);
            }
        } catch (const unclear_node &why) {
            fail_at(each, std::string("\n") + why.what(), {});
        }
    }

    void pack_node(const piece &each)
    {
        std::vector<reading> readings;
        std::string unreadable;
        try {
            readings = read_node(each.name(), each.arguments(), of_instance());
        } catch (const unclear_node &why) {
            unreadable = why.what();
        }
        std::optional<bytes> own;
        std::optional<failure> why_not;
        try {
            bytes node;
            append_without_end(&node, paths.encode('/' + each.text, std::nullopt));
            own = std::move(node);
        } catch (const failure &why) {
            why_not = why;
        }
        any_foreign = any_foreign || !readings.empty() || !unreadable.empty();
        // What another tool cannot have meant may still be ovra's, but only in a text that is.
        if (!unreadable.empty() && (!own || written.possible != of_ovra))
            refuse(unreadable);
        if (!own && readings.empty())
            fail_at(each, reason_of(*why_not), why_not->messages);
        const chosen_reading chosen = choose(each.text, readings, own, written);
        add(chosen.read.node);
        read_as &= chosen.by;
        if (chosen.read.node == own && chosen.read.assumed.empty() && written.possible != of_ovra &&
            leaves_open(each.text))
            warn_of_defaults(each.text, *own);
        if (!chosen.read.assumed.empty())
            result.assumed.push_back(each.text + " leaves values open; taken are " + chosen.read.assumed);
        if (!chosen.decided.empty())
            decide(chosen.decided);
    }

    void decide(const std::string &what)
    {
        if (std::find(result.decided.begin(), result.decided.end(), what) == result.decided.end())
            result.decided.push_back(what);
    }

    void warn_of_defaults(const std::string &node, const bytes &packed)
    {
        const decoded_path whole = paths.decode(with_end(packed));
        if (whole.error.empty())
            result.assumed.push_back(node + " leaves values open; taken are those of " +
                                     whole.instances.at(0).device);
    }

    device_paths &paths;
    const std::string &text;
    const style &written;
    pasted_path result;
    dialects read_as = any_dialect;
    size_t at = 0;
    size_t begin = 0; // of the instance
};

constexpr char node_may_be_missing[] = "efibootmgr prints nothing for some nodes: one may be missing.";

// Whether a packed path prints as this text.
bool prints_as(device_paths &paths, byte_view packed, const std::string &text,
               const std::optional<std::string> &file)
{
    const decoded_path printed = paths.decode(packed);
    return printed.error.empty() && printed.instances.size() == 1 && printed.instances[0].device == text &&
           printed.instances[0].file == file;
}

// Anybody may write a path in ovra's keywords, but only where nobody else does is that worth a word.
dialects named_dialects(dialects which)
{
    const dialects others = which & ~of_ovra;
    return others ? others : which;
}

} // namespace

path_text part_file(const std::string &text)
{
    if (!text.empty() && isspace(static_cast<unsigned char>(text.back())))
        refuse("the text of the path ends in a blank: leave it out");
    auto all = cut_if_possible(text);
    if (!all) {
        path_text parted = split_file(text);
        if (parted.file && text.ends_with(*parted.file))
            require_no_data(*parted.file);
        return parted;
    }
    split_bare_files(text, style_of(*all).likely == of_firmware, &*all);
    const auto &last = all->instances.back();
    const bool named =
        !last.empty() &&
        (last.back().kind == piece::file ||
         (last.back().kind == piece::word && last.size() > 1 && style_of(*all).likely == of_firmware));
    if (!named || all->instances.size() > 1)
        return {text, std::nullopt};
    std::string device = text.substr(0, last.back().place.begin);
    while (device.ends_with('/'))
        device.pop_back();
    return {device, last.back().text};
}

pasted_path pack_pasted(device_paths &paths, const std::string &text, const std::optional<std::string> &file,
                        const std::string &whole)
{
    pasted_path own;
    std::exception_ptr why_not;
    try {
        own.packed = paths.encode(text, file);
    } catch (const failure &) {
        why_not = std::current_exception();
    }
    const bool names_device = text.empty() || is_device_name(text);
    auto all = names_device ? std::nullopt : cut_if_possible(text);
    if (why_not && !all)
        fail_to_cut(text, why_not);
    const auto pasted = is_device_name(whole) ? std::nullopt : cut_if_possible(whole);
    if (!whole.starts_with('/') && ((all && all->has_gap) || (pasted && pasted->has_gap)))
        throw failure("nothing stands between two slashes of the path", node_may_be_missing);
    const style written = pasted ? style_of(*pasted) : style{of_ovra, 0};
    constexpr std::string_view whole_disk = "HD(0,";
    const bool is_ours = !all || text.starts_with('/');
    if (!why_not && (is_ours || (!all->open_end && prints_as(paths, own.packed, text, file)))) {
        own.by = named_dialects(text.starts_with('/') ? of_ovra : written.possible);
        if (all && !text.starts_with('/') && ovra::alike(text.substr(0, whole_disk.size()), whole_disk))
            own.decided.push_back(text + " is read as ovra prints the whole disk, without blocks");
        return own;
    }
    if (all->open_end)
        throw failure("the path ends in a slash", node_may_be_missing);
    if (file && all->instances.size() > 1)
        throw failure("the path has several instances: --file belongs to one",
                      "The file can stand in the text, behind the devices of its instance.");
    packer nodes(paths, text, written);
    try {
        split_bare_files(text, written.likely == of_firmware, &*all);
        nodes.pack(*all);
    } catch (const failure &) {
        if (why_not && !nodes.any_foreign)
            std::rethrow_exception(why_not);
        throw;
    } catch (const unclear_node &why) {
        throw failure(why.what());
    }
    pasted_path packed = nodes.finish(file);
    packed.by = named_dialects(packed.by & written.possible ? packed.by & written.possible : packed.by);
    return packed;
}

} // namespace tool
