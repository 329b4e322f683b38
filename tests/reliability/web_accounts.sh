#!/bin/bash
# Signing in to the pages on hosts whose accounts are elsewhere: on a fresh Debian 12 that has booted its systemd,
# with its packages for PAM and names, mdomain-web as its unit runs it. Accounts are local ones whose failures
# pam_faillock counts, those of slapd through nslcd and through sssd, and those of a Samba domain through winbind.
# As root, with what manual_postfix.sh wants. Says what was wrong, and ends with 1 when something was.
#
# web_accounts.sh WORK_DIR [KIND...] : as packages.sh, and on what that has left there. All kinds, or those of local,
# nslcd, sssd, winbind.
# MIRROR: where from (http://deb.debian.org/debian). SHOW=1 prints what the commands say.
set -eu
trap 'echo "FAILED: line $LINENO"' ERR
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  MDOMAIN_PRIVATE=1 exec unshare --mount bash "$0" "$@"
fi
[ $# -ge 1 ] || { echo "usage: web_accounts.sh WORK_DIR [KIND...]" >&2 && exit 2; }
[ $# -gt 1 ] || set -- "$1" local nslcd sssd winbind
mkdir -p "$1"
work=$(realpath "$1")
. "$(dirname "$0")/debian.bash"

# host KIND BEFORE PACKAGE... : a fresh system with those, on which accounts of the kind are called so
host() {
  fresh
  # shellcheck disable=SC2046
  install "a host for $1" systemd systemd-sysv dbus python3 openssl "${@:3}" \
    $(cd "$work/system" && ls -d ./new/{libmailserver-domain1,mailserver-domain-tools,mailserver-domain-web}_*.deb)
  rm "$work/system/usr/sbin/policy-rc.d"
  cp "$source_dir"/tests/reliability/{web_accounts,web_person}.py "$source_dir"/tests/integration/lib/{slapd,ad}.bash "$work/system/"
  cp "$source_dir/tests/reliability/web_accounts.bash" "$work/system/"
  printf ". /web_accounts.bash; %s_host; walk '%s'" "$1" "$2" >"$work/system/steps.bash"
  echo 'bash /steps.bash' >"$work/system/steps"
  booted steps
  [ -z "${SHOW:-}" ] || echo "$said"
  grep '^FAILED' <<<"$said" && fail "$1"
  same "$1" "$(sed -n 's/^SAYS //p' <<<"$said")" "$wanted"
}

prepare
everywhere="anna: 200 her addresses
ben, by a group: 200 administers bücher.example alone
olivia: 200 all domains
wrong: 403 Name or password are wrong.
nobody: 403 Name or password are wrong.
ended: 403 This account has ended or is locked.
must change: 403 This password has to be changed before you can sign in
not of the domains: 403 The mail domains do not know this account."
for kind in "${@:2}"; do
  wanted=$everywhere
  # Their check of a password refuses an account that has ended.
  case $kind in
    sssd | winbind) wanted=${everywhere/This account has ended or is locked./Name or password are wrong.} ;;
  esac
  case $kind in
    local) host local '' ;;
    nslcd) host nslcd '' slapd ldap-utils libnss-ldapd libpam-ldapd nslcd ;;
    sssd) host sssd '' slapd ldap-utils sssd-ldap libnss-sss libpam-sss ;;
    winbind)
      host winbind "ADEX\\" samba samba-ad-provision samba-dsdb-modules samba-vfs-modules winbind libnss-winbind \
        libpam-winbind bind9-host smbclient
      ;;
    *) echo "no such kind: $kind" >&2 && exit 2 ;;
  esac
done
cd / && unmount
[ "$failures" -eq 0 ] || { echo "$said" && echo "$failures checks failed" && exit 1; }
echo "accounts OK"
