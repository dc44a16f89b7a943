#!/bin/sh
# run.sh TEST BIN WORK: runs a test in a network namespace of its own, in an empty folder. 77: can't be run here.
set -eu

skip() {
    echo "skipped: $*"
    exit 77
}

[ "$(id -u)" -eq 0 ] || skip "needs root for network namespaces and TUN devices"
[ -c /dev/net/tun ] || skip "no /dev/net/tun"
unshare --net --pid --fork --kill-child true 2>/dev/null || skip "the machine allows no network namespaces"
for tool in ip socat curl tshark nc ping; do
    command -v "$tool" >/dev/null || skip "$tool is missing"
done

# The leak sanitizer wants a /proc of the new processes; a root that is no mount point, as in a chroot, refuses one.
proc=--mount-proc
unshare --net --pid --fork --kill-child --mount-proc true 2>/dev/null || proc=

rm -rf "$3"
mkdir -p "$3"
# Whatever the test leaves running ends with it.
exec unshare --net --pid --fork --kill-child $proc sh -eu -c '
    ip link set lo up
    bin=$1 work=$2 here=$3
    . "$here/lib.sh"
    . "$here/$4.sh"
' interop "$2" "$3" "$(CDPATH="" cd -- "$(dirname -- "$0")" && pwd)" "$1"
