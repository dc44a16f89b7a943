# A link in the client's folder leads out of it: nothing is written there.
mkdir -p "$work/from/way" "$work/into" "$work/outside"
echo text >"$work/from/way/file"
ln -s "$work/outside" "$work/into/way"
serve_through
start_client
ended "$client" 2
has_line client.err 'refuses way/file' || fail 'the client does not refuse'
[ -z "$(ls -A "$work/outside")" ] || fail 'something was written outside'
rm "$work/into/way"
ln -s "$work/outside/file" "$work/into/dangling"
mv "$work/from/way/file" "$work/from/dangling"
end_serving
serve_through
start_client
ended "$client" 2
has_line client.err 'refuses dangling' || fail 'the client does not refuse'
[ -z "$(ls -A "$work/outside")" ] || fail 'something was written outside'
end_serving
