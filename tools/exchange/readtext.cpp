// SPDX-License-Identifier: MIT
#include <algorithm>
#include <sstream>

#include "src/base/text.h"
#include "src/base/whole_number.h"
#include "tools/exchange/boottext.h"
#include "tools/exchange/quoted.h"
#include "tools/exchange/settings.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

constexpr const char *end_mark = "end";
constexpr const char *unreadable_mark = "unreadable";
constexpr const char *none_mark = "none";

struct section {
    std::string name; // empty: what stands in front of the options
    size_t line = 1;
    text_lines lines;
};

void require_text(const std::string &line, size_t number)
{
    for (std::string_view rest = line; !rest.empty();) {
        const auto next = ovra::first_of_utf8(rest);
        if (!next.valid)
            throw line_error(number, "it is no UTF-8");
        if (next.character < 0x20 && next.character != '\t')
            throw line_error(number, "it has a control character");
        rest.remove_prefix(next.size);
    }
}

std::string trimmed(const std::string &text)
{
    const char *blanks = " \t";
    const size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// Cuts a text into sections, without looking at what their lines say.
class section_cutter {
public:
    std::vector<section> cut(const std::string &text)
    {
        for (size_t begin = 0; begin < text.size();) {
            const size_t end = std::min(text.find('\n', begin), text.size());
            std::string line = text.substr(begin, end - begin);
            if (line.ends_with('\r'))
                line.pop_back();
            ++number;
            require_text(line, number);
            take(line);
            begin = end + 1;
        }
        if (!ended)
            throw line_error(number, "the text stops here; its last line is end");
        return std::move(sections);
    }

private:
    void take(const std::string &line)
    {
        const std::string words = trimmed(line);
        if (words.empty() || words[0] == '#') {
            goes_on = false;
            return;
        }
        if (ended)
            throw line_error(number, "it stands behind the end");
        if (words[0] != line[0]) {
            if (!goes_on)
                throw line_error(number, "it begins with blanks, and there is no line that it goes on with");
            sections.back().lines.back().value += ' ' + words;
            return;
        }
        goes_on = false;
        if (words == end_mark)
            ended = true;
        else if (words[0] == '[')
            begin_section(words);
        else
            add_line(words);
    }

    void begin_section(const std::string &words)
    {
        const std::string name = words.ends_with(']') ? words.substr(1, words.size() - 2) : "";
        if (!family_of(name))
            throw line_error(number, "wanted is the name of an option in brackets, such as [Boot001F]");
        if (std::any_of(sections.begin(), sections.end(),
                        [&name](const section &earlier) { return earlier.name == name; }))
            throw line_error(number, "there is a " + name + " above");
        sections.push_back({name, number, {}});
    }

    void add_line(const std::string &words)
    {
        const size_t equals = words.find('=');
        if (equals == std::string::npos)
            throw line_error(number, "wanted is a name, an equals sign and a value");
        const std::string key = trimmed(words.substr(0, equals));
        section &to = sections.back();
        const bool is_known =
            to.name.empty() ? key == "format" || key == "machine" || key == "partitions" || is_setting(key)
                            : is_key_of_option(key);
        if (!is_known)
            throw line_error(number, in_quotes(key) + (to.name.empty() ? " is no line in front of the options"
                                                                       : " is no line of an option"));
        const bool may_repeat = key == "file" || key == "instance" || key == "further-path";
        for (size_t at = 0; !may_repeat && at < to.lines.size(); ++at) {
            const text_line &line = to.lines[at];
            if (line.key == key)
                throw line_error(number, key + format(" stands in line %zu already", line.number));
        }
        to.lines.push_back({key, trimmed(words.substr(equals + 1)), number});
        goes_on = true;
    }

    std::vector<section> sections = {section()};
    size_t number = 0;
    bool ended = false;
    bool goes_on = false; // with a line that begins with blanks
};

std::set<uint32_t> sums_in(const text_line &line)
{
    std::set<uint32_t> sums;
    if (line.value == none_mark)
        return sums;
    std::istringstream stream(line.value);
    for (std::string word; stream >> word;) {
        const auto sum = ovra::whole_number<uint32_t>(word, 16);
        if (!sum)
            throw line_error(line.number, line.key + ": none or sums of eight digits are needed");
        sums.insert(*sum);
    }
    return sums;
}

void read_setting(const text_line &line, boot_document *document)
{
    if (line.value == unreadable_mark) {
        document->left.insert(line.key);
    } else if (line.value == none_mark) {
        document->absent.insert(line.key);
    } else if (const auto value = setting_of(line.key, line.value)) {
        document->values[line.key] = *value;
    } else {
        throw line_error(line.number, line.key + (line.key == "Timeout"
                                                      ? ": none or a number of seconds up to 65535 is needed"
                                                      : ": none or names of its options are needed"));
    }
}

void read_head(const section &head, boot_document *document)
{
    bool has_format = false;
    for (const text_line &line : head.lines) {
        if (line.key == "format") {
            if (line.value != "1")
                throw line_error(line.number, "this is not format 1, which is all that this ovra reads");
            has_format = true;
        } else if (line.key == "partitions") {
            document->marks.partitions = sums_in(line);
        } else if (line.key == "machine") {
            const auto sums = sums_in(line);
            if (!sums.empty())
                document->marks.product = *sums.begin();
        } else {
            read_setting(line, document);
        }
    }
    if (!has_format)
        throw line_error(head.line, "there is no line format = 1: this is no text of boot variables");
}

void read_option(const section &option, device_paths &paths, boot_document *document)
{
    const auto mark = std::find_if(option.lines.begin(), option.lines.end(),
                                   [](const text_line &line) { return line.key == unreadable_mark; });
    if (mark == option.lines.end())
        document->values[option.name] = option_of(option.lines, option.line, paths);
    else if (option.lines.size() == 1)
        document->left.insert(option.name);
    else
        throw line_error(mark->number, "an option that is unreadable has no other lines");
}

} // namespace

boot_document read_boot_text(const std::string &text, const std::string &source, device_paths &paths)
{
    try {
        boot_document document;
        const std::vector<section> sections = section_cutter().cut(text);
        read_head(sections.front(), &document);
        for (const section &each : sections) {
            if (!each.name.empty())
                read_option(each, paths, &document);
        }
        return document;
    } catch (const line_error &error) {
        const std::string what = error.what();
        const size_t end = std::min(what.find('\n'), what.size());
        throw failure(source + format(", line %zu: ", error.line) + what.substr(0, end),
                      what.substr(std::min(end + 1, what.size())));
    }
}

variable_values wanted_values(const boot_document &document, const boot_store &store)
{
    variable_values wanted = document.values;
    for (const auto &[name, value] : store.values) {
        const bool stays =
            document.left.contains(name) || (is_setting(name) && !document.absent.contains(name));
        if (stays)
            wanted.emplace(name, value); // where the text says nothing else
    }
    return wanted;
}

std::vector<std::string> unwanted_damage(const boot_document &document, const boot_store &store)
{
    std::vector<std::string> unwanted;
    for (const auto &[name, why] : store.unread) {
        const bool is_spoken_of = document.values.contains(name) || document.left.contains(name);
        if (!is_spoken_of && (!is_setting(name) || document.absent.contains(name)))
            unwanted.push_back(name);
    }
    return unwanted;
}

} // namespace tool
