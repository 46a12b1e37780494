/* SPDX-License-Identifier: MIT */
/* Tables of cases below tests/data: one row a line, columns between tabs. */
#ifndef TESTS_ENCODE_TABLE_FILE_H
#define TESTS_ENCODE_TABLE_FILE_H

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ovra::test {

using columns = std::vector<std::string>;

/* The rows of a file, each with at least `width` columns (empty ones added). Lines with # in front are left
 * out. Throws when there is no such file or no row in it: a table that is not read must not pass. */
inline std::vector<columns> read_table(const std::string &name, size_t width)
{
    std::ifstream file(TEST_DATA "/" + name);
    std::vector<columns> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#'))
            continue;
        columns row;
        for (size_t from = 0, tab = 0; tab != std::string::npos; from = tab + 1) {
            tab = line.find('\t', from);
            row.push_back(line.substr(from, tab - from));
        }
        row.resize(std::max(row.size(), width));
        rows.push_back(row);
    }
    if (rows.empty())
        throw std::runtime_error("no rows: " + name);
    return rows;
}

/* \n, \t, \\ and \xNN to what they stand for. */
inline std::string unescape(const std::string &text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        switch (text.at(++i)) {
        case 'n':
            result += '\n';
            break;
        case 't':
            result += '\t';
            break;
        case '\\':
            result += '\\';
            break;
        case 'x':
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
            break;
        default:
            throw std::runtime_error("unknown escape: " + text);
        }
    }
    return result;
}

} // namespace ovra::test

#endif
