# The system's own stack behind a UDP path: socat joins a TUN device to a UDP socket, one IP packet a datagram.
root=$work/www
mkdir -p "$root"
random_file "$root/big.bin" 10000000
echo 'over a UDP path' >"$root/index.html"
"$bin/httpd" "$root" --udp-local 127.0.0.1:7001 --udp-remote 127.0.0.1:7002 --address 10.77.0.1 \
    --capture "$work/httpd.pcap" >"$work/httpd.out" 2>&1 &
server=$! program=httpd
wait_for grep -q ready "$work/httpd.out"
# Behind the program that listens: a datagram that is refused would end it.
socat "TUN:10.77.0.2/24,tun-type=tun,iff-no-pi,tun-name=ux1,iff-up" \
    UDP:127.0.0.1:7001,bind=127.0.0.1:7002 2>"$work/tunnel.out" &
tunnel=$!
wait_for ping -c 1 -W 1 10.77.0.1
ip link set ux1 mtu 1400
ping -c 5 -i 0.01 10.77.0.1 | grep -q ' 0% packet loss' || fail 'lost pings'
expect 'a page' 'over a UDP path' "$(curl -sS -m 30 http://10.77.0.1/)"
curl -sS -m 60 http://10.77.0.1/big.bin >"$work/got"
expect_equal "$root/big.bin" "$work/got"
stop_serving
kill "$tunnel"
