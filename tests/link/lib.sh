# What the tests of this folder share: filecopy's two sides and the relay between them. A test ends at its first failure,
# and whatever it has started ends with it.
#
# bin: the folder of the programs. work: the test's own folder, empty at the start.
set -eu

started=
fail() {
    echo "link: $*" >&2
    exit 1
}
end_all() {
    # shellcheck disable=SC2086
    [ -z "$started" ] || kill -KILL $started 2>/dev/null || :
    tail -n 5 "$work"/*.out "$work"/*.err
}
trap end_all EXIT

# start NAME PROGRAM [ARGUMENTS]: in the background; its process is $! then. Ends with this shell, however that ends.
start() {
    name=$1
    shift
    if command -v setpriv >/dev/null; then
        set -- setpriv --pdeathsig KILL "$@"
    fi
    "$@" >>"$work/$name.out" 2>>"$work/$name.err" &
    started="$started $!"
}

# Waits until a command succeeds.
wait_for() {
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 600 ] || fail "waited in vain for: $*"
        sleep 0.05
    done
}

has_line() { grep -q "$2" "$work/$1"; }

# has_bytes COUNT: as much has been fetched, in files that are there.
has_bytes() { [ "$(find "$work/into" -type f -exec cat {} + 2>/dev/null | wc -c)" -ge "$1" ]; }

# ended PROCESS STATUS: it ends by itself, with this status.
ended() {
    status=0
    wait "$1" || status=$?
    [ "$status" -eq "$2" ] || fail "exit status $status where $2 was expected"
}

# make_files COUNT BYTES: random ones, the last in a folder of its own, and an empty one.
make_files() {
    mkdir -p "$work/from/folder/inner"
    : >"$work/from/empty"
    for number in $(seq "$1"); do
        head -c "$2" /dev/urandom >"$work/from/file $number"
    done
    mv "$work/from/file $1" "$work/from/folder/inner/"
}

# start_server: on the port $server_udp, to the relay.
start_server() {
    # shellcheck disable=SC2086
    start server "$bin/filecopy" serve "$work/from" --udp-local "127.0.0.1:$server_udp" \
        --udp-remote "127.0.0.1:$to_client" ${patience:+--timeout $patience}
    server=$!
    wait_for server_ready
}
server_ready() { ! kill -0 "$server" 2>/dev/null || has_line server.out 'serves'; }

# start_client: on any port, to the relay.
start_client() {
    # shellcheck disable=SC2086
    start client "$bin/filecopy" get --into "$work/into" --udp-local 127.0.0.1:0 \
        --udp-remote "127.0.0.1:$to_server" ${patience:+--timeout $patience}
    client=$!
}

# serve_through [OPTIONS OF THE RELAY]: the relay and the server. The server's port is below those that the system gives
# out, and another one in every test that runs at the same time.
serve_through() {
    for try in 0 1 2 3 4 5 6 7; do
        server_udp=$((10000 + ($$ * 8 + try) % 10000))
        rm -f "$work/relay.out" "$work/server.out"
        start relay "$bin/uxport_relay" --server "$server_udp" "$@"
        relay=$!
        wait_for has_line relay.out '^[0-9]'
        read -r to_client to_server <"$work/relay.out"
        start_server
        if has_line server.out 'serves'; then
            return
        fi
        kill "$relay"
        wait "$relay" || :
    done
    fail 'the server does not start'
}

# end_serving: both end by themselves.
end_serving() {
    kill "$server"
    ended "$server" 0
    kill "$relay"
    ended "$relay" 0
}

# count WHAT: how often the relay did it, both ways.
count() { sed -n "s/.* \([0-9]*\) $1.*/\1/p" "$work/relay.out" | awk '{ sum += $1 } END { print sum + 0 }'; }

expect_equal() { diff -r "$work/from" "$work/into" || fail 'what was fetched differs'; }
