# Sourced by integration scripts: runs the rest of the script in namespaces of its own, where every
# port of the loopback is free and the kernel ends every daemon with the script. As another user
# than root the script goes on as it is.
if [ -z "${MDOMAIN_PRIVATE:-}" ] && [ "$(id -u)" -eq 0 ]; then
  exec env MDOMAIN_PRIVATE=1 unshare --mount --net --pid --fork --mount-proc --kill-child \
    bash "$0" "$@"
fi
[ -z "${MDOMAIN_PRIVATE:-}" ] || ip link set lo up
