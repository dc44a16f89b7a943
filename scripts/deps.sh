#!/bin/sh
# Puts in place what the groups of packages.txt named as arguments need (base always), and lwIP's source.
# Installs only what is missing; without root it says what that is and ends with 1.
set -eu

root=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)

if command -v dpkg-query >/dev/null 2>&1; then
    wanted=$(awk -v groups=" base $* " '!/^#/ && NF == 2 && index(groups, " " $2 " ") { print $1 }' \
        "$root/scripts/packages.txt" | sort -u)
    # A virtual package counts as present when something installed provides it.
    missing=$({
        dpkg-query -W -f '${db:Status-Status}\t${Package}\t${Provides}\n' 2>/dev/null
        echo "$wanted"
    } | awk -F '\t' '
        NF == 3 && $1 == "installed" {
            there[$2] = 1
            n = split($3, names, /, */)
            for (i = 1; i <= n; i++) { sub(/ .*/, "", names[i]); there[names[i]] = 1 }
        }
        NF == 1 && $1 != "" && !($1 in there) { print $1 }' | tr '\n' ' ')
    if [ -n "$missing" ]; then
        if [ "$(id -u)" -ne 0 ]; then
            echo "deps: missing packages: $missing" >&2
            echo "deps: install them as root: apt-get install $missing" >&2
            exit 1
        fi
        echo "deps: installing $missing"
        export DEBIAN_FRONTEND=noninteractive
        install="apt-get -q -y -o Acquire::Retries=3 -o Dpkg::Use-Pty=0 install --no-install-recommends"
        # The package lists of a fresh machine are empty or old.
        # shellcheck disable=SC2086
        $install $missing >/dev/null 2>&1 || { apt-get -q -o Acquire::Retries=3 update && $install $missing; }
    fi
else
    echo "deps: not a Debian or Ubuntu machine; see scripts/packages.txt for what is needed" >&2
fi

exec sh "$root/scripts/fetch-lwip.sh"
