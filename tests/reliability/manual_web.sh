#!/bin/bash
# From an empty host to a domain that is administered in a browser: on a fresh Debian 12 that has booted its
# systemd, with the people of ./quickstart, every command of docs/manual/web.md as it stands there; then Grace
# signs in by https, settles the collision of Erik and Erika, adds a disclaimer, takes it back, and mail
# changes each time; then the package goes. As root, with what manual_postfix.sh wants. Says what was wrong,
# and ends with 1 when something was.
#
# manual_web.sh WORK_DIR : as packages.sh, and on what that has left there.
# MIRROR: where from (http://deb.debian.org/debian). SHOW=1 prints what the commands say.
set -eu
trap 'echo "FAILED: line $LINENO"' ERR
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  MDOMAIN_PRIVATE=1 exec unshare --mount bash "$0" "$@"
fi
[ $# -eq 1 ] || { echo "usage: manual_web.sh WORK_DIR" >&2 && exit 2; }
mkdir -p "$1"
work=$(realpath "$1")
. "$(dirname "$0")/debian.bash"

prepare
fresh
install "what a host has" systemd systemd-sysv dbus
install "the client" python3
people
echo '127.0.0.1 mail.example.com' >>"$work/system/etc/hosts"
cp "$source_dir"/tests/reliability/{manual_web,web_person}.py "$work/system/"

page "$source_dir/docs/manual/web.md" "mdomain history list" 'python3 /manual_web.py | sed "s/^/PAGES /"'
cat >>"$work/system/page" <<'END'
left() { (cd / && ls -d run/mdomain-web.sock var/lib/mdomain-web/tokens.db etc/pam.d/mdomain-web usr/sbin/mdomain-web
  systemctl is-active mdomain-web.service mdomain-web.socket | grep -x active) 2>/dev/null | sed "s/^/LEFT $1 /"; }
left installed
apt-get remove mailserver-domain-web && left removed
apt-get purge mailserver-domain-web && left purged
journalctl --sync
journalctl -o cat -u mdomain-web -u mdomain-disclaimers | sed 's/^/LOG /'
END
booted page
[ -z "${SHOW:-}" ] || echo "$said"
grep -B 5 '^FAILED:' <<<"$said" && fail "a command of the page"
same "what Grace does" "$(sed -n 's/^PAGES //p' <<<"$said")" "before: erik reads 'hello' - refused 550
wrong password: 403 True
her domains: True False 404
the collision: True
the plan: True
after: erik reads 'hello' - erika@bücher.example reads 'hello'
with the disclaimer: erika reads 'hello No offer is final.'
taken back: erika reads 'hello'
the administrator's domains: True True"
same "who did it" "$(sed -n '/^\$ mdomain history/,/^LEFT/p' <<<"$said" | grep -oE ' grace +(undo|set [a-z0-9]+)')" "$(printf ' grace  %s\n' undo 'set disclaimers' 'set 1008')"
same "what the package leaves" "$(sed -n 's/^LEFT //p' <<<"$said")" "installed etc/pam.d/mdomain-web
installed run/mdomain-web.sock
installed usr/sbin/mdomain-web
installed var/lib/mdomain-web/tokens.db
installed active
installed active
removed etc/pam.d/mdomain-web
removed var/lib/mdomain-web/tokens.db"
same "complaints of the services" "$(sed -n 's/^LOG //p' <<<"$said" | grep -E 'ERROR|rror:|Failed|denied')" ""
cd / && unmount
[ "$failures" -eq 0 ] || { echo "$said" && echo "$failures checks failed" && exit 1; }
echo "manual OK: $(wc -l <"$work/commands") commands to a domain that is administered in a browser"
