// SPDX-License-Identifier: MIT
#include "tools/command/commandline.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "tools/command/verb.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

// How many letters must be changed, left out, put in or swapped with the next to make one word another.
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<size_t> before_last;
    std::vector<size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (size_t i = 1; i <= a.size(); ++i) {
        std::vector<size_t> row(b.size() + 1, i);
        for (size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
        before_last = std::exchange(last, std::move(row));
    }
    return last.back();
}

std::string full_name(const CLI::App &verb)
{
    if (!verb.get_parent())
        return {};
    const std::string above = full_name(*verb.get_parent());
    return above + (above.empty() ? "" : " ") + verb.get_name();
}

// The verbs that may stand at a level. CLI11 knows of those of the first level only what the words name.
std::vector<std::string> verbs_at(const CLI::App &level)
{
    std::vector<std::string> names;
    if (!level.get_parent()) {
        for (const known_verb &verb : known_verbs())
            names.emplace_back(verb.name);
        return names;
    }
    for (const CLI::App *verb : level.get_subcommands([](const CLI::App *) { return true; }))
        names.push_back(verb->get_name());
    return names;
}

[[noreturn]] void refuse_verb(const CLI::App &level, const std::vector<std::string> &verbs,
                              const std::string &word)
{
    constexpr size_t farthest = 2;
    const std::string prefix = level.get_parent() ? full_name(level) + ' ' : "";
    std::string nearest;
    size_t least = std::min(farthest + 1, word.size());
    for (const std::string &verb : verbs) {
        const size_t changes = distance(word, verb);
        if (changes < least) {
            least = changes;
            nearest = verb;
        }
    }
    throw usage_error("unknown verb '" + prefix + word + "'" +
                      (nearest.empty() ? "" : "; did you mean '" + prefix + nearest + "'?"));
}

// The option that a word names, of a verb or of those above it.
const CLI::Option *option_of(const CLI::App *level, const std::string &word)
{
    const std::string name = word.substr(0, word.find('='));
    if (name.size() < 2 || name[0] != '-' || name == "--")
        return nullptr;
    for (; level; level = level->get_parent()) {
        if (const CLI::Option *option = level->get_option_no_throw(name))
            return option;
    }
    return nullptr;
}

bool takes_value(const CLI::Option &option)
{
    return option.get_items_expected_max() != 0;
}

bool is_negative_number(const std::string &word)
{
    return word.size() > 1 && word[0] == '-' && ovra::is_ascii_digit(word[1]);
}

// Walks over the words as CLI11 does.
class word_reader {
public:
    explicit word_reader(const CLI::App &app) : level(&app) {}

    std::vector<std::string> read(const std::vector<std::string> &words)
    {
        for (size_t at = 0; at < words.size(); ++at) {
            const std::string &word = words[at];
            if (word == "--") {
                result.insert(result.end(), words.begin() + static_cast<ptrdiff_t>(at), words.end());
                break;
            }
            if (word.size() < 2 || word[0] != '-' || is_negative_number(word)) {
                read_plain(word);
                continue;
            }
            const CLI::Option *option = option_of(level, word);
            if (option && takes_value(*option) && word.find('=') == std::string::npos) {
                result.push_back(word);
                if (at + 1 == words.size())
                    break; // CLI11 says that a value is missing
                ++at;
                require_value(word, words[at]);
                result.push_back(words[at]);
                continue;
            }
            read_option(option, word);
        }
        return result;
    }

private:
    void read_plain(const std::string &word)
    {
        const std::vector<std::string> verbs = verbs_at(*level);
        if (!verbs.empty() && !misread) {
            if (std::find(verbs.begin(), verbs.end(), word) == verbs.end())
                refuse_verb(*level, verbs, word);
            level = level->get_subcommand(word);
        }
        result.push_back(word);
    }

    void require_value(const std::string &word, const std::string &value) const
    {
        if (value == "--" || option_of(level, value))
            throw usage_error(word + ": a value is needed; " + in_quotes(word + '=' + value) +
                              " gives it this one");
    }

