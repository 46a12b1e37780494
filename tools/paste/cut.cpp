// SPDX-License-Identifier: MIT
#include "tools/paste/cut.h"

#include <algorithm>

#include "src/base/ascii.h"
#include "src/base/number.h"
#include "tools/paste/reading.h"
#include "tools/text/nodeparse.h"
#include "tools/text/numbers.h"

namespace tool {

std::string piece::name() const
{
    return text.substr(0, text.find('('));
}

std::string piece::arguments() const
{
    const size_t open = text.find('(');
    return open == std::string::npos ? "" : text.substr(open + 1, text.size() - open - 2);
}

namespace {

bool is_in_name(char c)
{
    return ovra::digit_value(c) < 36 || c == '_' || c == '-';
}

class cutter {
public:
    explicit cutter(const std::string &typed) : text(typed) {}

    cut_text run()
    {
        result.instances.resize(1);
        result.from_root = text.starts_with('/');
        skip_slashes();
        try {
            while (at < text.size()) {
                take_piece();
                go_on();
            }
        } catch (const unclear_node &why) {
            throw misfit(why.what(), {at, text.size()}, foreign);
        }
        return std::move(result);
    }

private:
    void skip_slashes() { at = std::min(text.find_first_not_of('/', at), text.size()); }

    size_t end_of_name(size_t from) const
    {
        while (from < text.size() && is_in_name(text[from]))
            ++from;
        return from;
    }

    bool keyword_begins(size_t from) const
    {
        const size_t end = end_of_name(from);
        const std::string name = text.substr(from, end - from);
        return end < text.size() && text[end] == '(' && (is_keyword(name) || is_pasted_keyword(name));
    }

    size_t matching_parenthesis(size_t open) const
    {
        size_t depth = 0;
        for (size_t place = open; place < text.size(); ++place) {
            depth += text[place] == '(';
            if (text[place] == ')' && --depth == 0)
                return place;
        }
        refuse("it has no closing parenthesis");
    }

    void add(piece::kinds kind, size_t begin, size_t end, std::string what)
    {
        result.instances.back().push_back({kind, {begin, end}, std::move(what)});
        at = end;
    }

    // Where a node ends that stands as its bytes, as an old efibootmgr prints what it has no text for: they
    // say how many they are.
    std::optional<size_t> end_of_raw_node() const
    {
        constexpr size_t header = 4;
        const auto bytes_at = [this](size_t count) { return parse_hex(text.substr(at, 2 * count)); };
        const auto begin = bytes_at(header);
        if (!begin || begin->size() != header || begin->front() == 0 || begin->front() > UEFI_BIOS)
            return std::nullopt;
        const auto size = static_cast<size_t>((*begin)[2] | (*begin)[3] << 8);
        const auto all = bytes_at(size);
        if (size < header || !all || all->size() != size)
            return std::nullopt;
        return at + 2 * size;
    }

    void take_bare_file()
    {
        size_t end = at;
        for (; end < text.size(); ++end) {
            const bool next_file = text.compare(end, 2, "/\\") == 0;
            const bool next_instance = text[end] == ',' && keyword_begins(end + 1 + (text[end + 1] == '/'));
            if (next_file || next_instance)
                break;
        }
        add(piece::file, at, end, text.substr(at, end - at));
    }

    void take_piece()
    {
        constexpr std::string_view doubled = "MAC(MAC("; // an efibootmgr printed the keyword twice
        if (text[at] == '\\')
            return take_bare_file();
        if (const auto raw_end = end_of_raw_node()) {
            if (parted)
                refuse("digits stand for a node only in the text of an old efibootmgr, which has no slashes; "
                       "here they may be the data of an option");
            result.joined = true;
            foreign = true;
            return add(piece::node, at, *raw_end, text.substr(at, *raw_end - at));
        }
        if (text.compare(at, doubled.size(), doubled) == 0)
            at += doubled.size() / 2;
        const size_t end = end_of_name(at);
        const std::string name = text.substr(at, end - at);
        foreign = foreign || is_pasted_keyword(name);
        if (end < text.size() && text[end] == '(' && !name.empty()) {
            const size_t behind = matching_parenthesis(end) + 1;
            const bool is_file = ovra::alike(name, "File");
            if (is_file && behind == end + 2)
                refuse("File() names no file");
            add(is_file ? piece::file : piece::node, at, behind,
                is_file ? text.substr(end + 1, behind - end - 2) : text.substr(at, behind - at));
        } else if (ovra::alike(name, "DebugPort")) {
            add(piece::node, at, end, with_parentheses(name));
        } else if (!name.empty() && text.find_first_of("/\\(),", at) == std::string::npos) {
            add(piece::word, at, text.size(), text.substr(at));
        } else {
            refuse("it is not a keyword with parentheses");
        }
    }

