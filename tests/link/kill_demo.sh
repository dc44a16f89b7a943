# Both sides end with the demo that has started them, also when it is killed.
mkdir "$work/from"
truncate -s 200M "$work/from/file"
export TMPDIR="$work"
start demo "$bin/filecopy" "$work/from"
demo=$!
children_of() {
    for file in /proc/[0-9]*/stat; do
        sed -n "s/^\([0-9]*\) (filecopy) [^Z] $1 .*/\1/p" "$file" 2>/dev/null || :
    done
}
two_children() { [ "$(children_of "$demo" | wc -l)" -eq 2 ]; }
wait_for two_children
children=$(children_of "$demo")
kill -KILL "$demo"
ended "$demo" 137
for child in $children; do
    # shellcheck disable=SC2016
    wait_for sh -c '! kill -0 "$1"' gone "$child"
done
