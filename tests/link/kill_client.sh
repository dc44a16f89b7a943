# The client is killed in the middle: the server notices by its time-out. Then another one is, and a third is served at
# once, while the server still serves the second.
patience=3
make_files 4 2500000
serve_through --delay 100
for time in once again; do
    start_client
    wait_for has_bytes 500000
    kill -KILL "$client"
    ended "$client" 137
    rm -r "$work/into"
    if [ "$time" = once ]; then
        wait_for has_line server.out 'is silent, given up; [0-9]* bytes sent, 0 others served'
    fi
done
start_client
ended "$client" 0
expect_equal
wait_for has_line server.out 'has everything'
# The second has gone by its time-out, or because the third's stack knows nothing of its connection.
three_ended() { [ "$(grep -c 'bytes sent' "$work/server.out")" -eq 3 ]; }
wait_for three_ended
tail -n 1 "$work/server.out" | grep -q '; [0-9]* bytes sent, 0 others served' || fail 'the server still serves somebody'
end_serving