    // Whether a node begins here, without a slash. Behind a file stand further parts of its name at most:
    // anything else is the data of an option, though it may look like a node.
    bool follows_at_once() const
    {
        if (result.instances.back().back().kind != piece::file)
            return keyword_begins(at) || end_of_raw_node();
        return keyword_begins(at) && ovra::alike(text.substr(at, end_of_name(at) - at), "File");
    }

    // To where the next piece begins.
    void go_on()
    {
        if (at == text.size() || text[at] == '\\')
            return;
        if (text[at] == '/') {
            const size_t slashes = at;
            skip_slashes();
            result.open_end = at == text.size();
            parted = true;
            result.has_gap = result.has_gap || at - slashes > 1;
            if (result.open_end && at - slashes > 1)
                refuse("it is empty");
        } else if (text[at] == ',' && at + 1 < text.size()) {
            ++at;
            skip_slashes();
            result.instances.emplace_back();
        } else if (follows_at_once()) {
            result.joined = true;
        } else {
            refuse("what follows a node belongs to none");
        }
    }

    const std::string &text;
    size_t at = 0;
    bool foreign = false;
    bool parted = false; // by a slash
    cut_text result;
};

// All of it, or its beginning.
std::string shown(const std::string &text)
{
    constexpr size_t most = 60;
    return in_quotes(text.size() > most ? text.substr(0, most) + "..." : text);
}

// Copied from JSON or a program each backslash is two.
void refuse_doubled(const std::string &name)
{
    std::string single;
    for (size_t at = 0; at < name.size(); at += 1 + (name[at] == '\\')) {
        if (name[at] == '\\' && name.compare(at, 2, "\\\\") != 0)
            return;
        single += name[at];
    }
    if (single != name)
        refuse("every backslash of " + in_quotes(name) + " is doubled, as programs write them: the file is " +
               in_quotes(single) + "; --file takes any name");
}

} // namespace

void require_no_data(const std::string &name)
{
    std::string lower(name.size(), ' ');
    std::transform(name.begin(), name.end(), lower.begin(), ovra::ascii_lower);
    constexpr std::string_view suffix = ".efi";
    for (size_t at = lower.find(suffix); at != std::string::npos; at = lower.find(suffix, at + 1)) {
        const std::string rest = name.substr(at + suffix.size());
        if (rest.empty() || rest[0] == '\\' || rest[0] == '/')
            continue;
        refuse("behind the file " + shown(name.substr(0, at + suffix.size())) + " stands " + shown(rest) +
               ", as tools print the data of an option behind its path; --optdata-text and --optdata-file "
               "give data, and --file a file of any name");
    }
}

cut_text cut(const std::string &text)
{
    return cutter(text).run();
}

void split_bare_files(const std::string &text, bool by_firmware, cut_text *cut)
{
    for (auto &instance : cut->instances) {
        std::vector<piece> pieces;
        for (const piece &each : instance) {
            const auto [begin, end] = each.place;
            const bool is_bare = each.kind == piece::file && text[begin] == '\\';
            if (is_bare)
                require_no_data(each.text);
            if (each.kind == piece::file)
                refuse_doubled(each.text);
            const bool as_printed = is_bare && (begin == 0 || text[begin - 1] == '/') && !cut->from_root;
            if (!as_printed || each.text.find('/') == std::string::npos) {
                pieces.push_back(each);
                continue;
            }
            if (!by_firmware)
                refuse(
                    "in " + in_quotes(each.text) +
                    " a slash may stand for a backslash, or between two nodes; --file takes a name with slashes");
            for (const auto [from, to] : nodes_of(each.text))
                pieces.push_back(
                    {piece::file, {begin + from, begin + to}, each.text.substr(from, to - from)});
        }
        instance = std::move(pieces);
    }
}

} // namespace tool
