#!/bin/sh
# One TCP connection over our link between two processes, and over a socat tunnel (TUN over UDP) with the kernel's TCP
# at both ends, in one run. The tunnel needs root, for its network namespaces; without, only ours is measured.
#
#     run.sh DIRECTORY_OF_THE_PROGRAMS [SECONDS]
set -eu
programs=$1
seconds=${2:-4}

# The second argument: the socket's buffers, by themselves or as the file copying demo sets them.
bulk() { "$programs/link_bench" --only bulk --seconds "$seconds" --owner "$1" --buffer "$2"; }
set=262144
ours=$(bulk network 0)
echo "link, ends of the network threads: $ours"
users=$(bulk user 0)
echo "link, ends of user threads: $users"
ours_set=$(bulk network $set)
echo "link, ends of the network threads, buffers of $set: $ours_set"
users_set=$(bulk user $set)
echo "link, ends of user threads, buffers of $set: $users_set"
echo "link, ends of user threads: $("$programs/link_bench" --only trip --seconds "$seconds" --owner user)"

if [ "$(id -u)" -ne 0 ]; then
    echo 'tunnel: not measured, it needs root'
    exit 0
fi
for tool in ip socat iperf3; do
    command -v "$tool" >/dev/null 2>&1 || { echo "tunnel: not measured, there is no $tool"; exit 0; }
done

# The UDP path has a namespace of its own, as each end of the tunnel has.
path=uxb$$p
left=uxb$$a
right=uxb$$b
started=
tidy() {
    for process in $started; do kill "$process" 2>/dev/null || true; done
    for space in "$path" "$left" "$right"; do ip netns del "$space" 2>/dev/null || true; done
}
trap tidy EXIT
trap 'exit 1' INT TERM
for space in "$path" "$left" "$right"; do
    ip netns add "$space" || { echo 'tunnel: not measured, no network namespaces here'; exit 0; }
    ip -n "$space" link set lo up
done
ip netns exec "$path" socat UDP4-DATAGRAM:127.0.0.1:7002,bind=127.0.0.1:7001 TUN,tun-name=uxba,iff-no-pi &
started="$started $!"
ip netns exec "$path" socat UDP4-DATAGRAM:127.0.0.1:7001,bind=127.0.0.1:7002 TUN,tun-name=uxbb,iff-no-pi &
started="$started $!"

# end DEVICE SPACE ADDRESS: moves the device there and gives it the address, once socat has made it.
end() {
    tries=0
    until ip -n "$path" link show "$1" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || { echo 'tunnel: not measured, socat makes no device'; exit 0; }
        sleep 0.05
    done
    ip -n "$path" link set "$1" netns "$2"
    ip -n "$2" address add "$3/24" dev "$1"
    ip -n "$2" link set "$1" mtu 1400 up
}
end uxba "$left" 10.78.0.1
end uxbb "$right" 10.78.0.2

ip netns exec "$left" "$programs/kernel_trip" serve 7 &
started="$started $!"
echo "tunnel: $(ip netns exec "$right" "$programs/kernel_trip" measure 10.78.0.1 7 "$seconds")"
ip netns exec "$left" iperf3 -s -1 >/dev/null &
started="$started $!"
tries=0
until tunnel=$(ip netns exec "$right" iperf3 -c 10.78.0.1 -f m -t "$seconds" 2>/dev/null | awk '/receiver/ { print $7 }') &&
    [ -n "$tunnel" ]; do
    tries=$((tries + 1))
    [ "$tries" -lt 10 ] || { echo 'tunnel: iperf3 does not connect'; exit 1; }
    sleep 0.2
done
echo "tunnel: one connection: $tunnel Mbit/s"
printf '%s\n' "$ours" "$users" "$ours_set" "$users_set" | awk -v tunnel="$tunnel" -v set=$set '
    { times[NR] = $3 / tunnel }
    END {
        printf "link to tunnel: %.1f times by network threads, %.1f by user threads\n", times[1], times[2]
        printf "link to tunnel, buffers of %d: %.1f times by network threads, %.1f by user threads\n", set, times[3], times[4]
    }'
