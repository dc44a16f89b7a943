#!/bin/sh
# Puts lwIP's source where the build looks for it: fetch-lwip.sh [DIR], DIR being .deps/lwip of this tree.
#
# Takes the distribution's source package through apt, which checks signature and hashes, by a source list of its
# own in a temporary directory; the machine's apt configuration stays as it is. Does nothing when DIR holds lwIP.
set -eu

root=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
dir=${1:-$root/.deps/lwip}

if [ -f "$dir/src/include/lwip/init.h" ]; then
    exit 0
fi

fail() {
    echo "fetch-lwip: $1" >&2
    echo "fetch-lwip: unpack lwIP 2.1.3 or newer to $dir by hand, or name another copy with -DUXPORT_LWIP_DIR=..." >&2
    exit 1
}

command -v apt-get >/dev/null 2>&1 || fail "apt-get is not there; this script knows Debian and Ubuntu only"
command -v tar >/dev/null 2>&1 || fail "tar is not there"

work=$(mktemp -d "${TMPDIR:-/tmp}/fetch-lwip.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
chmod 755 "$work"
mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/download" "$work/unpacked"

# The distribution's own repositories, as they are configured for binary packages, asked for sources. Its keyring is
# named where it is found; otherwise apt's trusted keys decide.
keyring=""
for file in /usr/share/keyrings/debian-archive-keyring.gpg /usr/share/keyrings/ubuntu-archive-keyring.gpg; do
    if [ -r "$file" ] && grep -q "^ID=$(basename "$file" -archive-keyring.gpg)\$" /etc/os-release; then
        keyring="[signed-by=$file] "
    fi
done
apt-get indextargets --no-release-info --format '$(REPO_URI)|$(RELEASE)|$(COMPONENT)' 'Created-By: Packages' |
    sort -u | while IFS='|' read -r uri suite component; do
    case $component in
    main | universe) ;;
    *) continue ;;
    esac
    case $uri in
    *[Dd]ebian* | *[Uu]buntu*) echo "deb-src $keyring$uri $suite $component" ;;
    esac
done >"$work/sources.list"
echo "fetch-lwip: asking the distribution for the source package lwip"
[ -s "$work/sources.list" ] || fail "apt knows no Debian or Ubuntu repository with a component main or universe"

apt_own() {
    apt-get -q -y \
        -o "Dir::Etc::SourceList=$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o "Dir::State::Lists=$work/lists" -o "Dir::Cache=$work/cache" \
        -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none -o Acquire::Retries=3 "$@"
}

apt_own update >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "the source lists could not be read"; }
(cd "$work/download" && apt_own source --download-only lwip) >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; fail "the source package lwip could not be downloaded"; }

dsc=$(find "$work/download" -name 'lwip_*.dsc' | head -n 1)
tarball=$(find "$work/download" -name 'lwip_*.orig.tar.*' ! -name '*.asc' | head -n 1)
[ -n "$dsc" ] && [ -n "$tarball" ] || fail "the source package has no .dsc or no .orig.tar"

# apt has checked the hashes already; once more against the .dsc, for the file that is about to be unpacked.
wanted=$(sed -n '/^Checksums-Sha256:/,/^[^ ]/p' "$dsc" | awk -v f="$(basename "$tarball")" '$3 == f { print $1 }')
actual=$(sha256sum "$tarball" | awk '{ print $1 }')
[ -n "$wanted" ] && [ "$wanted" = "$actual" ] || fail "the checksum of $(basename "$tarball") is not that of its .dsc"

tar -C "$work/unpacked" -xf "$tarball" || fail "$(basename "$tarball") could not be unpacked (is xz or gzip missing?)"
init=$(find "$work/unpacked" -path '*/src/include/lwip/init.h' | head -n 1)
[ -n "$init" ] || fail "$(basename "$tarball") holds no src/include/lwip/init.h"
top=${init%/src/include/lwip/init.h}

mkdir -p "$(dirname "$dir")"
rm -rf "$dir.new"
cp -R "$top" "$dir.new"
rm -rf "$dir"
mv "$dir.new" "$dir"
echo "fetch-lwip: $(basename "$tarball") is in $dir"
