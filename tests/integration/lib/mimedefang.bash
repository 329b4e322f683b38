# Sourced by integration scripts: MIMEDefang as a milter on 127.0.0.1. Needs root.

# mimedefang_start DIR PORT FILTER : starts it with its files in DIR. FILTER and its folder must be
# readable by the user defang, as whom it runs.
mimedefang_start() {
  local dir=$1 port=$2 filter=$3
  # A filter that does not compile would only make the workers die, and mail be deferred.
  mimedefang.pl -f "$filter" -test >"$dir.test" 2>&1 || {
    cat "$dir.test" >&2
    return 1
  }
  mkdir -p "$dir/spool"
  chown -R defang:defang "$dir"
  chmod 750 "$dir/spool"
  mimedefang-multiplexor -D -U defang -m 1 -x 2 -F "$filter" -z "$dir/spool" -s "$dir/mx.sock" \
    </dev/null >"$dir.mx.log" 2>&1 &
  for _ in $(seq 200); do
    [ -S "$dir/mx.sock" ] && break
    sleep 0.05
  done
  mimedefang -D -U defang -m "$dir/mx.sock" -z "$dir/spool" -p "inet:$port@127.0.0.1" \
    </dev/null >"$dir.md.log" 2>&1 &
  for _ in $(seq 200); do
    (exec 3<>/dev/tcp/127.0.0.1/"$port") 2>/dev/null && return 0
    sleep 0.05
  done
  echo "MIMEDefang does not answer" >&2
  return 1
}
