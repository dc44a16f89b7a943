# Requests for connections from where no answer comes back; a few hundred once made a listener deaf.
. "$here/honest.sh"
serve_attacked echo-server
open_old
send --to-port 7 requests --count 300
echo new | echoed_at_once
send --to-port 7 requests --count 5000
for i in 1 2 3; do
    echo new | echoed_at_once
done
old_goes_on
flat
stop_attacked 5300
