#!/bin/bash
# The pages behind nginx and behind Caddy, as docs/manual/web.md sets them up: on a fresh Debian 12 that has
# booted its systemd, with certificates of a private ACME server (pebble) in place of Let's Encrypt. What
# browsers, forgers of headers and large requests get is asked through each, also while the program is
# started anew. As root, with what manual_postfix.sh wants. Says what was wrong, and ends with 1 when something was.
#
# web_front.sh WORK_DIR : as packages.sh, and on what that has left there.
# MIRROR: where from (http://deb.debian.org/debian). SHOW=1 prints what the commands say.
set -eu
trap 'echo "FAILED: line $LINENO"' ERR
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  MDOMAIN_PRIVATE=1 exec unshare --mount bash "$0" "$@"
fi
[ $# -eq 1 ] || { echo "usage: web_front.sh WORK_DIR" >&2 && exit 2; }
mkdir -p "$1"
work=$(realpath "$1")
. "$(dirname "$0")/debian.bash"

# shown KIND [N] : the N-th code block of that kind of the page
shown() { awk -v kind="\`\`\`$1" -v n="${2:-1}" '/^```/ { inside = !inside && $0 == kind && ++seen == n; next } inside' "$source_dir/docs/manual/web.md"; }

prepare
fresh
install "what a host has" systemd systemd-sysv dbus python3 ca-certificates openssl
people
# shellcheck disable=SC2046
install "the pages, and what may stand in front" nginx caddy certbot pebble \
  $(cd "$work/system" && ls -d ./new/{libmailserver-domain1,mailserver-domain-tools,mailserver-domain-web}_*.deb)
echo '127.0.0.1 localhost mail.example.com' >>"$work/system/etc/hosts"
cp "$source_dir"/tests/reliability/{web_front,web_person}.py "$work/system/"
# The program's part of the page: settings, certificate for trying, site.
sed -n '/^printf .*web.ini$/,/^systemctl reload nginx$/p' "$source_dir/docs/manual/web.md" >"$work/system/set_up"
shown sh | sed '/^apt-get/d' >"$work/system/certificate"
shown nginx >"$work/system/nginx_sign_in"
shown caddy >"$work/system/Caddyfile"
shown caddyfile >"$work/system/Caddyfile_sign_in"
cat >"$work/system/front" <<'END'
exec 2>&1
say() { sed "s/^/$1 /"; }
cat >/pebble.json <<X
{"pebble": {"listenAddress": "127.0.0.1:14000", "managementListenAddress": "127.0.0.1:15000", "certificate": "/pebble.pem",
  "privateKey": "/pebble.key", "httpPort": 80, "tlsPort": 443, "ocspResponderURL": ""}}
X
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -addext subjectAltName=DNS:localhost \
  -keyout /pebble.key -out /pebble.pem 2>/dev/null
PEBBLE_VA_NOSLEEP=1 PEBBLE_WFE_NONCEREJECT=0 pebble -config /pebble.json >/pebble.log &
printf '%s\n' 'server = https://localhost:14000/dir' 'agree-tos = true' 'non-interactive = true' \
  'email = olivia@example.com' >>/etc/letsencrypt/cli.ini
export REQUESTS_CA_BUNDLE=/pebble.pem

mdomain domain create example.com
mdomain domain create bücher.example --pattern '<4a>' --no-auto-add
mdomain refresh
mdomain group add bücher.example books
mdomain user set bücher.example grace --role domain_admin
groupadd mailadmins
usermod -a -G mailadmins olivia

# systemd counts starts by hand, too.
again() { systemctl reset-failed mdomain-web; systemctl restart mdomain-web; }
systemctl stop caddy
sh -e /set_up || echo "FAILED: setting up"
python3 /web_front.py 80 | say nginx
sh -e /certificate || echo "FAILED: the certificate"
python3 -c 'import ssl, urllib.request as r; print(r.urlopen("https://localhost:15000/roots/0", context=ssl.create_default_context(cafile="/pebble.pem")).read().decode())' >/roots.pem
CERTIFICATES=/roots.pem python3 -c 'from web_person import Person; print("certificate", Person("grace").status)'
echo 'header = X-Remote-User' >>/etc/mailserver-domain/web.ini
echo "grace:$(openssl passwd -apr1 secret)" >/etc/nginx/mdomain.users
sed -i '/location \/ {$/ { r /nginx_sign_in
  :rest
  n
  b rest
}' /etc/nginx/sites-available/mdomain
nginx -t && systemctl reload nginx
again
CERTIFICATES=/roots.pem python3 /web_front.py header | say nginx-header

systemctl stop nginx
sed -i /^header/d /etc/mailserver-domain/web.ini
again
{ printf '{\n acme_ca https://localhost:14000/dir\n acme_ca_root /pebble.pem\n}\n' && cat /Caddyfile; } >/etc/caddy/Caddyfile
systemctl start caddy
CERTIFICATES=/roots.pem python3 /web_front.py 80 | say caddy
echo 'header = X-Remote-User' >>/etc/mailserver-domain/web.ini
{ printf '{\n acme_ca https://localhost:14000/dir\n acme_ca_root /pebble.pem\n}\n' &&
  sed "s|HASH|$(caddy hash-password --plaintext secret)|" /Caddyfile_sign_in; } >/etc/caddy/Caddyfile
systemctl reload caddy
again
CERTIFICATES=/roots.pem python3 /web_front.py header | say caddy-header
journalctl --sync
journalctl -o cat -u mdomain-web | say LOG
journalctl -o cat -u nginx -u caddy -p warning | say FRONT
END
booted front
[ -z "${SHOW:-}" ] || echo "$said"
grep '^FAILED' <<<"$said" && fail "setting it up"
for front in nginx caddy; do
  [ $front = nginx ] && moved=301 || moved=308
  same $front "$(sed -n "s/^$front //p" <<<"$said")" "without encryption: $moved https://mail.example.com/domains?x=1
HSTS: max-age=31536000
a guest who names olivia: /sign-in
grace: 200 True
her cookie: __Host-mdomain
a form of 900000 bytes: 403
a form of 1500000 bytes: 413
a form of 3000000 bytes: 413
restarted under use: True {200}
then: 200
wrong passwords: [403, 403, 403, 403, 403, 429, 429, 429, 429]"
  same "$front signs in" "$(sed -n "s/^$front-header //p" <<<"$said")" "nobody: 401
$(for forged in 0 1 2 1; do echo "grace, with $forged forged: True False False"; done)
not grace: /sign-in
a program: True"
done
same "the certificate" "$(grep '^certificate' <<<"$said")" "certificate 200"
same "who signed in, by the log" "$(grep -c '^LOG grace signed in from 127.0.0.1$' <<<"$said")" 5
same "complaints of the program" "$(sed -n 's/^LOG //p' <<<"$said" | grep -E 'ERROR|rror:|Failed')" ""
cd / && unmount
[ "$failures" -eq 0 ] || { echo "$said" && echo "$failures checks failed" && exit 1; }
echo "front OK"
