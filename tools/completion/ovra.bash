# SPDX-License-Identifier: MIT
# Completion for bash. The command says what may stand at the cursor, quoted for bash: nothing of it is evaluated here.
_ovra()
{
    local more=words
    COMPREPLY=()
    {
        IFS= read -r -d '' more
        mapfile -d '' COMPREPLY
    } < <(command ovra __complete bash "$COMP_WORDBREAKS" "${COMP_LINE:0:COMP_POINT}" 2>/dev/null)
    case $more in
        files) compopt -o default ;;
        folders) compopt -o dirnames ;;
    esac
}
complete -F _ovra ovra
