# Packets that are made to trouble a stack, for 0.7 s of each kind as many as the system can send, at a server that goes
# on serving.
. "$here/honest.sh"
need hping3

# flood NAME OPTIONS
flood() {
    name=$1
    shift
    before=$(get_passed ux0)
    timeout -s INT -k 1 0.7 hping3 -q --flood "$@" 10.77.1.1 >"$work/hping3.out" 2>&1 || :
    passed=$(($(get_passed ux0) - before))
    echo "interop: $name: $passed packets"
    [ "$passed" -ge 1000 ] || fail "hping3 sent nothing: $(cat "$work/hping3.out")"
}
goes_on() {
    old_goes_on
    echo new | echoed_at_once
    flat
}

serve_attacked echo-server
open_old
flood 'requests from anywhere' -S -p 7 --rand-source
goes_on
flood 'requests from the server itself' -S -p 7 -a 10.77.1.1 -s 7 -k
flood 'all flags' -F -S -R -P -A -U -X -Y -p 7
flood 'all flags, from the old connection' -F -S -R -P -A -U -X -Y -p 7 -s 40000 -k
flood 'ends and urgent data, from the old connection' -F -P -U -p 7 -s 40000 -k
goes_on
flood 'tiny fragments' -2 -p 7 -d 600 -f
# Of one packet, which never becomes complete.
flood 'overlapping fragments' -2 -p 7 -d 104 -x -g 8 -N 77 &
overlapping=$!
flood 'fragments that they overlap' -2 -p 7 -d 104 -x -g 64 -N 77
wait "$overlapping" || fail 'the fragments'
flood 'fragments of many packets' -2 -p 7 -d 1200 -x --rand-source
goes_on
flood 'datagrams' -2 -p 7 --rand-source
flood 'pings' -1 -d 1000
goes_on
stop_attacked 1000
