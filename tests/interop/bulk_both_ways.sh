# Bulk between the system's TCP and ours, in both directions, and in both at once.
serve discard --bytes 0 --datagrams 0
head -c 50000000 /dev/zero | timeout 60 socat -u -b 65536 - TCP:10.77.1.1:9
wait_for grep -q 'a connection has ended' "$work/discard.out"
stop_serving
grep -q 'discard: 50000000 bytes over TCP' "$work/discard.out" || fail 'bytes were lost on the way in'

serve chargen --bytes 0 --datagrams 0
timeout 60 socat -u -b 65536 TCP:10.77.1.1:19 - | head -c 50000000 >"$work/characters"
expect 'first line' ' !"#$%&'"'"'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\]^_`abcdefg' \
    "$(head -n 1 "$work/characters" | tr -d '\r')"
# Every line is the one 95 lines before it.
sum=$(head -c 14060 "$work/characters" | sha256sum)
for at in 100 3000 7000; do
    expect "stretch $at" "$sum" "$(tail -c +$((at * 7030 + 1)) "$work/characters" | head -c 14060 | sha256sum)"
done
stop_serving

random_file "$work/random" 20000000
serve echo-server
say_and_wait "$work/random" "$work/echo.socat" | timeout 60 socat -t 1 - TCP:10.77.1.1:7 >"$work/echo.socat"
expect_equal "$work/random" "$work/echo.socat"
say_and_wait "$work/random" "$work/echo.nc" | timeout 60 nc -q 1 10.77.1.1 7 >"$work/echo.nc"
expect_equal "$work/random" "$work/echo.nc"
stop_serving
