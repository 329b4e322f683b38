# Sourced first by scripts that start servers: runs the rest of the script in namespaces of its own,
# where every port of the loopback is free and the kernel ends every daemon with the script.
if [ -z "${MDOMAIN_PRIVATE:-}" ]; then
  as=()
  [ "$(id -u)" -eq 0 ] || as=(--user --map-root-user)
  exec env MDOMAIN_PRIVATE=1 unshare "${as[@]}" --mount --net --pid --fork --mount-proc --kill-child \
    bash "$0" "$@"
fi
ip link set lo up
