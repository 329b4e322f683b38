# Completion of mdomain for bash; the program itself says what may stand next, files where it says nothing.
_mdomain() {
  local IFS=$'\n'
  mapfile -t COMPREPLY < <(compgen -W "$(mdomain complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _mdomain mdomain