    void read_option(const CLI::Option *option, const std::string &word)
    {
        const size_t equals = word.find('=');
        if (!option) {
            misread = true; // CLI11 says so; what follows may have been meant as its value
        } else if (equals != std::string::npos && !takes_value(*option)) {
            throw usage_error(word.substr(0, equals) + " takes no value");
        } else if (equals == word.size() - 1) {
            result.push_back(word.substr(0, equals));
            result.emplace_back();
            return;
        }
        result.push_back(word);
    }

    const CLI::App *level;
    bool misread = false;
    std::vector<std::string> result;
};

constexpr size_t help_width = 80;

// Lines of at most `width` characters.
std::string wrapped(const std::string &text, size_t width)
{
    std::string all;
    size_t column = 0;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(' ', begin), text.size());
        const size_t size = end - begin;
        if (column != 0 && column + 1 + size > width) {
            all += '\n';
            column = 0;
        } else if (column != 0) {
            all += ' ';
            ++column;
        }
        all += text.substr(begin, size);
        column += size;
        begin = end + 1;
    }
    return all;
}

// A name, and what is said of it, which begins in a column of its own. CLI11 has it with a stream for each,
// which is a fifth of the work for a page of help.
std::string in_columns(std::string name, const std::string &text, size_t column)
{
    name += name.size() >= column ? "\n" + std::string(column, ' ') : std::string(column - name.size(), ' ');
    for (const char letter : text) {
        name += letter;
        if (letter == '\n')
            name.append(column, ' ');
    }
    return name + '\n';
}

class format_of_help : public CLI::Formatter {
public:
    std::string make_option_desc(const CLI::Option *option) const override
    {
        return wrapped(CLI::Formatter::make_option_desc(option), help_width - get_column_width());
    }

    // What an option excludes is said when both are given: here the list would be longer than a line.
    std::string make_option_opts(const CLI::Option *option) const override
    {
        const std::string text = CLI::Formatter::make_option_opts(option);
        return text.substr(0, text.find(" Excludes:"));
    }

    std::string make_subcommand(const CLI::App *verb) const override
    {
        return line_of_verb(verb->get_name(), verb->get_description());
    }

    // Of the first level CLI11 knows only the verbs that the command line names.
    std::string make_usage(const CLI::App *app, std::string name) const override
    {
        if (app->get_parent())
            return CLI::Formatter::make_usage(app, std::move(name));
        return "Usage: " + name + " [OPTIONS] SUBCOMMAND\n";
    }

    std::string make_subcommands(const CLI::App *app, CLI::AppFormatMode mode) const override
    {
        if (app->get_parent())
            return CLI::Formatter::make_subcommands(app, mode);
        std::string text = "\nSubcommands:\n";
        for (const known_verb &verb : known_verbs())
            text += line_of_verb(verb.name, verb.make()->summary());
        return text;
    }

    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override
    {
        std::string text = make_description(app) + make_usage(app, std::move(name)) + make_positionals(app) +
                           make_groups(app, mode) + make_subcommands(app, mode);
        const CLI::App *all = app;
        while (all->get_parent())
            all = all->get_parent();
        if (all != app)
            text +=
                make_group("Options of every verb", false, all->get_options([all](const CLI::Option *option) {
                    return option != all->get_help_ptr() && option != all->get_version_ptr();
                }));
        return text + '\n' + make_footer(app) + '\n';
    }

private:
    std::string line_of_verb(const std::string &name, const std::string &summary) const
    {
        return in_columns("  " + name, wrapped(summary, help_width - get_column_width()), get_column_width());
    }
};

} // namespace

std::vector<std::string> words_to_parse(const CLI::App &app, int argc, const char *const *argv)
{
    return word_reader(app).read({argv + std::min(argc, 1), argv + argc});
}

std::shared_ptr<CLI::FormatterBase> help_format()
{
    return std::make_shared<format_of_help>();
}

} // namespace tool
