# Data and ends over all sequence numbers, so close together that one at least is within the window. The acknowledgement
# number is missing or a guess.
. "$here/honest.sh"
serve_attacked echo-server
open_old
send --to-port 7 everywhere --bytes 1340 --flags P
old_goes_on
send --to-port 7 everywhere --flags F
old_goes_on
echo new | echoed_at_once
flat
stop_attacked 143166

# A server that only listens loses nothing, and takes nothing else.
serve_attacked discard --bytes 0 --datagrams 0
resident=$(get_resident)
random_file "$work/half" 1000000
mkfifo "$work/fifo"
nc -N -p 40000 10.77.1.1 9 <"$work/fifo" &
old=$!
exec 4>"$work/fifo"
cat "$work/half" >&4
send --to-port 9 everywhere --bytes 10 --flags FA
kill -0 "$old" 2>/dev/null || fail 'the old connection has ended'
cat "$work/half" >&4
exec 4>&-
within 3 grep -q 'a connection has ended' "$work/discard.out"
flat
stop_attacked 71583
grep -q 'discard: 2000000 bytes over TCP' "$work/discard.out" || fail "$(grep bytes "$work/discard.out")"
