# A port scanner in its ways, at servers that go on serving.
. "$here/honest.sh"
need nmap

# scan NAME OPTIONS: no host of these answers slowly, so that it gives up soon.
scan() {
    name=$1
    shift
    timeout 15 nmap -n -Pn -T4 --max-retries 1 --host-timeout 12s -oN "$work/scan.$name" "$@" 10.77.1.1 >/dev/null ||
        fail "nmap $*"
}
has() { grep -Eq "$2" "$work/scan.$1" || fail "nmap does not say $2: $(cat "$work/scan.$1")"; }

serve_attacked echo-server
open_old
scan version -sV -p 7 &
version=$!
scan connect -sT -p 1-200
has connect '^7/tcp +open'
old_goes_on
scan syn -sS -p 1-500
has syn '^7/tcp +open'
old_goes_on
for way in N F X A W M; do
    scan "flags$way" "-s$way" -p 1-40
    echo new | echoed_at_once
done
old_goes_on
scan fragments -sS -f -p 5-8
scan protocols -sO -p 0-30,50-60,100-105,255
has protocols '^6 +open'
wait "$version" || fail 'the scan of the version'
has version '^7/tcp +open +echo'
old_goes_on
echo new | echoed_at_once
flat
stop_attacked 1500

serve_attacked udp-echo --peers 0
echoed_datagram() { expect 'the echo' "$1" "$(echo "$1" | timeout 2 socat -t 0.3 - UDP:10.77.1.1:7)"; }
echoed_datagram before
resident=$(get_resident)
scan datagrams -sU -p 1-20
has datagrams '^7/udp +open'
echoed_datagram after
flat
stop_attacked 20
