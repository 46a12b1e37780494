// SPDX-License-Identifier: MIT
#include "tests/support/machine_text.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tools/layout/layout.h"

namespace ovra::test {

namespace fs = std::filesystem;

namespace {

constexpr const char *section_mark = "== ";

machine_text read_machine(const fs::path &file)
{
    machine_text machine = {file.stem(), file, {}, {}};
    std::ifstream stream(file);
    std::string *to = &machine.entries;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(section_mark))
            to = &machine.expected[line.substr(3)];
        else
            *to += line + '\n';
    }
    return machine;
}

std::vector<std::string> split(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

} // namespace

const std::vector<machine_text> &machine_texts()
{
    static const std::vector<machine_text> all = [] {
        std::vector<machine_text> found;
        for (const auto &entry : fs::directory_iterator(OVRA_MACHINE_TEXTS)) {
            if (entry.path().extension() == ".machine")
                found.push_back(read_machine(entry.path()));
        }
        if (found.empty())
            throw std::runtime_error("no machines in " OVRA_MACHINE_TEXTS);
        std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
        return found;
    }();
    return all;
}

void lay_out(const machine_text &machine, const fs::path &root)
{
    layout::lay_out(machine.entries, root);
}

std::vector<std::vector<std::string>> words_of_lines(const std::string &section)
{
    std::vector<std::vector<std::string>> lines;
    std::istringstream stream(section);
    for (std::string line; std::getline(stream, line);) {
        if (auto words = split(line); !words.empty())
            lines.push_back(std::move(words));
    }
    return lines;
}

} // namespace ovra::test
