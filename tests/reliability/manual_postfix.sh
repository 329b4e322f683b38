#!/bin/bash
# From an empty host to a delivered mail: on a fresh Debian 12 that has booted its systemd, every
# command of docs/manual/postfix.md as it stands there, in order, and then an IMAP client that reads
# what was sent. As root, with debootstrap, debhelper, dh-python and systemd-nspawn (systemd-container); downloads
# from the mirror, and what the page installs before it takes the network away. Says what was wrong,
# and ends with 1 when something was.
#
# manual_postfix.sh WORK_DIR : as packages.sh, and on what that has left there.
# MIRROR: where from (http://deb.debian.org/debian). SHOW=1 prints what the commands say.
set -eu
trap 'echo "FAILED: line $LINENO"' ERR
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  MDOMAIN_PRIVATE=1 exec unshare --mount bash "$0" "$@"
fi
[ $# -eq 1 ] || { echo "usage: manual_postfix.sh WORK_DIR" >&2 && exit 2; }
mkdir -p "$1"
work=$(realpath "$1")
. "$(dirname "$0")/debian.bash"
page=$source_dir/docs/manual/postfix.md

prepare
fresh
# What a Debian has that was not made for a chroot, somebody with a password, a client.
install "what a host has" systemd systemd-sysv dbus
install "the client" python3
inside useradd --create-home erika
inside sh -c 'echo erika:secret | chpasswd'

first=$(sed -n '/^## From an empty host/,/^## What/p' "$page" | awk '/^```/ { is_block = !is_block; next } is_block' | wc -l)
[ "$first" -le 10 ] || fail "$first commands to a delivered mail"
page "$page"
echo 'python3 /client.py' >>"$work/system/page"
cat >"$work/system/client.py" <<'END'
import imaplib, time

def login(name, password):
    client = imaplib.IMAP4("127.0.0.1")
    try:
        client.authenticate("PLAIN", lambda _: f"\0{name}\0{password}".encode())
    except imaplib.IMAP4.error:
        return None
    return client

def mail(client):
    client.select("INBOX", readonly=True)
    for number in client.search(None, "ALL")[1][0].split():
        parts = client.fetch(number, "(BODY[HEADER.FIELDS (X-Original-To)] BODY[TEXT])")[1]
        to = parts[0][1].decode().replace("X-Original-To:", "").strip()
        yield f"{to} {parts[1][1].decode().strip()}"

for name in ("erika", "erika@bücher.example", "ERIKA@xn--bcher-kva.example"):
    client = login(name, "secret")
    deadline = time.time() + 20
    while client and len(list(mail(client))) < 2 and time.time() < deadline:
        time.sleep(0.5)
    print(f"IMAP {name}:", ", ".join(sorted(mail(client))) if client else "refused")
    print(f"IMAP {name}, wrong password:", "let in" if login(name, "wrong") else "refused")
END
booted page
[ -z "${SHOW:-}" ] || echo "$said"
grep -B 5 '^FAILED:' <<<"$said" && fail "a command of the page"
mail="erika@bücher.example hello, erika@xn--bcher-kva.example hello"
same "what a client reads" "$(grep '^IMAP' <<<"$said")" \
  "$(for name in erika erika@bücher.example ERIKA@xn--bcher-kva.example; do
    printf 'IMAP %s: %s\nIMAP %s, wrong password: refused\n' "$name" "$mail" "$name"
  done)"
cd / && unmount
[ "$failures" -eq 0 ] || { echo "$said" && echo "$failures checks failed" && exit 1; }
echo "manual OK: $first commands to a delivered mail"
