# What bash completes after "boardreport". Words and options are those that its --help tells.

_boardreport() {
    local IFS=$' \t\n' program=$1 current=$2 previous=$3 argument word='' words help
    words=$("$program" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]\{1,\}\).*/\1/p')
    for argument in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ -n $argument && $'\n'$words$'\n' == *$'\n'"$argument"$'\n'* ]]; then
            word=$argument words=''
            break
        fi
    done
    help=$("$program" ${word:+"$word"} --help 2>/dev/null)

    # "  -o FILE=report.txt   What it is", "  STATE TEXT:{on,off,show} REQUIRED"
    local wanted='' choices=''
    if [[ $previous == -* ]]; then
        wanted=$(sed -n "s/^  $previous \([A-Z]*\).*/\1/p" <<<"$help")
        [[ $wanted != N ]] || choices='0 1 2 3 4 5 6 7'
    fi
    if [[ -z $wanted && $current == -* ]]; then
        choices=$(sed -n 's/^  \(-[^ ]*\).*/\1/p' <<<"$help" | tr , '\n')
    elif [[ -z $wanted ]]; then
        choices=$words$'\n'$(sed -n 's/^  [A-Z]* TEXT:{\(.*\)}.*/\1/p' <<<"$help" | tr , '\n')
        wanted=$(sed -n 's/^  \(REPORT\|FILE\) \(FILE\).*/\2/p' <<<"$help")
    fi

    COMPREPLY=()
    if [[ $wanted == FILE ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        compopt -o filenames 2>/dev/null
    else
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
    fi
}
complete -F _boardreport boardreport
