# Honest clients beside an attack on an example over the TUN device ux0, and what must not happen to them. Nothing is
# captured: that would be the attack's packets.

# serve_attacked PROGRAM [ARGUMENTS]: starts an example as `serve` does, with its counters.
serve_attacked() {
    program=$1
    shift
    "$bin/$program" "$@" --tun ux0 --address 10.77.1.1 --counters >"$work/$program.out" 2>&1 &
    server=$!
    wait_for ip link show dev ux0
    ip addr add 10.77.1.2/24 dev ux0
    # So that no forged packet is lost on the way.
    ip link set ux0 up mtu 1400 txqueuelen 10000
}

# stop_attacked PACKETS: ends it and looks at its counters.
stop_attacked() {
    kill -INT "$server"
    status=0
    wait "$server" || status=$?
    [ "$status" -eq 0 ] || fail "$program ended with $status"
    check_counters "$1"
}

# check_counters PACKETS: so many have reached the stack of the example that has ended, and no assertion has failed.
check_counters() {
    expect 'failed assertions' 0 "$(counter stack.assertion)"
    [ "$(counter link.in)" -ge "$1" ] || fail "only $(counter link.in) packets of at least $1 have reached the stack"
}

counter() { awk -v name="$1" '$1 == name { print $2 }' "$work/$program.out"; }

# send ATTACK [OPTIONS]: forged packets from the address of the old connection to its other end.
send() {
    "$bin/uxport_sender" --device ux0 --from 10.77.1.2 --from-port 40000 --to 10.77.1.1 "$@"
}

# A connection to the echo server that is open before the attack.
open_old() {
    mkfifo "$work/old.fifo"
    random_file "$work/old.in" 10000
    nc -p 40000 10.77.1.1 7 <"$work/old.fifo" >"$work/old.out" &
    old=$!
    exec 3>"$work/old.fifo"
    cat "$work/old.in" >&3
    within 3 has_echoed
    echo new | echoed_at_once
    resident=$(get_resident)
}
has_echoed() { [ "$(stat -c %s "$work/old.out")" -ge "$(stat -c %s "$work/old.in")" ]; }

# It goes on after the attack, with more than a window of data both ways, and gets these bytes and no others.
old_goes_on() {
    kill -0 "$old" 2>/dev/null || fail 'the old connection has ended'
    random_file "$work/more" 400000
    cat "$work/more" >>"$work/old.in"
    cat "$work/more" >&3 &
    within 3 has_echoed
    expect_equal "$work/old.in" "$work/old.out"
    kill -0 "$old" 2>/dev/null || fail 'the old connection has ended'
}

# A new connection is served.
echoed_at_once() { expect 'the echo to a new connection' new "$({ cat; sleep 0.3; } | timeout 2 socat -t 0.3 - TCP:10.77.1.1:7)"; }

# fetched_at_once SERVER'S PAGE: by HTTP.
fetched_at_once() { expect 'a page' "$1" "$(curl -sS -m 2 http://10.77.1.1/)"; }

# The memory of the server has not grown.
flat() {
    after=$(get_resident)
    echo "interop: the server's memory: $resident KiB before, $after KiB after"
    case $(ldd "$bin/$program") in
    *libasan* | *libtsan*) return ;;  # keep what was freed
    esac
    [ "$after" -le $((resident + 6144)) ] || fail "the server's memory grew from $resident to $after KiB"
}

# In KiB. /proc may be that of the processes around this namespace.
get_resident() {
    cat /proc/[0-9]*/status 2>/dev/null | awk -v pid="$server" '
        $1 == "Pid:" { number = $2 }
        $1 == "NSpid:" { mine = $NF == pid }
        $1 == "VmRSS:" && mine { print number, $2 }' |
        while read -r number resident; do
            if [ "$(readlink "/proc/$number/ns/pid")" = "$(readlink /proc/self/ns/pid)" ]; then
                echo "$resident"
            fi
        done
}

# within SECONDS COMMAND: it succeeds in that time.
within() {
    limit=$(($(date +%s%N) / 1000000 + $1 * 1000))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $(($(date +%s%N) / 1000000)) -lt "$limit" ] || fail "waited in vain for: $*"
        sleep 0.05
    done
}

# Packets that have passed a device, both ways.
get_passed() { awk -v device="$1:" '$1 == device { print $3 + $11 }' /proc/net/dev; }

# quiet DEVICE MOST: no more packets than that pass in a second in which nobody says anything.
quiet() {
    silent=$(get_passed "$1")
    sleep 1
    passed=$(($(get_passed "$1") - silent))
    echo "interop: $passed packets in a second after the attack"
    [ "$passed" -le "$2" ] || fail "$passed packets in a second of silence"
}

# need PROGRAM: without it the test is skipped.
need() {
    command -v "$1" >/dev/null || {
        echo "skipped: $1 is missing"
        exit 77
    }
}
