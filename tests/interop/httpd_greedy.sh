# Clients of httpd that ask and never read, and those that are to notice nothing of them.
root=$work/www
mkdir -p "$root"
random_file "$root/piece.bin" 16384
random_file "$root/slow.bin" 40000
echo 'the index' >"$root/index.html"
# What the sanitizer keeps of freed memory would look like growth.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}quarantine_size_mb=4"
serve httpd "$root"
wait_for grep -q ready "$work/httpd.out"
url=http://10.77.1.1
get() { curl -sS -m 30 "$@"; }

# Of the server. Its number here is the last of NSpid, whatever /proc this is.
resident_kilobytes() {
    for process in /proc/[0-9]*/status; do
        awk -v pid="$server" '$1 == "Name:" { named = $2 == "httpd" } $1 == "NSpid:" { own = $NF == pid }
            $1 == "VmRSS:" && named && own { print $2 }' "$process" 2>/dev/null || true
    done
}

# until_closed REQUEST: says it, keeps its side open, prints what comes until the server closes.
until_closed() {
    rm -f "$work/say"
    mkfifo "$work/say"
    { printf "$1"; exec sleep 60; } >"$work/say" &
    open=$!
    timeout 20 socat -t 0.01 - TCP:10.77.1.1:80 <"$work/say"
    kill "$open"
}

# closes_at_once REQUEST: the answer comes, and the end with it.
closes_at_once() {
    start=$(date +%s%3N)
    until_closed "$1" >"$work/got"
    took=$(($(date +%s%3N) - start))
    grep -q '^HTTP/1.1 200 OK' "$work/got" || fail "no answer to $1"
    expect "the body of $1" 'the index' "$(tail -n 1 "$work/got")"
    [ "$took" -lt 700 ] || fail "the end came after $took ms: $1"
}
closes_at_once 'GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n'
closes_at_once 'GET / HTTP/1.0\r\n\r\n'
expect 'a page' 'the index' "$(get -H 'Connection: close' "$url/")"

# Readers of 4 KB/s. The second has little room of its own: most of the answer is still with us when httpd closes.
get --limit-rate 4k -o "$work/limited" "$url/slow.bin" &
limited=$!
cat >"$work/reader.sh" <<'EOF'
printf 'GET /slow.bin HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n'
while dd bs=2048 count=1 of="$1.piece" 2>/dev/null && [ -s "$1.piece" ]; do
    cat "$1.piece" >>"$1"
    sleep 0.5
done
EOF
timeout 50 socat TCP:10.77.1.1:80,rcvbuf=4096 "EXEC:sh $work/reader.sh $work/slow,nofork" &
slow=$!

# Some send a megabyte of requests and stay, others three, which is more than httpd throws away.
get -o "$work/got" "$url/piece.bin"
resident=$(resident_kilobytes)
request=$(printf 'GET /piece.bin HTTP/1.1\r\nHost: a\r\n\r')
for i in 1 2 3 4; do
    { yes "$request" | head -c 1000000; sleep 20; } | timeout 20 socat -u - TCP:10.77.1.1:80,rcvbuf=65536 &
    staying="${staying:-} $!"
done
while :; do
    yes "$request" | head -c 3000000 | timeout 1 socat -u - TCP:10.77.1.1:80,rcvbuf=65536 2>/dev/null || true
    sleep 0.2
done &
greedy=$!
most=$resident
for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16; do
    get -m 5 -o "$work/got" "$url/piece.bin"
    expect_equal "$root/piece.bin" "$work/got"
    now=$(resident_kilobytes)
    [ "$now" -le "$most" ] || most=$now
    sleep 0.25
done
kill "$greedy"
echo "interop: resident $resident KB, $most KB at most"
[ "$((most - resident))" -lt 40000 ] || fail "memory grew from $resident to $most KB"
for client in $staying; do
    kill -0 "$client" || fail 'a client was cut off that waited for its answers'
done

wait "$limited" || fail 'the limited reader did not get all'
expect_equal "$root/slow.bin" "$work/limited"
kill -0 "$slow" 2>/dev/null || fail 'the slow reader was not slow'
wait "$slow" || fail 'the slow reader failed'
tail -c 40000 "$work/slow" >"$work/got"
expect_equal "$root/slow.bin" "$work/got"
stop_serving
