# curl fetches files from httpd, in all the ways that it knows.
root=$work/www
mkdir -p "$root/folder"
random_file "$root/big.bin" 5000000
random_file "$root/piece.bin" 262144
echo 'the index' >"$root/index.html"
echo 'a text' >"$root/folder/a text.txt"
: >"$root/empty"
echo 'outside' >"$work/outside"
ln -s "$work/outside" "$root/link"
serve httpd "$root"
url=http://10.77.1.1
get() { curl -sS -m 30 "$@"; }
status_of() { get --path-as-is -o "$work/body" -w '%{http_code}' "$@"; }

get "$url/big.bin" >"$work/got"
expect_equal "$root/big.bin" "$work/got"
get "$url/" >"$work/got"
expect_equal "$root/index.html" "$work/got"
get "$url/folder/a%20text.txt?query" >"$work/got"
expect_equal "$root/folder/a text.txt" "$work/got"
get "$url/empty" >"$work/got"
expect_equal "$root/empty" "$work/got"

# One connection for all.
connects=$(get -w '%{num_connects}' -o "$work/a" "$url/" -o "$work/b" "$url/piece.bin" -o "$work/c" "$url/empty")
expect 'connections of three requests' 100 "$connects"
expect_equal "$root/piece.bin" "$work/b"
get -0 "$url/piece.bin" >"$work/got"
expect_equal "$root/piece.bin" "$work/got"

# Many at the same time.
for i in 1 2 3 4 5 6 7 8; do
    get -o "$work/parallel.$i" "$url/big.bin" &
    fetchers="${fetchers:-} $!"
done
for fetcher in $fetchers; do
    wait "$fetcher" || fail 'a parallel fetch failed'
done
for i in 1 2 3 4 5 6 7 8; do
    expect_equal "$root/big.bin" "$work/parallel.$i"
done

# Ranges.
get -r 1000-1999 "$url/big.bin" >"$work/got"
tail -c +1001 "$root/big.bin" | head -c 1000 >"$work/want"
expect_equal "$work/want" "$work/got"
get -r -50 "$url/big.bin" >"$work/got"
tail -c 50 "$root/big.bin" >"$work/want"
expect_equal "$work/want" "$work/got"
head -c 1234567 "$root/big.bin" >"$work/got"
get -C - -o "$work/got" "$url/big.bin"
expect_equal "$root/big.bin" "$work/got"
expect 'range' 206 "$(status_of -r 0-0 "$url/big.bin")"
expect 'range behind the end' 416 "$(status_of -r 5000000- "$url/big.bin")"

# HEAD, and what is not served.
expect 'length by HEAD' 5000000 \
    "$(get -I "$url/big.bin" | tr -d '\r' | awk 'tolower($1) == "content-length:" { print $2 }')"
expect 'POST' 405 "$(status_of -d data "$url/")"
expect 'missing' 404 "$(status_of "$url/nothing")"
for way in /link /../outside /%2e%2e/outside /folder/../../outside '/a%00b' '/%zz' //../outside; do
    expect "$way" 404 "$(status_of "$url$way")"
done
expect 'no host' 'HTTP/1.1 400 Bad Request' "$(printf 'GET / HTTP/1.1\r\n\r\n' | ask 10.77.1.1 80 | head -n 1 | tr -d '\r')"
expect 'no HTTP' 'HTTP/1.1 400 Bad Request' "$(printf 'nonsense\r\n\r\n' | ask 10.77.1.1 80 2>/dev/null | head -n 1 | tr -d '\r')"
expect 'pipelined' 2 "$(printf 'GET / HTTP/1.1\r\nHost: a\r\n\r\nGET /empty HTTP/1.1\r\nHost: a\r\n\r\n' |
    ask 10.77.1.1 80 | grep -c 'HTTP/1.1 200 OK')"
stop_serving
