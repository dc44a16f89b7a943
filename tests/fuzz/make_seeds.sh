#!/bin/sh
# Writes the seeds that were made by hand; finds are added beside them as they are. Each word is bytes in hexadecimal
# or, after an apostrophe, text. What the bytes mean is in README.md and in the fuzzers.
set -eu
cd "$(dirname -- "$0")/seeds"

# seed fuzzer/name word…
seed() {
    file=$1
    shift
    mkdir -p "${file%/*}"
    for word in "$@"; do
        case $word in
        \'*) printf '%s' "${word#?}" ;;
        *)
            while [ -n "$word" ]; do
                rest=${word#??}
                # shellcheck disable=SC2059
                printf "\\$(printf '%03o' "0x${word%"$rest"}")"
                word=$rest
            done
            ;;
        esac
    done >"$file"
}

# What is open from the start, then what happens (CPacketRound::Operate).
seed packet_fuzz/data_both_ways 01 0900 0005 \'hello 10020fff 12020400 07 1600 07 0b05
seed packet_fuzz/data_both_ways6 02 0900 0005 \'hello 10020fff 12020400 07 1600 07 0b05
seed packet_fuzz/active_both 0c0001 0900 0003 \'one 0901 0003 \'two 12020fff 12030fff 07 07 1600 1600 0b06
seed packet_fuzz/peer_closes_first 01 1f00001100 140201 07 0b07
seed packet_fuzz/own_close_first 01 140201 07 1f00001100 0b05 0b07
seed packet_fuzz/both_close_at_once 03 1600 1600 1f00001100 1f01001100 07 0b06
seed packet_fuzz/reset 05 00 1f00000400 1f01000400 10020100
seed packet_fuzz/out_of_order 01 1f0011100008 0004 \'abcd 00 1f00011100ff00 1f001010 0008 \'efghijkl 00 10020fff
seed packet_fuzz/holes 01 1f0011100040 0008 \'abcdefgh 00 1f0011100020 0010 \'ijklmnopqrstuvwx 00 1f001110001c 0020 \'0123456789abcdef 00 1f001010 0020 \'0123456789abcdef 00 10020fff
seed packet_fuzz/fast_retransmit 01 12020fff 1f00201000 1f00201000 1f00201000 1f00201000 07 12020fff 1f00221001ff00 1f00221001ff00 1f00221001ff00 1f00221001ff00 07
seed packet_fuzz/window_closed 01 1f0004100000 00 12020fff 0b03 0b05 1f000410ffff 00 07
seed packet_fuzz/options 00 1f80080214 020405b401030308 0402080a 0000000100000000 00 07 0e00 1f00081004 0204 0020 00
seed packet_fuzz/half_open 00 1f80000200 1f81000200 1f82000200 1f83000200 1f84000200 1f85000200 0b03 07 0e00 0e00
seed packet_fuzz/backlog 00 0600 0602 0604 0606 0608 060a 060c 060e 0e00 0e00 0610
seed packet_fuzz/refused 00 0d00 0d01 1f00001400 1f01001400 0b04
seed packet_fuzz/keepalive 01 150200 0001 150201 0001 150202 0001 0b04 0b05 07 0b07
seed packet_fuzz/udp 20 010000 0003 \'abc 00 010100 0003 \'abc 00 010004 0010 \'0123456789abcdef 00 01020000000000 10000fff 12020100
seed packet_fuzz/icmp 34 00 12040100 02000800 0008 \'12345678 00 02018000 0008 \'12345678 00 0202030300 0000 02030104 000000 10020100
seed packet_fuzz/fragments4 30 010000 0400 \'0123456789abcdef d0 00040000 0000 010000 0400 \'0123456789abcdef d1 0304000100ff 10000fff
seed packet_fuzz/fragments6 30 010100 0400 \'0123456789abcdef d0 00040000 0000 040311000000 0010 \'0123456789abcdef 0b05
seed packet_fuzz/extensions 12 1f000010c1 0002 0301 3b 0004 \'data c30002 02 04073c00 0000 0008 \'abcdefgh c1 02

# Calls (CCallsRound::Call).
seed calls_fuzz/tcp 000000 1300000000 140005 000000 1501000000 031000 04010a \'hello 090200ff001000 170101 0201 1205
seed calls_fuzz/tcp6 000100 1300010000 140005 000100 1501010000 031c00 04010a \'hello 090200ff001c00 0200 0201 0200 1206
seed calls_fuzz/tcp_own_address 000000 1300000100 140005 000000 1501000100 031000 04010300000000000000000000000000000000ffff 0902070001 3000 1206
seed calls_fuzz/tcp_bulk 000000 1300000000 140001 000000 1501000000 030000 040103 \'0123456789abcdef fff0 0902070000 2000 0902070000 2000 02001205
seed calls_fuzz/refused 000000 1500000007 1001000303 0b0010 1203
seed calls_fuzz/unanswered 000000 1500000300 0b0010 1206 0b0010
seed calls_fuzz/udp 000001 000001 1300000001 0601000001 06 \'abc 090000ff001000 1501000001 040106 \'def 09000003011000
seed calls_fuzz/udp6 000101 000101 1300010101 0601010101 06 \'abc 090000ff001c00 0601010101 03 \'0123456789abcdef 4000 090007001c00
seed calls_fuzz/raw_icmp 00000201 0600000000 10 0800f7ff00000000 090000ff001000
seed calls_fuzz/raw_icmp6 0001023a 0600010100 10 8000000000000000 090000ff001c00
seed calls_fuzz/raw6_extension 0001023c 0600010100 04 3bff 0600010500 10 3b00010400000000 0600010100 00
seed calls_fuzz/raw6_routing 0001022b 0600010100 04 06ff 0600010500 10 3b00000400000000 0600010100 00
seed calls_fuzz/raw_any 00000259 00000259 0600000100 06 \'abc 090100ff001000 0b0110
seed calls_fuzz/header_written 00000211 000001 1301000101 0d0003030001 0600000101 07 0101110008 1b591b5900080000 00
seed calls_fuzz/syn_to_itself 00000206 000000 1301000101 140105 0d0003030001 0600000100 07 0101060014 1b581b58000000000000000050022000 00000000 00 1206
seed calls_fuzz/options 000000 0d0000000001 0d0001000001 0d0005000001 0d00ff0001000000010000 0f00000810 0f00010408 0f00020304
seed calls_fuzz/lists 000001 1300000000 0600000000 06 \'abc 110100010000 00010000000000000100 1003000100000100000f0000

