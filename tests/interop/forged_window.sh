# Windows of 0 from somebody who knows the ends of a connection and not its numbers: two packets once stopped it for good.
. "$here/honest.sh"
serve_attacked echo-server
open_old
send --to-port 7 window --pairs 1
old_goes_on
send --to-port 7 window --pairs 100
old_goes_on
echo new | echoed_at_once
flat
stop_attacked 202

# In the middle of a download.
mkdir -p "$work/www"
echo page >"$work/www/index.html"
random_file "$work/www/file" 6000000
serve_attacked httpd "$work/www"
within 3 curl -sS -m 1 http://10.77.1.1/
resident=$(get_resident)
curl -sS -m 10 --limit-rate 3M --local-port 40000 http://10.77.1.1/file >"$work/file" &
download=$!
within 3 test -s "$work/file"
send --to-port 80 window --pairs 1
fetched_at_once page
wait "$download" || fail 'the download stopped'
expect_equal "$work/www/file" "$work/file"
flat
stop_attacked 2
