# The system pings us, we ping the system.
serve echo-server
ping -c 20 -i 0.01 10.77.1.1 | tee "$work/ping.out"
grep -q '20 packets transmitted, 20 received, 0% packet loss' "$work/ping.out" || fail 'lost pings'
ping -c 3 -i 0.01 -s 1372 -M do 10.77.1.1 | grep -q ' 0% packet loss' || fail 'lost pings of the MTU'
ping -c 3 -i 0.01 -s 8000 10.77.1.1 | grep -q ' 0% packet loss' || fail 'lost pings in fragments'
stop_serving

# Our end exists only while the program runs: the system joins a device made beforehand.
ip tuntap add dev ux0 mode tun
ip addr add 10.77.1.2/24 dev ux0
ip link set ux0 up mtu 1400
"$bin/ping" 10.77.1.2 -c 20 -i 0.01 --tun ux0 --address 10.77.1.1 --capture "$work/own.pcap" | tee "$work/own.out"
grep -q '20 packets transmitted, 20 received, 0.0% packet loss' "$work/own.out" || fail 'lost pings of our own'
status=0
"$bin/ping" 10.77.1.99 -c 3 -i 0.01 -W 0.1 --tun ux0 --address 10.77.1.1 >"$work/nobody.out" || status=$?
expect 'status of a ping of nobody' 1 "$status"
check_capture "$work/own.pcap"
