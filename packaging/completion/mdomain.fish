# Completion of mdomain for fish; the program itself says what may stand next, files where it says nothing.
function __mdomain_candidates
    set -l words (commandline -opc)
    set -l found (mdomain complete -- $words[2..-1] (commandline -ct) 2>/dev/null)
    if test -n "$found"
        printf '%s\n' $found
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c mdomain -f -a '(__mdomain_candidates)'
