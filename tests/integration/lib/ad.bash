# Sourced by integration scripts after private.bash, as root: a Windows domain made of a Samba domain
# controller and a joined member with winbindd, on the private loopback. Domain ADEX, realm
# AD.EXAMPLE.COM, administrator's password Passw0rd.1.

# ad_conf DIR NETBIOSNAME : the settings that both machines share
ad_conf() {
  mkdir -p "$1"/{etc,private,state,cache,lock,pid,log,ncalrpc}
  cat <<C
[global]
  netbios name = $2
  workgroup = ADEX
  realm = AD.EXAMPLE.COM
  interfaces = lo
  bind interfaces only = yes
  private dir = $1/private
  state directory = $1/state
  cache directory = $1/cache
  lock directory = $1/lock
  pid directory = $1/pid
  ncalrpc dir = $1/ncalrpc
  log file = $1/log/log.%m
  logging = file
  log level = 1
  load printers = no
  disable spoolss = yes
C
}

# ad_surroundings DIR : host names, resolver and name service of the private namespace
ad_surroundings() {
  printf '127.0.0.1 localhost\n127.0.0.1 dc1.ad.example.com dc1\n' >"$1/hosts"
  printf '127.0.0.1 member1.ad.example.com member1\n' >>"$1/hosts"
  printf 'search ad.example.com\nnameserver 127.0.0.1\n' >"$1/resolv.conf"
  sed 's/^\(passwd\|group\):.*/\1: files winbind/' /etc/nsswitch.conf >"$1/nsswitch.conf"
  for file in hosts resolv.conf nsswitch.conf; do mount --bind "$1/$file" "/etc/$file"; done
}

# ad_provision DIR SEED : makes the domain; SEED is a command that is given the database's path
ad_provision() {
  local dc=$1/dc
  {
    ad_conf "$dc" DC1
    cat <<C
  server role = active directory domain controller
  server services = ldap, cldap, kdc, rpc, s3fs, winbindd, dns
  dns forwarder = 127.0.0.9
  ntp signd socket directory = $dc/ntp
  binddns dir = $dc/bind-dns
  idmap_ldb:use rfc2307 = yes
  tls enabled = no
  ldap server require strong auth = no
[sysvol]
  path = $dc/state/sysvol
  read only = no
[netlogon]
  path = $dc/state/sysvol/ad.example.com/scripts
  read only = no
C
  } >"$1/dc.conf"
  mv "$1/dc.conf" "$dc/etc/smb.conf"
  samba-tool domain provision --configfile="$dc/etc/smb.conf" --realm=AD.EXAMPLE.COM \
    --domain=ADEX --server-role=dc --dns-backend=SAMBA_INTERNAL --adminpass='Passw0rd.1' \
    --use-rfc2307 --host-name=dc1 --host-ip=127.0.0.1 >"$dc/log/provision" 2>&1 ||
    { cat "$dc/log/provision" >&2; return 1; }
  export SMB_CONF_PATH=$dc/etc/smb.conf
  samba-tool spn add ldap/dc1.ad.example.com 'DC1$' -H "$dc/private/sam.ldb"
  "$2" "$dc/private/sam.ldb"
}

# ad_start_dc DIR : starts the controller, waits for its ports. Sets DC_PID.
ad_start_dc() {
  local dc=$1/dc port
  # The controller's winbindd and the member's have one fixed socket folder: each gets its own.
  mkdir -p "$1/run_dc" /run/samba
  unshare -m sh -c "mount --bind $1/run_dc /run/samba; exec samba -F --no-process-group -s $dc/etc/smb.conf" \
    >"$dc/log/stdout" 2>&1 </dev/null &
  DC_PID=$!
  for port in 389 53 88 135 445; do
    for _ in $(seq 3000); do
      (exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null && break
      sleep 0.02
    done
  done
}

# ad_join DIR : joins the member and starts its winbindd. Sets WINBINDD_PID; exports SMB_CONF_PATH.
ad_join() {
  local member=$1/m
  export SMB_CONF_PATH=$1/dc/etc/smb.conf
  host dc1.ad.example.com >/dev/null ||
    samba-tool dns add dc1.ad.example.com ad.example.com dc1 A 127.0.0.1 \
      -U 'Administrator%Passw0rd.1' >/dev/null
  mkdir -p "$1/run_m"
  mount --bind "$1/run_m" /run/samba
  {
    ad_conf "$member" MEMBER1
    cat <<C
  security = ads
  idmap config * : backend = tdb
  idmap config * : range = 3000-7999
  idmap config ADEX : backend = rid
  idmap config ADEX : range = 1000000-1999999
  winbind enum users = yes
  winbind enum groups = yes
C
  } >"$1/member.conf"
  mv "$1/member.conf" "$member/etc/smb.conf"
  export SMB_CONF_PATH=$member/etc/smb.conf
  for _ in 1 2 3 4 5 6; do
    net ads join -U 'Administrator%Passw0rd.1' --no-dns-updates >"$member/log/join" 2>&1 && break
    sleep 0.3
  done
  # net reads the machine's own settings when its environment is empty.
  mkdir -p /etc/samba
  [ -e /etc/samba/smb.conf ] && mount --bind "$member/etc/smb.conf" /etc/samba/smb.conf
  ad_start_winbindd "$1"
}

# ad_start_winbindd DIR : the member's winbindd; waits until it reaches the controller
ad_start_winbindd() {
  winbindd -F --no-process-group >>"$1/m/log/stdout" 2>&1 </dev/null &
  WINBINDD_PID=$!
  for _ in $(seq 1200); do
    wbinfo --ping-dc >/dev/null 2>&1 && return 0
    sleep 0.05
  done
  echo "winbindd does not reach the domain controller" >&2
  return 1
}
