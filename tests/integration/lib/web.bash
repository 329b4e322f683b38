# Sourced after private.bash and driver.bash: mdomain-web on port 8025, for people of the root in force
# who are accounts of this machine with passwords of its PAM.

# web_company : anna administers example.com (1), ben is in the host's group of administrators.
web_company() {
  new_root web
  printf 'mailadmins:x:2004:ben\n' >>"$MDOMAIN_ROOT/etc/group"
  good domain create example.com
  good domain create bücher.example --pattern '<4a>' --no-auto-add
  good refresh
  good group add bücher.example books
  good user add bücher.example erik erika
  good user set example.com anna --role domain_admin
  good alias create example.com sales/x --group sales
  good bcc add example.com erik anna --type recipient
}

# web_configure : /etc is this script's own from now on, and has the settings of the program.
web_configure() {
  cp -a /etc "$scratch/etc" && mount --bind "$scratch/etc" /etc
  cp "$source_dir/packaging/debian/mailserver-domain-web.mdomain-web.pam" /etc/pam.d/mdomain-web
  mkdir -p "$MDOMAIN_ROOT/etc/mailserver-domain"
  printf '[sign-in]\nadministrators = mailadmins\n' >"$MDOMAIN_ROOT/etc/mailserver-domain/web.ini"
}

# web_password NAME... : those have the password "of NAME".
web_password() {
  local name
  for name; do
    printf '%s:%s:20000:0:99999:7:::\n' "$name" "$(openssl passwd -6 "of $name")" >>/etc/shadow
  done
}

# web_run : starts it. Its output is in $scratch/web.log.
web_run() {
  mdomain-web --state "$scratch" --texts "$build/share/locale" 2>"$scratch/web.log" &
  web=$!
  wait_for mdomain-web listens 8025
}

# web_start NAME... : all of this for accounts of the root in force, of whom those have a password.
web_start() {
  web_configure
  grep -v ^root "$MDOMAIN_ROOT/etc/passwd" >>/etc/passwd
  grep -v ^root "$MDOMAIN_ROOT/etc/group" >>/etc/group
  web_password "$@"
  web_run
}

web_stop() {
  stop TERM "$web"
  ! grep -E 'ERROR|runtime error' "$scratch/web.log" || fail "mdomain-web complained"
}
