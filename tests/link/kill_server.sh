# The server is killed in the middle: the client notices by its time-out, the next one finds nobody, and the one after
# that a server that has been started again.
patience=3
make_files 4 2500000
serve_through --delay 100
start_client
wait_for has_bytes 500000
kill -KILL "$server"
ended "$server" 137
ended "$client" 2
has_line client.err 'the server is silent, given up' || fail 'the client says nothing of it'
start_client
ended "$client" 2
has_line client.err 'cannot connect to the server' || fail 'the client says nothing of it'
rm -r "$work/into"
rm "$work/server.out"
start_server
start_client
ended "$client" 0
expect_equal
end_serving
