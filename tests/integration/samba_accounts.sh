#!/bin/bash
# The Windows-domain account source and alias patterns against a Samba domain controller.
# ctest-label: samba
# ctest-timeout: 400
# Options that are several words stand unquoted:
# shellcheck disable=SC2086
[ "$(id -u)" -eq 0 ] || { echo "needs root"; exit 77; }
. "$(dirname "$0")/lib/private.bash"
set -eu
. "$(dirname "$0")/lib/ad.bash"
build=$1 scratch=$2

seed() {
  local at="-H $1" pw='Passw0rd.2'
  {
    samba-tool user create alice $pw $at --given-name=Alice --surname=Archer --initials=AA
    samba-tool user create bob $pw $at --given-name=Bob --surname=Büch --department=Sales
    samba-tool user create carol $pw $at --surname=Cole
    samba-tool user create JSmith $pw $at --given-name=John --surname=Smith \
      --initials=J --mail-address=john@example.com
    samba-tool user create Öl $pw $at --given-name=Ölm --surname=Äß
    samba-tool group add staff $at
    samba-tool group addmembers staff alice,bob $at
    samba-tool group add nested $at
    samba-tool group addmembers nested staff,carol $at
    samba-tool group add deep $at
    samba-tool group addmembers deep nested $at
    samba-tool group add 'Big Group' $at
    samba-tool group addmembers 'Big Group' deep $at
    samba-tool group addmembers deep 'Big Group' $at # a circle
    samba-tool group add empty $at
  } >/dev/null
}

ad_surroundings "$scratch"
ad_provision "$scratch" seed
ad_start_dc "$scratch"
ad_join "$scratch"
run() { "$build/bin/integration_samba_accounts_test" --gtest_filter="SambaAccounts.$1"; }

ACCOUNT_KIND=win "$build/bin/integration_account_conformance_test"
export WINBINDD_PID
run 'Asked*'
root=$scratch/people
mkdir "$root"
m() { "$build/bin/mdomain" --root "$root" --json --yes "$@"; }
expect() { [ "$2" = "$3" ] || { echo "FAILED: $1: got \"$2\", want \"$3\"" >&2; exit 1; }; }
m config set win_domain_short_name ADEX >/dev/null
m config set account_type win >/dev/null
m domain create example.com --auto-add >/dev/null
m refresh >/dev/null
# winbindd gives "öl".
expect "as the directory writes it" "$(m user addresses Öl | jq -c .)" '["öl@example.com"]'
for case in 'MEMBER1$ machine' 'OTHER\x another' 'ADEX\ghost there.is.no'; do
  m user addresses "${case% *}" 2>"$scratch/err" && exit 1
  grep -q "${case#* }" "$scratch/err" || { echo "FAILED: $(cat "$scratch/err")" >&2; exit 1; }
done

# Ids from attributes that most users lack: they are listed and cannot be looked up.
kill "$WINBINDD_PID"
wait "$WINBINDD_PID" || true
run Gone
sed -i 's/ADEX : backend = rid/ADEX : backend = ad\n  idmap config ADEX : schema_mode = rfc2307/
  s/range = 1000000-1999999/range = 10000-19999/' "$scratch/m/etc/smb.conf"
for entry in 'alice 10001 uidNumber' 'Domain Users 10513 gidNumber' 'staff 10600 gidNumber'; do
  dn=$(ldbsearch -H "$scratch/dc/private/sam.ldb" "(sAMAccountName=${entry% * *})" dn | sed -n 's/^dn: //p')
  printf 'dn: %s\nchangetype: modify\nadd: %s\n%s: %s\n' "$dn" "${entry##* }" "${entry##* }" \
    "$(set -- $entry; shift $(($# - 2)); echo "$1")" |
    ldbmodify -H "$scratch/dc/private/sam.ldb" /dev/stdin >/dev/null
done
rm -f "$scratch"/m/{cache,lock,state}/*cache*.tdb "$scratch"/m/state/winbindd_idmap.tdb
ad_start_winbindd "$scratch"
run Unresolvable

# A winbindd that has answered before, without its controller or with a password that is refused: it
# answers with success, from what it remembers.
root=$scratch/warm
mkdir "$root"
m config set win_domain_short_name ADEX >/dev/null
m config set account_type win >/dev/null
m refresh >/dev/null
run Warm
kill "$DC_PID"
wait "$DC_PID" || true
WARM_REASON="no domain controller of ADEX answers" run WarmAlone
expect "incomplete" "$(m refresh | jq -c .complete)" false
expect "as it was" "$(m account members STAFF | jq -c 'map(.name)')" '["ADEX\\alice"]'
ad_start_dc "$scratch"
for _ in $(seq 600); do wbinfo --ping-dc >/dev/null 2>&1 && break; sleep 0.1; done
run Warm
samba-tool user setpassword 'MEMBER1$' --newpassword='Another.1x' \
  -H "$scratch/dc/private/sam.ldb" >/dev/null 2>&1
WARM_REASON="the domain ADEX refuses this machine's password" run WarmAlone

# No controller, and a winbindd that has nothing in its cache: it answers with success and no users.
kill "$WINBINDD_PID" "$DC_PID"
wait "$WINBINDD_PID" "$DC_PID" || true
rm -f "$scratch"/m/{cache,lock,state}/*cache*.tdb
winbindd -F --no-process-group >>"$scratch/m/log/stdout" 2>&1 </dev/null &
for _ in $(seq 1200); do wbinfo -p >/dev/null 2>&1 && break; sleep 0.05; done
run NoController
