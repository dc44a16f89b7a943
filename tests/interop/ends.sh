# How connections end: resets, half-closes, refusals, a link that goes away.
serve echo-server --port 7

# An orderly end.
expect 'echo' 'hello' "$(echo hello | ask 10.77.1.1 7)"

# A reset instead of an end (linger 0).
echo reset | timeout 10 socat -t 0.2 - TCP:10.77.1.1:7,linger=0 >/dev/null
# The sending side closes, the receiving one stays open: the server reports the end and closes.
printf 'half' | timeout 10 socat -t 10 - TCP:10.77.1.1:7 >/dev/null
# Nobody listens: refused at once.
status=0
timeout 10 socat -u OPEN:/dev/null TCP:10.77.1.1:8 2>"$work/refused" || status=$?
expect 'status of a refusal' 1 "$status"
grep -q 'Connection refused' "$work/refused" || fail 'not refused'

# A short outage in the middle: nothing is lost.
random_file "$work/random" 40000000
say_and_wait "$work/random" "$work/echoed" | timeout 60 socat -t 1 - TCP:10.77.1.1:7 >"$work/echoed" &
client=$!
wait_for sh -c '[ "$(stat -c %s "$1")" -gt 1000000 ]' size "$work/echoed"
ip link set ux0 down
sleep 1
ip link set ux0 up
ip addr add 10.77.1.2/24 dev ux0 2>/dev/null || true
wait "$client" || fail 'the client gave up'
expect_equal "$work/random" "$work/echoed"

# A peer that vanishes: the server goes on with others and ends cleanly with the connection still open.
say_and_wait /dev/zero "$work/nothing" 2>/dev/null | socat - TCP:10.77.1.1:7 >/dev/null 2>&1 &
wait_for sh -c 'ss -tn | grep -q 10.77.1.1:7'
ip link set ux0 down
ip link set ux0 up
expect 'echo after it' 'still here' "$(echo 'still here' | ask 10.77.1.1 7)"
stop_serving
