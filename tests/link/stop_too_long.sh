# The client is stopped for longer than the server's patience: it is given up, says so when it goes on, and the next one
# is served.
patience=3
make_files 4 2500000
serve_through --delay 100
start_client
wait_for has_bytes 500000
kill -STOP "$client"
wait_for has_line server.out 'is silent, given up'
kill -CONT "$client"
ended "$client" 2
grep -q -e 'the server has gone' -e 'the server is silent' "$work/client.err" || fail 'the client says nothing of it'
rm -r "$work/into"
start_client
ended "$client" 0
expect_equal
end_serving
