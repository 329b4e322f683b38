#!/bin/bash
# mdomain-web asks PAM who somebody is, and shows and changes what the person may see and no more, in
# pages and below /api/v1; every route is asked by every role, and the HTTP parser meets its limits.
# ctest-label: redis
# ctest-timeout: 600
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
. "$here/lib/web.bash"

web_company

# What is wrong in the settings is named.
while IFS='|' read -r lines said; do
  printf %b "$lines" >"$scratch/wrong.ini"
  matches "of $lines" "$(mdomain-web --config "$scratch/wrong.ini" 2>&1; echo "status $?")" "^mdomain-web: $scratch/wrong.ini, line $said"
done <<'END'
[listen]\nport = 0\n|2: "port" of \[listen\] is no number from 1 to 65535
[listen]\naddress = 192.0.2.1\n|2: "address" of \[listen\] is no address of loopback
[sign-in]\nadmins = x\n|2: "admins" of \[sign-in\] is not known
[site]\nurl = mail.example.com\n|2: "url" of \[site\] is no https
nonsense\n|1: neither
END

matches "no folder for tokens" "$(mdomain-web --state "$scratch/none" 2>&1; echo "status $?")" 'none/tokens.db: unable to open database file'

web_start anna ben erik erika
sed -i 's/^\(erika:[^:]*:\)20000\(.*\):::$/\1\2::1:/' /etc/shadow # her account has ended
grep -oE '\{"(GET|POST)", "[^"]+"' "$source_dir/web/routes.cpp" | sed 's/[",]//g; s/^{//' >"$scratch/routes"
[ "$(wc -l <"$scratch/routes")" -gt 30 ] || fail "hardly any route was found"
python3 "$here/lib/web_interface.py" "$scratch" "$source_dir" || fail "web_interface.py: $(tail -n 20 "$scratch/web.log")"
matches "history" "$(mdomain history list --limit 100)" 'anna'

# Without a service of its own PAM asks that for others; where that cannot tell, no try counts.
sign_in() { curl -s -o /dev/null -w '%{http_code} ' -H "X-Forwarded-For: 198.51.100.1" -d "name=anna&password=$1" http://127.0.0.1:8025/sign-in; }
rm /etc/pam.d/mdomain-web
same "PAM's service for others" "$(sign_in "of anna")" "303 "
cp /etc/pam.d/other "$scratch/other"
echo 'auth required pam_that_is_not_there.so' >/etc/pam.d/other
same "PAM cannot tell" "$(for _ in {1..9}; do sign_in wrong; done)" "503 503 503 503 503 503 503 503 503 "
cp "$scratch/other" /etc/pam.d/other
same "the service is back" "$(sign_in "of anna")" "303 "
web_stop
mdomain-web --state "$scratch" --address ::1 --port 8025 2>"$scratch/web.log" &
web=$!
wait_for "mdomain-web on ::1" bash -c '(exec 3<>/dev/tcp/::1/8025) 2>/dev/null'
web_stop

# A header names who asks: not where every account of the host could write it.
printf '[sign-in]\nadministrators = mailadmins\nheader = X-Remote-User\n' >"$scratch/header.ini"
matches "a header on loopback" "$(mdomain-web --config "$scratch/header.ini" --state "$scratch" 2>&1)" 'a unix socket is needed'
mdomain-web --config "$scratch/header.ini" --state "$scratch" --socket "$scratch/web.sock" 2>"$scratch/web.log" &
web=$!
wait_for "mdomain-web on a socket" test -S "$scratch/web.sock"
by_header() {
  curl -s --unix-socket "$scratch/web.sock" -H "X-Remote-User: $1" "http://x$2" -w '%{http_code}' -o "$scratch/page" "${@:3}"
}
same "by the header" "$(by_header anna /domains/1) $(by_header anna /domains/2) $(by_header ben /domains/2) \
$(by_header nobody /) $(by_header "" /)" "200 404 200 303 303"

# More connections than it has descriptors, threads and places for wait or are closed, and nobody after them.
prlimit --pid "$web" --nofile=50
python3 - "$scratch/web.sock" <<'END'
import socket, sys, time
idle = [socket.socket(socket.AF_UNIX) for _ in range(200)]
for one in idle:
    one.connect(sys.argv[1])
time.sleep(1)
END
same "after the crowd" "$(by_header ben /)" 200
prlimit --pid "$web" --nofile=1000

# The store that machines share is away: the page says that the change is made, and where it is not.
server 16392
password_file right s3cret
PORT=16392 host_ini "node = first"
good node manage --yes
kill "$(pid_of 16392)"
wait_for "the end of the server" bash -c "! redis-cli -p 16392 ping"
by_header ben /domains/1 -c "$scratch/cookies" >/dev/null
form_key=$(grep -o 'name="form_key" value="[0-9a-f]*' "$scratch/page" | head -n 1 | grep -o '[0-9a-f]*$')
same "a change" "$(by_header ben /domains/1 -b "$scratch/cookies" -d "form_key=$form_key" -d confirmed=1 -d description=new)" 303
by_header ben /domains/1 -b "$scratch/cookies" >/dev/null
matches "not published" "$(cat "$scratch/page")" 'saved[.] [(].*not published: .*16392: cannot connect: Connection refused'
matches "made" "$(mdomain domain show example.com)" 'new'
web_stop
