# Sourced after private.bash, driver.bash and postfix.bash: a machine as it is installed, with a Postfix
# and a Dovecot that is set up. Needs root.

# host : no root any more, but this machine with the accounts and domains of the root in force, and
# with files in /etc and /var that go with it.
host() {
  local from=$MDOMAIN_ROOT
  unset MDOMAIN_ROOT
  rm -rf "$scratch/host-etc" && cp -a /etc "$scratch/host-etc" && mount --bind "$scratch/host-etc" /etc
  for file in passwd group; do
    awk -F: '$3 < 1000 || $3 == 65534' "$scratch/host-etc/$file" >"$scratch/$file"
    cat "$scratch/$file" - >"/etc/$file" < <(grep -v ^root "$from/etc/$file")
  done
  echo 'Postara-Server:x:990:990::/nonexistent:/usr/sbin/nologin' >>/etc/passwd
  echo 'Postara-Server:x:990:' >>/etc/group
  postfix_as_installed
  cp -a "$postfix"/etc/{main,master}.cf /etc/postfix
  mount -t tmpfs none /var && mkdir -p /var/run/postara_server /var/spool /var/backups /var/lib
  [ ! -d "$from/var" ] || cp -a "$from/var/packages" /var
  mkdir -p /var/packages/Postara-Server/{etc,target/etc,target/bin}
  ln -sfn "$build/bin/korv_bcc_map" /var/packages/Postara-Server/target/bin/korv_bcc_map
  chown -R Postara-Server: /var/packages
}

# leave_host : the machine as it was.
leave_host() {
  postfix stop >/dev/null 2>&1
  umount -l /var /etc
}
