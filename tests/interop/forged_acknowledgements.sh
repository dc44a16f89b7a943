# Acknowledgements of what was never sent, some hundreds over all sequence numbers, draw few answers.
. "$here/honest.sh"
serve_attacked echo-server
open_old
before=$(get_passed ux0)
send --to-port 7 everywhere --flags A --step 5000000
quiet ux0 30
passed=$(($(get_passed ux0) - before))
echo "interop: $passed packets with the attack's 859"
[ "$passed" -le 1000 ] || fail "the attack's 859 packets drew $((passed - 859)) more"
old_goes_on
echo new | echoed_at_once
flat
stop_attacked 859
