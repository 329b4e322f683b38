#!/bin/bash
# The manual's page about several machines, followed line by line on two roots and one server: its
# logins, settings, commands, unit and timer. A command that it has and that is not run here fails.
# ctest-label: redis
# ctest-timeout: 300
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
sed -n '/^```/,/^```/p' "$source_dir/docs/manual/more-than-one-machine.md" >"$scratch/blocks"

# does LINE [OPTION...] : what a line of the manual says, for a machine
does() {
  local words
  grep -qxF -- "$1" "$scratch/blocks" || fail "the manual has no line '$1'"
  echo "$1" >>"$scratch/done"
  read -ra words <<<"${1#*mdomain }"
  good "${words[@]}" "${@:2}"
}
# machine NAME LOGIN : its settings are those of the manual, with this server's port and password file
machine() {
  new_root "$1"
  mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
  sed -n '/^\[keystore\]/,/^```/p' "$scratch/blocks" |
    sed -e '/^```/d' -e 's/^host = .*/port = 16390/' -e "s/^user = .*/user = $2/" \
      -e "s|^password_file = .*|password_file = $scratch/$2|" >"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
  printf 'node = %s\n' "$1" >>"$MDOMAIN_ROOT/etc/mailserver-domain/host.ini"
}

server 16390 "appendonly yes"
for login in manager member; do
  password_file $login ${login}pw
  line=$(grep "^user $login on >PASSWORD " "$scratch/blocks") || fail "the manual has no login $login"
  line=${line/>PASSWORD/>${login}pw}
  # shellcheck disable=SC2086
  same "login $login" "$(redis 16390 acl setuser ${line#user })" OK
done

machine first manager
does "mdomain node manage" --yes
good domain create example.com
good refresh
machine third member
does "mdomain node join"
matches "a login that only reads" "$err" NOPERM
good --json domain list
machine second manager
does "mdomain node join"
run_unit() {
  local words
  read -ra words <<<"$(sed -n 's|^ExecStart=mdomain ||p' "$source_dir/packaging/systemd/mdomain-node-pull.service")"
  mdomain "${words[@]}" >/dev/null 2>"$scratch/watch" &
}
run_unit
watcher=$!
use_root first
good domain names add 1 next.example
use_root second
named() { sqlite3 "$database" 'select * from domain_to_additional_domain_table' | grep next.example; }
wait_for "the name on the machine that pulls" named
stop TERM $watcher
timer=$(grep '^\*/10 .* mdomain ' "$scratch/blocks")
for name in first second; do
  use_root $name
  does "$timer"
  same "what a check says that finds nothing" "$out$err" ""
  does "mdomain node status"
done

# The management moves, and the machine before joins.
does "mdomain node take-over" --yes
good domain create moved.example
use_root first
fails 3 'second' domain create late.example
does "mdomain node join"
gives '[.[].name]' '["example.com","moved.example"]' domain list
gives .role '"pulls"' node role
use_root second
gives .role '"manages"' node role
does "mdomain node check"

sed -n '/^{"version"/,/^```/p' "$scratch/blocks" | sed '/^```/d' | jq -e '.uids' >/dev/null || fail "the manual's JSON"
same "commands of the manual that were not run" "$(grep -E '^(mdomain|\*/10 )' "$scratch/blocks" | sort -u |
  comm -23 - <(sort -u "$scratch/done"))" ""
