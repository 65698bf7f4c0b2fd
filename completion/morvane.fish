# Completion of morvane for fish. The program itself tells what can come next.

function __morvane_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l answer ($words[1] complete fish $words[2..-1] "$current" 2>/dev/null)
    if test "$answer[1]" = files
        __fish_complete_path "$current"
    end
    printf '%s\n' $answer[2..-1]
end

complete -c morvane -f -a '(__morvane_complete)'
