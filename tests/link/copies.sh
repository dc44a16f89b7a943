# copies.sh COUNT BYTES [OPTIONS OF THE RELAY]: so many files arrive equal, and the path was as bad as it should be.
# Retransmission timers double: with 20 % loss both sides may be silent for long.
patience=100
make_files "$1" "$2"
shift 2
serve_through "$@"
start_client
ended "$client" 0
expect_equal
wait_for has_line server.out 'has everything'
end_serving
for what in lose=lost repeat=repeated reorder=reordered damage=damaged; do
    case " $* " in
        *" --${what%=*} 0 "*) ;;
        *" --${what%=*} "*) [ "$(count "${what#*=}")" -gt 0 ] || fail "nothing was ${what#*=}" ;;
        *) [ "$(count "${what#*=}")" -eq 0 ] || fail "something was ${what#*=}" ;;
    esac
done
