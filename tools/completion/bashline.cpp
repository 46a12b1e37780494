// SPDX-License-Identifier: MIT
#include "tools/completion/bashline.h"

#include "src/base/ascii.h"
#include "src/base/text.h"
#include "tools/text/text.h"

namespace tool {

namespace {

class reader {
public:
    explicit reader(std::string_view of_bash) : breaks(of_bash) {}

    bash_line read(std::string_view line)
    {
        for (size_t at = 0; at < line.size(); ++at) {
            if (quote == 0)
                at += read_plain(line.substr(at));
            else
                at += read_quoted(line.substr(at));
        }
        result.quote = quote;
        result.kept = kept;
        result.words.push_back(word);
        return result;
    }

private:
    // Both return how many characters they took beside the first.
    size_t read_plain(std::string_view rest)
    {
        const char c = rest[0];
        if (c == ' ' || c == '\t' || c == '\n') {
            end_word();
        } else if (c == '\'' || c == '"') {
            open(c);
        } else if (c == '$' && rest.size() > 1 && rest[1] == '\'') {
            open('\'');
            has_escapes = true;
            return 1;
        } else if (c == '\\' && rest.size() > 1) {
            add(rest[1]);
            return 1;
        } else if (c != '\\') {
            // Bash wants to see the @ of a host's name, and takes other breaks for ends of words.
            const bool ends = breaks.find(c) != std::string_view::npos;
            if (ends && c == '@')
                kept = word;
            add(c);
            if (ends && c != '@')
                kept = word;
        }
        return 0;
    }

    size_t read_quoted(std::string_view rest)
    {
        const char c = rest[0];
        if (c == quote) {
            quote = 0;
            has_escapes = false;
            kept = kept_before;
            return 0;
        }
        if (c == '\\' && has_escapes && rest.size() > 3)
            return read_octal(rest);
        const bool escapes = quote == '"' && c == '\\' && rest.size() > 1 &&
                             std::string_view("$`\"\\").find(rest[1]) != std::string_view::npos;
        add(escapes ? rest[1] : c);
        return escapes ? 1 : 0;
    }

    // Of what $'...' has only what bash_text writes is read: three octal digits.
    size_t read_octal(std::string_view rest)
    {
        unsigned value = 0;
        for (const char digit : rest.substr(1, 3)) {
            if (digit < '0' || digit > '7') {
                add(rest[0]);
                return 0;
            }
            value = value * 8 + static_cast<unsigned>(digit - '0');
        }
        add(static_cast<char>(value));
        return 3;
    }

    void open(char c)
    {
        quote = c;
        in_word = true;
        kept_before = kept;
        kept = word;
    }

    void add(char c)
    {
        in_word = true;
        word += c;
    }

    void end_word()
    {
        if (in_word)
            result.words.push_back(word);
        word.clear();
        kept.clear();
        in_word = false;
    }

    std::string_view breaks;
    bash_line result;
    std::string word;
    std::string kept;
    std::string kept_before; // while a quote is open
    bool in_word = false;
    char quote = 0;
    bool has_escapes = false; // it is one of $'...'
};

// The bytes of a character that does not show.
std::string octal(std::string_view bytes)
{
    std::string digits = "$'";
    for (const char byte : bytes)
        digits += format("\\%03o", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return digits + '\'';
}

std::string quoted(std::string_view character, char quote)
{
    const char c = character[0];
    const std::string text(character);
    const bool shows = printable(character) == text;
    if (!shows)
        return quote == 0 ? octal(character) : quote + octal(character) + quote;
    if (quote == '\'')
        return c == '\'' ? "'\\''" : text;
    if (quote == '"' && c == '!')
        return "\"\\!\""; // the history of an interactive bash reaches into these quotes
    const std::string_view special = quote == '"' ? "$`\"\\" : " !\"#$&'()*;<>?[\\]^`{|}~";
    return (special.find(c) == std::string_view::npos ? "" : "\\") + text;
}

} // namespace

bash_line read_bash_line(std::string_view line, std::string_view breaks)
{
    return reader(breaks).read(line);
}

std::optional<std::string> bash_text(const std::string &word, const bash_line &line)
{
    if (!word.starts_with(line.kept))
        return std::nullopt;
    std::string text;
    std::string_view rest = std::string_view(word).substr(line.kept.size());
    while (!rest.empty()) {
        const size_t size = ovra::first_of_utf8(rest).size;
        text += quoted(rest.substr(0, size), line.quote);
        rest.remove_prefix(size);
    }
    if (line.quote == 0)
        return text;
    // Bash takes a quote at the beginning for the one that is open, and drops one of the two: all that
    // follows would stand outside of quotes.
    if (text.starts_with(line.quote))
        return std::nullopt;
    return text + line.quote; // bash closes the quote too, but not behind another one
}

} // namespace tool
