# SPDX-License-Identifier: MIT
# Completion for fish, which quotes what it adds. The command says what may stand at the cursor; a word with a line end
# or a tabulator in it cannot be told to fish, and is left out.
function __ovra_complete
    set -l words (commandline -opc)
    set -l begun (string match -r -- '^--[^=]*=|^-' (commandline -ct))
    set -l fields (command ovra __complete words $words[2..-1] "$begun" 2>/dev/null | string split0)
    for at in (seq 2 2 (count $fields))
        if not string match -q -r '[\t\n]' -- $fields[$at]
            printf '%s\t%s\n' $fields[$at] $fields[(math $at + 1)]
        end
    end
    switch "$fields[1]"
        case files
            __fish_complete_path (commandline -ct)
        case folders
            __fish_complete_directories (commandline -ct)
    end
end
complete -c ovra -f -a '(__ovra_complete)'
