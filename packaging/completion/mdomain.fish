# Completion of mdomain for fish; the program itself says what may stand next.
complete -c mdomain -f -a '(set -l words (commandline -opc); mdomain complete -- $words[2..-1] (commandline -ct) 2>/dev/null)'
