# stop.sh client|server: that side is stopped for a while in the middle, and everything arrives.
make_files 4 2500000
serve_through --delay 50
start_client
wait_for has_bytes 500000
case $1 in
    client) stopped=$client ;;
    server) stopped=$server ;;
esac
kill -STOP "$stopped"
sleep 3
kill -CONT "$stopped"
ended "$client" 0
expect_equal
wait_for has_line server.out 'has everything'
end_serving
