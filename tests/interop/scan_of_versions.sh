# A scanner says all kinds of nonsense to an HTTP server to find out which one it is.
. "$here/honest.sh"
need nmap
mkdir -p "$work/www"
echo page >"$work/www/index.html"
random_file "$work/www/file" 8000000
serve_attacked httpd "$work/www"
within 3 curl -sS -m 1 http://10.77.1.1/
resident=$(get_resident)
curl -sS -m 20 --limit-rate 1M http://10.77.1.1/file >"$work/file" &
download=$!
# It begins by waiting 6 s for a word of the server's, and would go on for a minute.
timeout 15 nmap -n -Pn -T4 -sV --host-timeout 9s -p 80 10.77.1.1 >/dev/null || fail 'nmap'
fetched_at_once page
wait "$download" || fail 'the download stopped'
expect_equal "$work/www/file" "$work/file"
flat
stop_attacked 20
