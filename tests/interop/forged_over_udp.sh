# Somebody without any right, who may send datagrams to the port of a UDP path: between two of our own stacks, in the
# middle of a copy. The delay makes it last for some seconds.
. "$here/honest.sh"
program=filecopy
mkdir -p "$work/from"
random_file "$work/from/file" 60000000
"$bin/uxport_relay" --server 7001 --delay 10 >"$work/relay.out" 2>&1 &
wait_for grep -q '^[0-9]' "$work/relay.out"
read -r to_client to_server <"$work/relay.out"
"$bin/filecopy" serve "$work/from" --udp-local 127.0.0.1:7001 --udp-remote "127.0.0.1:$to_client" >"$work/server.out" 2>&1 &
wait_for grep -q serves "$work/server.out"
"$bin/filecopy" get --into "$work/into" --udp-local 127.0.0.1:7002 --udp-remote "127.0.0.1:$to_server" --counters \
    >"$work/filecopy.out" 2>&1 &
client=$!
server=$client
# The port of the end that fetches, out of the first packet that is seen of it.
port=$(timeout 5 tshark -i lo -f 'udp dst port 7001' -c 1 -T fields -e udp.payload 2>/dev/null | tr -d : | cut -c 41-44)
port=$((0x$port))
resident=$(get_resident)

attack() { "$bin/uxport_sender" --udp 7002 --from 10.77.0.1 --from-port 7000 --to 10.77.0.2 "$@"; }
# Windows of 0 at every port, as by somebody who does not know which one it is.
attack windows &
windows=$!
attack --to-port "$port" everywhere --bytes 1340 --flags P
attack --to-port "$port" everywhere --flags A --step 5000000
wait "$windows" || fail 'the attack'
kill -0 "$client" 2>/dev/null || fail "the copy is over already: $(head -n 1 "$work/filecopy.out")"
flat
wait "$client" || fail "the copy failed: $(head -n 1 "$work/filecopy.out")"
expect_equal "$work/from/file" "$work/into/file"
check_counters 150000
