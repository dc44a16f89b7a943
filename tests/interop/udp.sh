# Datagrams of other programs to the UDP servers.
serve udp-echo --peers 0
expect 'echo to socat' 'one datagram' "$(echo 'one datagram' | timeout 10 socat -t 1 - UDP:10.77.1.1:7)"
expect 'echo to nc' 'another one' "$(echo 'another one' | timeout 10 nc -u -w 1 10.77.1.1 7)"
random_file "$work/long" 9000
timeout 10 socat -t 1 -b 65536 "OPEN:$work/long" UDP:10.77.1.1:7,shut-none >/dev/null
timeout 10 socat -t 1 -b 65536 - UDP:10.77.1.1:7 <"$work/long" >"$work/long.echoed"
expect_equal "$work/long" "$work/long.echoed"
for i in 1 2 3 4 5 6 7 8 9 10; do
    expect "echo $i" "peer $i" "$(echo "peer $i" | timeout 10 socat -t 1 - UDP:10.77.1.1:7)" &
    peers="${peers:-} $!"
done
for peer in $peers; do
    wait "$peer"
done
stop_serving

serve chargen --bytes 0 --datagrams 0
answered=0
for i in 1 2 3 4 5; do
    answer=$(echo | timeout 10 socat -t 1 - UDP:10.77.1.1:19 | head -n 1 | cut -c 1-8)
    case $answer in
    ' !"#$%&'"'"'' | '') answered=$((answered + 1)) ;;
    esac
done
[ "$answered" -ge 4 ] || fail "only $answered answers of the character generator are right"
stop_serving
