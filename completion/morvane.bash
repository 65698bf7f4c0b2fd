# Completion of morvane for bash. The program itself tells what can come next.

_morvane() {
    local lines word
    mapfile -t lines < <("$1" complete bash "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
    COMPREPLY=("${lines[@]:1}")
    if [[ ${lines[0]-} == files ]]; then
        # With nothing else to offer, bash offers files.
        compopt -o default
    fi
    for word in "${COMPREPLY[@]}"; do
        if [[ $word == *= ]]; then
            compopt -o nospace
        fi
    done
}

complete -F _morvane morvane
