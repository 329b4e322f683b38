#!/bin/bash
# Every command that README.md and the pages below docs/ show is run as it stands there, on a machine
# with twelve people, page by page; lib/commands.py names the tests that run the others. Messages that
# docs/operations.md explains are those of the sources.
# ctest-label: postfix
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/postfix.bash"
. "$here/lib/host.bash"

# Stand-ins: the administrator agrees; units that are named exist; nothing is built anew.
mdomain() { command mdomain -y "$@"; }
units() {
  local word
  for word in "$@"; do
    case $word in
      -*|is-failed|start|stop|restart|enable|daemon-reload|list-timers|mimedefang*) ;;
      *) ls "$source_dir/packaging/systemd/${word%.*}".* >/dev/null || return ;;
    esac
  done
}
systemctl() { units "$@"; }
journalctl() { units "${@:2}"; }
systemd-tmpfiles() { [ "$*" = --create ]; }
cmake() { :; }
export source_dir build
export -f mdomain units systemctl journalctl systemd-tmpfiles cmake

use_root people
mkdir -p "$MDOMAIN_ROOT/etc"
grep -E '^[a-z]+(:[^:]*){6}$' "$source_dir/quickstart" >"$MDOMAIN_ROOT/etc/passwd"
grep -E '^[a-z]+(:[^:]*){3}$' "$source_dir/quickstart" >"$MDOMAIN_ROOT/etc/group"
people=$MDOMAIN_ROOT
for page in $(cd "$source_dir" && echo README.md docs/*.md docs/manual/*.md); do
  export MDOMAIN_ROOT=$people
  (
    rm -rf "$scratch/work" && mkdir "$scratch/work" && cd "$scratch/work" || exit 1
    python3 "$source_dir/tests/integration/lib/commands.py" "$source_dir" "$page" "$scratch" 2>"$scratch/said" || fail "$(cat "$scratch/said")"
    [ -n "$(ls blocks)" ] || exit
    ln -s "$source_dir"/{docs,packaging} .
    host
    mkdir -p /etc/systemd/system /etc/tmpfiles.d /etc/mail /etc/mailserver-domain
    touch /etc/mailserver-domain/ldap.secret
    case $page in
      README.md) ;;
      *getting-started*) userdel Postara-Server && rm -rf /var/packages ;;
      *) { mdomain domain create example.com && mdomain domain create bücher.example && mdomain refresh && mdomain user set 1 anna --add-alias info; } >/dev/null ;;
    esac
    for block in blocks/*; do
      said=$(bash -e "$block" 2>&1 </dev/null) || fail "$page: $(cat "$block")"$'\n'"$said"
    done
    leave_host
  )
done

new_root quickstart
said=$("$source_dir/quickstart" 2>&1) || fail "quickstart: $said"

# What a table explains is a text of the sources, whose pieces "..." parts.
find "$source_dir"/{lib-domain,platform,tools} -name '*.cpp' -exec cat {} + | tr '\n' ' ' | sed 's/" *"//g' >"$scratch/texts"
sed -n 's/^| "\(.*\)" | .* | .* |$/\1/p' "$source_dir/docs/operations.md" | sed 's/ *\.\.\. */\n/g' | grep -E '.{6}' >"$scratch/pieces"
[ "$(wc -l <"$scratch/pieces")" -gt 20 ] || fail "hardly any message is explained"
while read -r piece; do
  grep -qF -- "$piece" "$scratch/texts" || fail "no source says: $piece"
done <"$scratch/pieces"