# The thread, then calls (CLibraryRound::Operate).
seed library_fuzz/tcp 00 000000 04000000 0800 00000000 0a0005 0800 00 0a0185 0800 00 0c00 0800
seed library_fuzz/tcp_proxies 01 000000 04000000 0800 0803 00000000 0a0005 0803 00 0a0185 0803 00 0c00 0803
seed library_fuzz/tcp6 00 000080 04008000 0800 00000000 0a00ff 0a01ff 0800 00000000 0801
seed library_fuzz/udp 00 000002 04000200 0800 0000 0a0005 0800 0000 0a0005 0800
seed library_fuzz/udp_proxies 01 000002 04000200 0803 0000 0a0005 0803 0000 0a0005 0803
seed library_fuzz/raw 00 000003 04000300 0800 0000 0a0005 0800 0000 0a0005 0800
seed library_fuzz/raw_proxies 01 000003 04000300 0803 0000 0a0005 0803 0000 0a0005 0803
seed library_fuzz/refused_again 00 04000c00 0803 0104000c00 0803 01040000 00 0803
seed library_fuzz/timed_out 00 04001c03 0805 00 04001d05 0600 0700 0806
seed library_fuzz/stop_inside 00 000000 04000000 04010000 04020000 0800 00010200 0801 0001020001000000 0803
seed library_fuzz/drop_inside 00 000000 04000000 0800 0000 0000 0a01ff 0800 010c00 0803 010c00 0803
seed library_fuzz/drop_inside_proxies 01 000000 04000000 0803 0000 0000 0a01ff 0803 010c00 0803 010c00 0803
seed library_fuzz/echo_inside 00 000000 04000000 0800 0000 0000 0a0105 0800 010a0005 010a0105 010a0005 0803
seed library_fuzz/reset 00 000000 04000000 0800 00000000 0a00ff 0e0000 0803 010e0000 0803
seed library_fuzz/sink_changed 01 000000 04000000 0803 00000000 0a0005 0e0001 0e0101 0803 00 0a0005 0803

# The reader, then what it reads (TextFuzz.cpp).
seed text_fuzz/address4 00 0050 \'192.0.2.255
seed text_fuzz/address6 00 0050 \'2001:db8::ffff:192.0.2.1
seed text_fuzz/address_zone 00 0050 \'fe80::1%eth0
seed text_fuzz/record4 01 10 1002 0050 c0000201 0000000000000000
seed text_fuzz/record6 01 1c 1c0a 0050 00000000 20010db8000000000000000000000001 00000000
seed text_fuzz/record_cut 01 05 0702 0050 c0000201
seed text_fuzz/get 02 04 \'GET\ /a%20b?c=d\ HTTP/1.1 0d0a \'Host:\ x 0d0a \'Range:\ bytes=0-9 0d0a \'Connection:\ close 0d0a0d0a
seed text_fuzz/post 02 02 \'POST\ /\ HTTP/1.1 0d0a \'Host:\ x 0d0a \'Content-Length:\ 5 0d0a0d0a \'helloGET
seed text_fuzz/chunked 02 01 \'PUT\ /\ HTTP/1.1 0d0a \'Host:\ x 0d0a \'Transfer-Encoding:\ chunked 0d0a0d0a \'5 0d0a \'hello 0d0a \'0 0d0a \'Range:\ bytes=1- 0d0a0d0a
seed text_fuzz/upgrade 02 10 \'GET\ /\ HTTP/1.1 0d0a \'Host:\ x 0d0a \'Upgrade:\ h2c 0d0a \'Connection:\ Upgrade 0d0a0d0a \'more
seed text_fuzz/connect 02 10 \'CONNECT\ a:1\ HTTP/1.1 0d0a0d0a \'more
seed text_fuzz/range 03 0000000000010000 \'bytes=100-199
seed text_fuzz/range_end 03 ffffffffffffffff \'bytes=18446744073709551614-
seed text_fuzz/range_last 03 0000000000000000 \'bytes=-5
seed text_fuzz/reply 04 4500001c00000000400100000a0000010a000002 0000ffff00010002
seed text_fuzz/reply_options 04 4f00004400000000400100000a0000010a000002 0000
digest=\'0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef
seed text_fuzz/list 05 "$digest" \'\ 5\ a/b 00 "$digest" \'\ 0\ c 00
seed text_fuzz/list_huge 05 "$digest" \'\ 18446744073709551615\ a 00 "$digest" \'\ 1\ b 00
