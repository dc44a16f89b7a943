# What the interop tests share. A test is run in a network namespace of its own (run.sh) and ends at its first failure.
#
# bin: the folder of the example programs. work: the test's own folder, empty at the start.
set -eu

fail() {
    echo "interop: $*" >&2
    exit 1
}

# Waits until a command succeeds.
wait_for() {
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 200 ] || fail "waited in vain for: $*"
        sleep 0.05
    done
}

# serve PROGRAM [ARGUMENTS]: starts an example over the TUN device ux0, where it is 10.77.1.1, the system 10.77.1.2.
# What passes is captured.
serve() {
    program=$1
    shift
    "$bin/$program" "$@" --tun ux0 --address 10.77.1.1 --capture "$work/$program.pcap" >"$work/$program.out" 2>&1 &
    server=$!
    wait_for ip link show dev ux0
    ip addr add 10.77.1.2/24 dev ux0
    ip link set ux0 up mtu 1400
}

# Ends it; it must end by itself, with this status. Then looks at what was captured.
stop_serving() {
    kill -INT "$server"
    status=0
    wait "$server" || status=$?
    cat "$work/$program.out"
    [ "$status" -eq "${1:-0}" ] || fail "$program ended with $status"
    check_capture "$work/$program.pcap"
}

# No packet may be malformed or carry a bad checksum. The system writes a TCP checksum of 0 as 0xffff now and then, the
# other zero of ones' complement, which tshark takes for wrong; ours may not.
check_capture() {
    packets=$(tshark -r "$1" 2>/dev/null | wc -l)
    [ "$packets" -gt 0 ] || fail "$1 has no packets"
    bad=$(tshark -r "$1" -o ip.check_checksum:TRUE -o tcp.check_checksum:TRUE -o udp.check_checksum:TRUE \
        -Y '_ws.malformed or ip.checksum.status == 0 or udp.checksum.status == 0 or icmp.checksum.status == 0 or
            (tcp.checksum.status == 0 and not (tcp.checksum == 0xffff and ip.src in {10.77.0.2 10.77.1.2}))' 2>/dev/null | head -n 5)
    [ -z "$bad" ] || fail "bad packets in $1: $bad"
    echo "interop: $packets packets, none bad"
}

# ask HOST PORT: says standard input over TCP, does not close before the answer has had time to come, prints the answer.
ask() { { cat; sleep 0.5; } | timeout 20 socat -t 1 - "TCP:$1:$2"; }

# Writes the file out and then waits until as much has come back: whoever closes the sending side ends a connection.
say_and_wait() {
    cat "$1"
    wait_for sh -c '[ "$(stat -c %s "$2")" -ge "$(stat -c %s "$1")" ]' size "$1" "$2"
}

random_file() { head -c "$2" /dev/urandom >"$1"; }

expect_equal() { cmp "$1" "$2" || fail "$1 and $2 differ"; }
expect() { [ "$2" = "$3" ] || fail "$1: expected \"$2\", got \"$3\""; }
