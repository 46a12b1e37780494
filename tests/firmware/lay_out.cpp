// SPDX-License-Identifier: MIT
/* Makes the files and images of a machine as text in a folder.
 *     lay_out FILE FOLDER */
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include "tests/support/machine_text.h"

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    try {
        ovra::test::machine_text machine;
        std::ifstream file(argv[1]);
        for (std::string line; std::getline(file, line) && !line.starts_with("== ");)
            machine.entries += line + '\n';
        std::filesystem::create_directories(argv[2]);
        ovra::test::lay_out(machine, argv[2]);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
    return 0;
}
